#pragma once
/// \file
/// The double's side of the SDK's opaque classes, shared by its source files.

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
    /// A connection has features of its own. Whoever still asks those of the connection before finds none.
    void begin_connection() {
        static std::map<std::string, scripted::feature> none;
        if (in_force != nullptr) {
            in_force->script = &none;
        }
        auto state = std::make_unique<PvGenParameterArray::impl>(PvGenParameterArray::impl{&script.features});
        in_force = state.get();
        features.push_back(std::make_unique<PvGenParameterArray>(std::move(state)));
    }
    scripted::device& script;
    std::vector<std::unique_ptr<PvGenParameterArray>> features{};  ///< of each connection so far
    PvGenParameterArray::impl* in_force = nullptr;                 ///< of the last of them
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

/// The device with this connection ID, null when the script has none.
device* find_device(PvString const& connection_id);

}  // namespace scripted
