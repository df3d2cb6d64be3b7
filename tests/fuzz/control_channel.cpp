// SPDX-License-Identifier: MIT
/// \file
/// A camera's acknowledges as a flow, received by openpv's control channel: order, duplicates, PENDING_ACK, errors.
///
/// Input: accesses, each with a byte that selects it, an address, and a number of responses to each of its commands. A
/// response has a byte of flags, and, unless it is one that a correct camera sends, a length and that many bytes.

#include <memory>

#include "device/connection_state.hpp"
#include "fuzz_input.hpp"
#include "fuzz_wire.hpp"
#include "gvcp/gvcp_channel.hpp"

namespace {

using namespace openpv;

// Flags of a response.
constexpr uint8_t correct_bit = 1;        ///< acknowledges the command
constexpr uint8_t pending_bit = 2;        ///< PENDING_ACK for the command
constexpr uint8_t unreachable_bit = 4;    ///< "port unreachable"
constexpr uint8_t silent_bit = 8;         ///< nothing, for a while
constexpr uint8_t fitting_bit = 16;       ///< the datagram gets the command's request ID
constexpr uint8_t fitting_code_bit = 32;  ///< and the code of its acknowledge
constexpr uint8_t unsendable_bit = 64;
constexpr uint8_t error_bit = 128;  ///< a correct acknowledge has an error status

/// The camera that the input describes. Each byte of its memory has the value of its address.
class flow {
public:
    flow(fuzz_input& input, fuzz_wire& wire) : input_(input), wire_(wire) {
        wire.on_command = [this](std::span<std::byte const> command) { return respond(command); };
    }
    void set_responses(int count) { responses_ = count; }

private:
    gvcp_wire::event respond(std::span<std::byte const> command) {
        require(command.size() >= 12 && command.size() <= gvcp::max_message_bytes, "a command has a valid length");
        auto result = gvcp_wire::event::datagram;
        for (int i = 0; i < responses_ && !input_.empty(); ++i) {
            uint8_t const flags = input_.byte();
            if ((flags & unsendable_bit) != 0) {
                result = (flags & unreachable_bit) != 0 ? gvcp_wire::event::unreachable : gvcp_wire::event::nothing;
            } else if ((flags & unreachable_bit) != 0) {
                wire_.happenings.push_back({gvcp_wire::event::unreachable, {}});
            } else if ((flags & silent_bit) != 0) {
                wire_.happenings.push_back({gvcp_wire::event::nothing, {}});
            } else {
                wire_.happenings.push_back({gvcp_wire::event::datagram, make(flags, command)});
            }
        }
        return result;
    }

    datagram make(uint8_t flags, std::span<std::byte const> command) {
        unsigned const code = get32(command, 0) & 0xFFFF;
        unsigned const request = get32(command, 4) & 0xFFFF;
        if ((flags & correct_bit) != 0) {
            return (flags & error_bit) != 0 ? make_ack(0x8000U | input_.byte(), code + 1, request, {})
                                            : make_ack(0, code + 1, request, content(code, command));
        }
        if ((flags & pending_bit) != 0) {
            datagram time;
            put32(time, input_.byte() * 16U);
            return make_ack(0, gvcp::pending_ack, request, time);
        }
        auto const bytes = std::as_bytes(input_.bytes(input_.byte() * std::size_t{3}));
        datagram made(bytes.begin(), bytes.end());
        if ((flags & fitting_bit) != 0 && made.size() >= gvcp::header_bytes) {
            made[6] = static_cast<std::byte>(request >> 8);
            made[7] = static_cast<std::byte>(request);
        }
        if ((flags & fitting_code_bit) != 0 && made.size() >= gvcp::header_bytes) {
            made[2] = static_cast<std::byte>((code + 1) >> 8);
            made[3] = static_cast<std::byte>(code + 1);
        }
        return made;
    }

    static datagram content(unsigned code, std::span<std::byte const> command) {
        uint32_t const address = get32(command, 8);
        datagram made;
        switch (static_cast<gvcp::command_code>(code)) {
            case gvcp::command_code::read_register:
                append_memory(made, address, 4);
                break;
            case gvcp::command_code::read_memory:
                put32(made, address);
                append_memory(made, address, get32(command, 12));
                break;
            case gvcp::command_code::write_register:
            case gvcp::command_code::write_memory:
                put32(made, 1);
                break;
            default:
                require(false, "a command is one of four");
        }
        return made;
    }

    static void append_memory(datagram& to, uint32_t address, std::size_t count) {
        to.reserve(to.size() + count);
        for (std::size_t i = 0; i < count; ++i) {
            to.push_back(static_cast<std::byte>(address + i));
        }
    }

    fuzz_input& input_;
    fuzz_wire& wire_;
    int responses_ = 0;
};

/// What holds for each access, whatever the camera responds.
void check(register_result const& result, fuzz_wire const& wire, gvcp_wire::clock::time_point start) {
    require(result.ok() == result.description.empty(), "a failure has a description");
    require((result.outcome == register_outcome::refused) == (result.status != 0), "a refusal has a status");
    require(wire.now() - start <= std::chrono::milliseconds(5100), "an access ends after 5 s");
    if (result.ok() || result.outcome == register_outcome::refused) {
        require(wire.last.size() >= gvcp::header_bytes, "an acknowledge was received");
    }
}

void access(fuzz_input& input, gvcp_channel& channel, fuzz_wire& wire) {
    constexpr std::size_t max_bytes = 3 * gvcp::max_memory_bytes;
    uint8_t const kind = input.byte();
    uint64_t const address = (kind & 0x10U) != 0 ? 0xFFFFFFF0U + input.byte() : input.byte();
    std::size_t const count = std::min(input.byte() * std::size_t{7}, max_bytes);
    auto const start = wire.now();
    datagram memory(count);
    uint32_t value = 0;
    channel.set_write_memory((kind & 0x20U) == 0);
    switch (kind & 3U) {
        case 0:
            check(channel.read_register(address, value), wire, start);
            break;
        case 1:
            check(channel.write_register(address, value), wire, start);
            break;
        case 2: {
            auto const result = channel.read(address, memory);
            if (count != 0) {
                check(result, wire, start);
            }
            break;
        }
        default: {
            auto const result = channel.write(address, memory);
            if (count != 0) {
                check(result, wire, start);
            }
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    constexpr int max_accesses = 16;
    fuzz_input input(data, size);
    auto owned = std::make_unique<fuzz_wire>();
    fuzz_wire& wire = *owned;
    flow camera(input, wire);
    gvcp_channel channel(std::move(owned), static_cast<uint16_t>(input.byte() + 0xFF80));
    connection_state state(wire.now());
    for (int i = 0; i < max_accesses && !input.empty(); ++i) {
        camera.set_responses(input.byte() & 7);
        access(input, channel, wire);
        uint32_t privilege = 0;
        auto const heartbeat =
            channel.read_register(gvcp::reg::control_channel_privilege, privilege,
                                  {std::chrono::milliseconds(500), 1, std::chrono::milliseconds(500)});
        state.add_response(channel.last_response());
        state.add(heartbeat.outcome, privilege, wire.now());
    }
    return 0;
}
