// SPDX-License-Identifier: MIT
#include <PvSystem.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "gvcp/gvcp_discovery.hpp"
#include "sdk/PvDeviceInfo_impl.hpp"
#include "sdk/PvInterface_impl.hpp"

struct PvSystem::impl {
    std::vector<std::unique_ptr<PvInterface>> interfaces;
};

namespace {

std::unique_ptr<PvInterface> make_interface(openpv::discovered_interface&& found) {
    auto state = std::make_unique<PvInterface::impl>();
    state->interface = std::move(found.interface);
    for (openpv::discovered_camera& camera : found.cameras) {
        auto info = std::make_unique<PvDeviceInfo::impl>(PvDeviceInfo::impl{std::move(camera)});
        state->devices.push_back(std::make_unique<PvDeviceInfo>(std::move(info)));
    }
    return std::make_unique<PvInterface>(std::move(state));
}

}  // namespace

PvSystem::PvSystem() : impl_(std::make_unique<impl>()) {}
PvSystem::~PvSystem() = default;

PvResult PvSystem::Find() {
    impl_->interfaces.clear();
    auto found = openpv::discover_cameras();
    if (!found) {
        auto const reason = std::system_category().message(errno);
        return {PvResult::Code::GENERIC_ERROR,
                ("The host's network interfaces cannot be listed: " + reason + ".").c_str()};
    }
    for (openpv::discovered_interface& interface : *found) {
        impl_->interfaces.push_back(make_interface(std::move(interface)));
    }
    return {};
}

uint32_t PvSystem::GetInterfaceCount() const {
    return static_cast<uint32_t>(impl_->interfaces.size());
}

PvInterface const* PvSystem::GetInterface(uint32_t index) const {
    return index < impl_->interfaces.size() ? impl_->interfaces[index].get() : nullptr;
}
