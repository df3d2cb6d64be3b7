// SPDX-License-Identifier: MIT
#include <PvDeviceGEV.h>

#include <string>

#include "sdk/PvDevice_impl.hpp"

PvResult PvDeviceGEV::SetPacketSize(uint32_t size, uint32_t channel) {
    return impl_->set_packet_size(size, channel);
}

PvResult PvDeviceGEV::NegotiatePacketSize(uint32_t channel, uint32_t defaultSize) {
    auto const default_size = static_cast<uint32_t>(impl_->settings->default_packet_size);
    bool usable = false;
    return impl_->negotiate_packet_size(channel, defaultSize != 0 ? defaultSize : default_size, usable);
}

PvResult PvDeviceGEV::SetStreamDestination(PvString const& address, uint16_t port, uint32_t channel) {
    std::string const what = "The stream destination cannot be set";
    auto const destination = openpv::parse_ipv4(address.GetAscii());
    if (!destination) {
        return {PvResult::Code::INVALID_PARAMETER,
                (what + ": \"" + address.GetAscii() + "\" is not a valid IPv4 address.").c_str()};
    }
    return impl_->with_channel(what, channel, [&](auto& stream_channel) {
        return stream_channel.set_destination({*destination, port});
    });
}
