#include <PvGenBoolean.h>

#include "PvGenParameter_impl.hpp"

PvResult PvGenBoolean::GetValue(bool& value) {
    return impl_->get_boolean(value);
}
PvResult PvGenBoolean::SetValue(bool value) {
    return impl_->set_boolean(value);
}
