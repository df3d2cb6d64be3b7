/// \file
/// A shared object that is no plug-in: of what one exports it has only `MgLibProc`.

#include "mg_host_api.hpp"

int32_t MgLibProc() {
    return 0;
}
