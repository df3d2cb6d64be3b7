// SPDX-License-Identifier: MIT
/// \file
/// A shared object that is not a complete plug-in: of the required symbols it exports only `MgLibProc`.

#include "mg_host_api.hpp"

int32_t MgLibProc() {
    return 0;
}
