// SPDX-License-Identifier: MIT
#pragma once
#include <PvDeviceInfo.h>

#include "gvcp/gvcp_discovery.hpp"

struct PvDeviceInfo::impl {
    openpv::discovered_camera camera;
};
