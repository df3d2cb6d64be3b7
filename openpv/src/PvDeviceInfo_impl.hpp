#pragma once
#include <PvDeviceInfo.h>

#include "gvcp_discovery.hpp"

struct PvDeviceInfo::impl {
    openpv::discovered_camera camera;
};
