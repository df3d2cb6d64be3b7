// SPDX-License-Identifier: MIT
#pragma once
#include <memory>
#include <vector>

#include <PvInterface.h>

#include "net/network_interface.hpp"

struct PvInterface::impl {
    openpv::network_interface interface;
    std::vector<std::unique_ptr<PvDeviceInfo>> devices;
};
