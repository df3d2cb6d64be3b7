// SPDX-License-Identifier: MIT
/// \file
/// PvDevice and PvDeviceGEV.
#include <PvDeviceGEV.h>

#include "scripted_objects.hpp"

using support::journal;
using support::outside_plugin;

namespace scripted {

device* find_device(PvString const& connection_id) {
    for (auto& interface : sdk().interfaces) {
        for (auto& camera : interface.devices) {
            if (camera.connection_id == connection_id.GetAscii()) {
                return &camera;
            }
        }
    }
    return nullptr;
}

}  // namespace scripted

PvDevice::PvDevice(std::unique_ptr<impl> state) : impl_(std::move(state)) {
    ++scripted::sdk().devices_alive;
}
PvDevice::~PvDevice() {
    --scripted::sdk().devices_alive;
}

PvDevice* PvDevice::CreateAndConnect(PvString const& connection_id, PvResult* result, PvAccessType) {
    journal().add("PvDevice::CreateAndConnect(%s)", connection_id.GetAscii());
    auto* const script = scripted::find_device(connection_id);
    *result = script == nullptr ? PvResult::Code::NOT_FOUND : script->connect;
    if (script == nullptr || (!result->IsOK() && !script->half_connected)) {
        return nullptr;
    }
    auto state = std::make_unique<impl>(*script);
    return script->is_gev ? new PvDeviceGEV(std::move(state)) : new PvDevice(std::move(state));
}

void PvDevice::Free(PvDevice* device) {
    journal().add("PvDevice::Free()");
    delete device;
}

PvResult PvDevice::Connect(PvString const& connection_id, PvAccessType) {
    journal().add("Connect(%s)", connection_id.GetAscii());
    impl_->script.connected = impl_->script.reconnect == scripted::ok;
    if (impl_->script.connected) {
        impl_->begin_connection();
    }
    return impl_->script.reconnect;
}
PvResult PvDevice::Disconnect() {
    journal().add("Disconnect()");
    if (impl_->script.on_disconnect) {
        impl_->script.on_disconnect();
    }
    return impl_->script.disconnect;
}
bool PvDevice::IsConnected() const {
    return impl_->script.connected;
}
PvGenParameterArray* PvDevice::GetParameters() {
    return impl_->script.has_features ? impl_->features.back().get() : nullptr;
}
PvGenParameterArray* PvDevice::GetCommunicationParameters() {
    return impl_->script.has_communication ? &impl_->communication : nullptr;
}
PvResult PvDevice::StreamEnable(uint32_t channel) {
    outside_plugin const scope;
    journal().add("StreamEnable(%u)", channel);
    return impl_->script.enable;
}
PvResult PvDevice::StreamDisable(uint32_t channel) {
    outside_plugin const scope;
    journal().add("StreamDisable(%u)", channel);
    return impl_->script.disable;
}
uint32_t PvDevice::GetPayloadSize() {
    journal().add("GetPayloadSize()");
    return impl_->script.payload_size;
}

PvResult PvDeviceGEV::SetPacketSize(uint32_t size, uint32_t channel) {
    journal().add("SetPacketSize(%u, %u)", size, channel);
    return impl_->script.set_packet_size(size, channel);
}
PvResult PvDeviceGEV::NegotiatePacketSize(uint32_t channel, uint32_t default_size) {
    journal().add("NegotiatePacketSize(%u, %u)", channel, default_size);
    return impl_->script.negotiate;
}
PvResult PvDeviceGEV::SetStreamDestination(PvString const& address, uint16_t port, uint32_t channel) {
    journal().add("SetStreamDestination(%s, %u, %u)", address.GetAscii(), unsigned{port}, channel);
    return impl_->script.destination;
}
