// SPDX-License-Identifier: MIT
#include <PvDevice.h>

#include <algorithm>
#include <limits>
#include <utility>

#include <PvDeviceGEV.h>

#include "device/node_map.hpp"
#include "genicam/node_graph.hpp"
#include "sdk/PvDevice_impl.hpp"
#include "stream/packet_size_probe.hpp"

namespace {

PvResult not_a_connection_id(char const* text) {
    return {PvResult::Code::INVALID_PARAMETER, ("The camera cannot be connected: \"" + std::string(text) +
                                                "\" is not a valid connection ID. Use PvDeviceInfo::GetConnectionID.")
                                                   .c_str()};
}

/// While "TLParamsLocked" is 1, the camera locks features that must not change during an acquisition, for example
/// "Width". The feature is optional.
PvResult lock_transport_parameters(openpv::camera_link& link, bool locked) {
    char const* const what = locked ? "TLParamsLocked cannot be set to 1" : "TLParamsLocked cannot be set to 0";
    return link.access(what, [&](openpv::register_port& /*registers*/, openpv::node_graph& features) -> PvResult {
        openpv::node* const feature = features.find_usable("TLParamsLocked");
        if (feature == nullptr || feature->type() != PvGenTypeInteger) {
            return {};
        }
        openpv::evaluation state;
        return feature->write(state, std::int64_t{locked}) ? PvResult() : openpv::to_failure(what, state);
    });
}

}  // namespace

PvDevice::impl::impl(openpv::connection_id const& id)
    : link(openpv::camera_link::to(id)),
      parameters(openpv::make_camera_parameters(link)),
      communication(openpv::make_communication_parameters(settings)) {}

PvDevice::impl::~impl() {
    disconnect();
}

PvResult PvDevice::impl::connect(PvAccessType access) {
    PvResult const result = link->connect_device(access == PvAccessReadOnly ? openpv::session_mode::read_only
                                                                            : openpv::session_mode::control);
    if (result.IsOK()) {
        connected_ = true;
    }
    return result;
}

PvResult PvDevice::impl::disconnect() {
    if (!connected_.exchange(false)) {
        return openpv::camera_session::not_connected("The device cannot be disconnected");
    }
    link->disconnect_device();
    return {};
}

PvResult PvDevice::impl::set_packet_size(uint32_t bytes, uint32_t channel) {
    PvResult const result = with_channel("The packet size cannot be set", channel, [bytes](auto& stream_channel) {
        return stream_channel.set_packet_size(bytes);
    });
    if (result.IsOK() && channel == 0) {
        packet_size_ = bytes;
        link->packet_size_chosen(true);
    }
    return result;
}

PvResult PvDevice::impl::negotiate_packet_size(uint32_t channel, uint32_t fallback, bool& usable) {
    uint32_t found = 0;
    PvResult const result = with_channel("The packet size cannot be negotiated", channel, [&](auto& stream_channel) {
        return openpv::negotiate_packet_size(stream_channel, link->id().host, link->id().camera, found);
    });
    usable = set_packet_size(result.IsOK() ? found : fallback, channel).IsOK();
    return result;
}

PvResult PvDevice::impl::choose_packet_size() {
    constexpr uint32_t channel = 0;
    if (link->packet_size_chosen()) {
        return {};
    }
    auto const default_size = static_cast<uint32_t>(settings->default_packet_size);
    if (packet_size_ || !settings->auto_negotiation) {
        return set_packet_size(packet_size_.value_or(default_size), channel);
    }
    bool usable = false;
    PvResult const negotiated = negotiate_packet_size(channel, default_size, usable);
    return usable ? PvResult() : negotiated;
}

PvDevice::PvDevice(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvDevice::~PvDevice() = default;

PvDevice* PvDevice::CreateAndConnect(PvString const& connectionId, PvResult* result, PvAccessType access) {
    PvResult outcome = not_a_connection_id(connectionId.GetAscii());
    std::unique_ptr<impl> state;
    if (auto const id = openpv::parse_connection_id(connectionId.GetAscii())) {
        state = std::make_unique<impl>(*id);
        outcome = state->connect(access);
    }
    if (result != nullptr) {
        *result = outcome;
    }
    return outcome.IsOK() ? new PvDeviceGEV(std::move(state)) : nullptr;
}

void PvDevice::Free(PvDevice* device) {
    delete device;
}

PvResult PvDevice::Connect(PvString const& connectionId, PvAccessType access) {
    auto const id = openpv::parse_connection_id(connectionId.GetAscii());
    if (!id) {
        return not_a_connection_id(connectionId.GetAscii());
    }
    if (*id == impl_->link->id()) {
        return impl_->connect(access);
    }
    auto other = std::make_unique<impl>(*id);
    PvResult const result = other->connect(access);
    if (result.IsOK()) {
        impl_ = std::move(other);
    }
    return result;
}

PvResult PvDevice::Disconnect() {
    return impl_->disconnect();
}
bool PvDevice::IsConnected() const {
    return impl_->is_connected();
}

PvGenParameterArray* PvDevice::GetParameters() {
    return impl_->parameters.get();
}
PvGenParameterArray* PvDevice::GetCommunicationParameters() {
    return impl_->communication.get();
}

PvResult PvDevice::StreamEnable(uint32_t channel) {
    PvResult result = impl_->with_channel("Streaming cannot be enabled", channel, [](auto&) { return PvResult(); });
    bool const controlled = impl_->link->controls();
    if (result.IsOK() && channel == 0 && controlled) {
        result = impl_->choose_packet_size();
    }
    if (result.IsOK() && channel == 0) {
        result = impl_->link->notify_streaming_starts();
    }
    return result.IsOK() && controlled ? lock_transport_parameters(*impl_->link, true) : result;
}

PvResult PvDevice::StreamDisable(uint32_t channel) {
    PvResult const exists =
        impl_->with_channel("Streaming cannot be disabled", channel, [](auto&) { return PvResult(); });
    if (!exists.IsOK()) {
        return exists;
    }
    if (channel == 0) {
        impl_->link->notify_streaming_ends();
    }
    return impl_->link->controls() ? lock_transport_parameters(*impl_->link, false) : PvResult();
}

uint32_t PvDevice::GetPayloadSize() {
    int64_t bytes = 0;
    impl_->parameters->GetIntegerValue("PayloadSize", bytes);
    return static_cast<uint32_t>(std::clamp<int64_t>(bytes, 0, std::numeric_limits<uint32_t>::max()));
}
