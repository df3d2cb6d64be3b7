// SPDX-License-Identifier: MIT
/// \file
/// PvSystem, PvInterface and PvDeviceInfo.
#include <PvSystem.h>

#include "scripted_objects.hpp"

using support::outside_plugin;

struct PvSystem::impl {
    std::vector<std::unique_ptr<PvInterface>> interfaces;
};

PvSystem::PvSystem() : impl_(std::make_unique<impl>()) {
    ++scripted::sdk().systems_alive;
}
PvSystem::~PvSystem() {
    support::journal().add("~PvSystem()");
    --scripted::sdk().systems_alive;
}

PvResult PvSystem::Find() {
    outside_plugin const scope;
    support::journal().add("Find()");
    if (scripted::sdk().on_find) {
        scripted::sdk().on_find();
    }
    impl_->interfaces.clear();
    for (auto& script : scripted::sdk().interfaces) {
        auto state = std::make_unique<PvInterface::impl>();
        state->script = &script;
        for (auto& device : script.devices) {
            state->devices.push_back(
                std::make_unique<PvDeviceInfo>(std::make_unique<PvDeviceInfo::impl>(PvDeviceInfo::impl{&device})));
        }
        impl_->interfaces.push_back(std::make_unique<PvInterface>(std::move(state)));
    }
    return scripted::sdk().find;
}

uint32_t PvSystem::GetInterfaceCount() const {
    return static_cast<uint32_t>(impl_->interfaces.size());
}
PvInterface const* PvSystem::GetInterface(uint32_t index) const {
    return index < impl_->interfaces.size() ? impl_->interfaces[index].get() : nullptr;
}

PvInterface::PvInterface(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvInterface::~PvInterface() = default;
uint32_t PvInterface::GetDeviceCount() const {
    return static_cast<uint32_t>(impl_->devices.size());
}
PvDeviceInfo const* PvInterface::GetDeviceInfo(uint32_t index) const {
    return index < impl_->devices.size() ? impl_->devices[index].get() : nullptr;
}
PvString PvInterface::GetDisplayID() const {
    support::journal().add("PvInterface::GetDisplayID()");
    return impl_->script->display_id.c_str();
}

PvDeviceInfo::PvDeviceInfo(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvDeviceInfo::~PvDeviceInfo() = default;
PvDeviceInfoType PvDeviceInfo::GetType() const {
    return impl_->script->type;
}
PvString PvDeviceInfo::GetVendorName() const {
    return impl_->script->vendor.c_str();
}
PvString PvDeviceInfo::GetModelName() const {
    return impl_->script->model.c_str();
}
PvString PvDeviceInfo::GetVersion() const {
    return impl_->script->version.c_str();
}
PvString PvDeviceInfo::GetSerialNumber() const {
    return impl_->script->serial.c_str();
}
PvString PvDeviceInfo::GetDisplayID() const {
    support::journal().add("PvDeviceInfo::GetDisplayID()");
    return impl_->script->display_id.c_str();
}
PvString PvDeviceInfo::GetConnectionID() const {
    return impl_->script->connection_id.c_str();
}
