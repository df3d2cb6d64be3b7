#include <PvGenCommand.h>

#include "PvGenParameter_impl.hpp"

PvResult PvGenCommand::Execute() {
    return impl_->execute();
}
