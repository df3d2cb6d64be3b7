// SPDX-License-Identifier: MIT
/// \file
/// Reading the GenICam XML: both addresses, the transfer, unpacking.
///
/// Input: a length and the text of the first URL; the same of the second; a byte, the camera's delay in
/// ms; a byte, which commands it refuses or ignores; then the content of its memory from address 0x1000 on.

#include <algorithm>
#include <memory>

#include "fuzz_input.hpp"
#include "fuzz_wire.hpp"
#include "gvcp/gvcp_channel.hpp"
#include "xml/xml_loader.hpp"
#include "xml/xml_url.hpp"

namespace {

constexpr uint32_t content_address = 0x1000;

struct described_camera {
    std::string first_url;
    std::string second_url;
    std::chrono::milliseconds delay{};
    uint8_t troubles = 0;
    std::vector<uint8_t> content;

    std::byte at(uint32_t address) const {
        auto const in = [address](auto const& bytes, uint32_t start) {
            return address >= start && address - start < bytes.size() ? static_cast<std::byte>(bytes[address - start])
                                                                      : std::byte{0};
        };
        using namespace openpv::gvcp;
        if (address >= content_address) {
            return in(content, content_address);
        }
        return address >= reg::second_url ? in(second_url, reg::second_url) : in(first_url, reg::first_url);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    described_camera camera;
    auto const text = [&input] {
        auto const bytes = input.bytes(input.byte());
        return std::string(bytes.begin(), bytes.end());
    };
    camera.first_url = text();
    camera.second_url = text();
    // With a shorter delay, a length of 16 MiB would be read by thousands of commands before the time ends.
    camera.delay = std::chrono::milliseconds(std::max<int>(input.byte(), 100));
    camera.troubles = input.byte();
    auto const content = input.all();
    camera.content.assign(content.begin(), content.end());

    auto owned = std::make_unique<fuzz_wire>();
    fuzz_wire& wire = *owned;
    unsigned commands = 0;
    wire.on_command = [&](std::span<std::byte const> command) {
        require((get32(command, 0) & 0xFFFF) == 0x84, "the XML is read with READMEM only");
        unsigned const request = get32(command, 4) & 0xFFFF;
        wire.advance(camera.delay);
        ++commands;
        if ((camera.troubles & 1U) != 0 && commands % 4 == 0) {
            return openpv::gvcp_wire::event::datagram;  // ignored
        }
        if ((camera.troubles & 2U) != 0 && commands % 8 == 7) {
            wire.happenings.push_back({openpv::gvcp_wire::event::datagram, make_ack(0x8003, 0x85, request, {})});
            return openpv::gvcp_wire::event::datagram;
        }
        datagram payload;
        uint32_t const address = get32(command, 8);
        put32(payload, address);
        for (uint32_t i = 0; i < get32(command, 12); ++i) {
            payload.push_back(camera.at(address + i));
        }
        wire.happenings.push_back({openpv::gvcp_wire::event::datagram, make_ack(0, 0x85, request, payload)});
        return openpv::gvcp_wire::event::datagram;
    };
    openpv::gvcp_channel channel(std::move(owned), 0);
    std::size_t reports = 0;
    std::string error;
    auto const xml = openpv::load_xml(
        channel, [&reports](std::string const&) { ++reports; }, error);
    require(xml.has_value() == error.empty(), "a failure has a reason");
    require(!xml || xml->size() <= openpv::xml_url::max_bytes, "the size is bounded");
    require(channel.now().time_since_epoch() <= openpv::xml_loading::limit + std::chrono::milliseconds(300),
            "loading ends in time");
    require(reports <= 7, "progress is reported every 2 s");
    return 0;
}
