// SPDX-License-Identifier: MIT
#include <PvInterface.h>

#include <string>
#include <utility>

#include "sdk/PvInterface_impl.hpp"

PvInterface::PvInterface(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvInterface::~PvInterface() = default;

uint32_t PvInterface::GetDeviceCount() const {
    return static_cast<uint32_t>(impl_->devices.size());
}

PvDeviceInfo const* PvInterface::GetDeviceInfo(uint32_t index) const {
    return index < impl_->devices.size() ? impl_->devices[index].get() : nullptr;
}

PvString PvInterface::GetDisplayID() const {
    std::string text = impl_->interface.name + " [";
    char const* separator = "";
    for (openpv::ipv4_address const address : impl_->interface.addresses) {
        text += separator + to_text(address);
        separator = ", ";
    }
    return PvString((text + "]").c_str());
}
