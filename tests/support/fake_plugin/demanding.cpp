// SPDX-License-Identifier: MIT
/// \file
/// A plug-in that calls a host function that does not exist.

#include "mg_host_api.hpp"

extern "C" int32_t MgGi__UnheardOf();

uint32_t gMgLogIdLib = 0;
uint32_t gMgLogLevelLib = 0;
uint32_t gMgLogModeLib = 0;

int32_t MgLibProc() {
    return MgGi__UnheardOf();
}

char const* MgLibGetVer() {
    return "demanding";
}
