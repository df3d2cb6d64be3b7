// SPDX-License-Identifier: MIT
/// \file
/// Acknowledges of a discovery as a flow, from any number of senders.
///
/// Input: a byte, whether the list of cameras is almost full; then steps, each with a byte for the sender, a byte of
/// flags, a length, and that many bytes. With the first flag the bytes are put into a valid acknowledge, from an offset
/// that is the next byte.

#include <algorithm>
#include <cstdint>
#include <map>

#include "fuzz_input.hpp"
#include "fuzz_wire.hpp"
#include "gvcp/gvcp_discovery.hpp"

namespace {

using namespace openpv;

void check_printable(std::string const& text, std::size_t max_length) {
    require(text.size() <= max_length, "a text is not longer than its field");
    for (char const each : text) {
        require(each >= 0x20 && each < 0x7F, "a received text is printable");
    }
}

void check(discovered_interface const& found) {
    require(found.cameras.size() <= max_cameras, "the number of cameras is bounded");
    std::map<std::uint32_t, std::ptrdiff_t> of_sender;
    for (discovered_camera const& each : found.cameras) {
        require(++of_sender[each.camera.value] <= max_cameras_of_sender,
                "the number of cameras of a sender is bounded");
        require(each.identity.mac >> 48U == 0, "a MAC address has 48 bits");
        check_printable(each.identity.vendor, 32);
        check_printable(each.identity.model, 32);
        check_printable(each.identity.version, 32);
        check_printable(each.identity.serial, 16);
        check_printable(each.identity.user_name, 16);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    constexpr uint16_t request = 7;
    fuzz_input input(data, size);
    discovered_interface found;
    // After a flood, the list is almost full.
    if (input.byte() >= 0xF0) {
        found.cameras.resize(max_cameras - 2);
        std::uint32_t other = 0xFF000000;
        for (discovered_camera& each : found.cameras) {
            each.camera.value = ++other;
        }
    }
    while (!input.empty()) {
        ipv4_address const sender{input.byte()};
        uint8_t const flags = input.byte();
        std::size_t const length = input.byte();
        std::size_t const offset = (flags & 1U) != 0 ? input.byte() : 0;
        auto const bytes = std::as_bytes(input.bytes(length));
        datagram message(bytes.begin(), bytes.end());
        if ((flags & 1U) != 0) {
            message = make_ack(0, 3, request, datagram(gvcp::discovery_data_bytes));
            auto const at = std::min(offset + gvcp::header_bytes, message.size());
            std::copy_n(bytes.begin(), std::min(bytes.size(), message.size() - at),
                        message.begin() + static_cast<std::ptrdiff_t>(at));
        }
        std::size_t const before = found.cameras.size();
        add_acknowledge(found, message, sender, {}, request);
        require(found.cameras.size() - before <= 1, "an acknowledge adds at most one camera");
    }
    check(found);
    return 0;
}
