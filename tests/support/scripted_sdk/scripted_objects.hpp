// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Implementation of the SDK's opaque classes, shared by the source files of the scripted SDK.

#include <PvBuffer.h>
#include <PvDevice.h>
#include <PvDeviceInfo.h>
#include <PvGenEnumEntry.h>
#include <PvGenParameter.h>
#include <PvGenParameterArray.h>
#include <PvInterface.h>
#include <PvStream.h>

#include <map>
#include <memory>
#include <vector>

#include "scripted_sdk.hpp"

struct PvDeviceInfo::impl {
    scripted::device* script;
};

struct PvInterface::impl {
    scripted::network_interface* script;
    std::vector<std::unique_ptr<PvDeviceInfo>> devices;
};

struct PvGenEnumEntry::impl {
    std::string name;
    int64_t value;
};

struct PvGenParameter::impl {
    std::string name;
    scripted::feature* script;
    std::vector<std::unique_ptr<PvGenEnumEntry>> entries{};
};

struct PvGenParameterArray::impl {
    std::map<std::string, scripted::feature>* script;
    std::map<std::string, std::unique_ptr<PvGenParameter>> parameters{};
};

struct PvDevice::impl {
    explicit impl(scripted::device& camera)
        : script(camera),
          communication(std::make_unique<PvGenParameterArray::impl>(PvGenParameterArray::impl{&camera.communication})) {
        begin_connection();
    }
    /// Starts a new connection. It has its own features; those of the previous connection become empty.
    void begin_connection() {
        static std::map<std::string, scripted::feature> none;
        if (active != nullptr) {
            active->script = &none;
        }
        auto state = std::make_unique<PvGenParameterArray::impl>(PvGenParameterArray::impl{&script.features});
        active = state.get();
        features.push_back(std::make_unique<PvGenParameterArray>(std::move(state)));
    }
    scripted::device& script;
    std::vector<std::unique_ptr<PvGenParameterArray>> features{};  ///< one per connection, also the closed ones
    PvGenParameterArray::impl* active = nullptr;                   ///< of the last connection
    PvGenParameterArray communication;
};

struct PvBuffer::impl {
    PvPayloadType declared{};
    void* memory = nullptr;
    uint32_t size = 0;
    PvImage image;
    bool has_image = true;
    scripted::block content{};
};

namespace scripted {

/// \return the device with this connection ID, null: the script has none
device* find_device(PvString const& connection_id);

}  // namespace scripted
