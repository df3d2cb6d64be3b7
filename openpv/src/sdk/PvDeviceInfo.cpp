// SPDX-License-Identifier: MIT
#include <PvDeviceInfo.h>

#include <string>
#include <utility>

#include "gvcp/connection_id.hpp"
#include "sdk/PvDeviceInfo_impl.hpp"

PvDeviceInfo::PvDeviceInfo(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvDeviceInfo::~PvDeviceInfo() = default;

PvDeviceInfoType PvDeviceInfo::GetType() const {
    return PvDeviceInfoTypeGEV;
}
PvString PvDeviceInfo::GetVendorName() const {
    return impl_->camera.identity.vendor.c_str();
}
PvString PvDeviceInfo::GetModelName() const {
    return impl_->camera.identity.model.c_str();
}
PvString PvDeviceInfo::GetVersion() const {
    return impl_->camera.identity.version.c_str();
}
PvString PvDeviceInfo::GetSerialNumber() const {
    return impl_->camera.identity.serial.c_str();
}

PvString PvDeviceInfo::GetDisplayID() const {
    auto const& identity = impl_->camera.identity;
    std::string text = identity.model + " [" + to_text(impl_->camera.camera) + "] serial " + identity.serial;
    if (!identity.user_name.empty()) {
        text += " \"" + identity.user_name + "\"";
    }
    return text.c_str();
}

PvString PvDeviceInfo::GetConnectionID() const {
    auto const& camera = impl_->camera;
    return to_text(openpv::connection_id{camera.identity.mac, camera.camera, camera.host}).c_str();
}
