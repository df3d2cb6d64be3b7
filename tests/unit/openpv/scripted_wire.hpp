// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// A camera in memory for tests of the control channel, with a clock that only waiting advances.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "gvcp/gvcp_message.hpp"
#include "gvcp/gvcp_wire.hpp"

using bytes = std::vector<std::byte>;

/// A command as the camera receives it.
struct received_command {
    std::uint16_t code = 0;
    std::uint16_t request = 0;
    bytes payload;

    std::uint32_t word(std::size_t index) const {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            value = value << 8 | std::to_integer<std::uint32_t>(payload[index * 4 + i]);
        }
        return value;
    }
};

inline void append(bytes& to, std::uint32_t value, std::size_t count) {
    for (std::size_t i = count; i > 0; --i) {
        to.push_back(static_cast<std::byte>(value >> 8 * (i - 1)));
    }
}

inline bytes make_ack(std::uint16_t status, std::uint16_t code, std::uint16_t request, bytes const& payload = {}) {
    bytes made;
    append(made, status, 2);
    append(made, code, 2);
    append(made, static_cast<std::uint32_t>(payload.size()), 2);
    append(made, request, 2);
    made.insert(made.end(), payload.begin(), payload.end());
    return made;
}

inline bytes words(std::initializer_list<std::uint32_t> values) {
    bytes made;
    for (std::uint32_t const value : values) {
        append(made, value, 4);
    }
    return made;
}

/// Calls `on_command` for each datagram that the channel sends. Responses are queued with `respond`.
class scripted_wire final : public openpv::gvcp_wire {
public:
    using milliseconds = std::chrono::milliseconds;

    std::function<void(received_command const&)> on_command = [](received_command const&) {};
    std::vector<received_command> commands;
    event send_result = event::datagram;

    void respond(bytes datagram, milliseconds delay = {}) { queue(event::datagram, std::move(datagram), delay); }
    void respond_unreachable() { queue(event::unreachable, {}, {}); }
    bool is_interrupted() const { return interrupted_; }
    milliseconds elapsed() const { return std::chrono::duration_cast<milliseconds>(now_.time_since_epoch()); }
    void advance(milliseconds time) { now_ += time; }

    event send(std::span<std::byte const> datagram) override {
        if (send_result == event::datagram) {
            commands.push_back(parse(datagram));
            on_command(commands.back());
        }
        return send_result;
    }

    reception receive(std::span<std::byte> memory, bool wait) override {
        if (wait && (queue_.empty() || queue_.begin()->first > now_)) {
            auto const limit = now_ + max_wait;
            now_ = queue_.empty() ? limit : std::min(limit, queue_.begin()->first);
        }
        if (queue_.empty() || queue_.begin()->first > now_) {
            return {};
        }
        auto const node = queue_.extract(queue_.begin());
        auto const& [what, content] = node.mapped();
        std::ranges::copy(std::span(content).first(std::min(content.size(), memory.size())), memory.begin());
        return {what, content.size()};
    }

    void interrupt() override { interrupted_ = true; }
    clock::time_point now() const override { return now_; }

private:
    static received_command parse(std::span<std::byte const> datagram) {
        auto const number = [&](std::size_t at) {
            return static_cast<std::uint16_t>(std::to_integer<unsigned>(datagram[at]) << 8 |
                                              std::to_integer<unsigned>(datagram[at + 1]));
        };
        auto const payload = datagram.subspan(openpv::gvcp::header_bytes);
        return {number(2), number(6), bytes(payload.begin(), payload.end())};
    }

    void queue(event what, bytes content, milliseconds delay) {
        queue_.emplace(now_ + delay, std::pair(what, std::move(content)));
    }

    clock::time_point now_{};
    std::multimap<clock::time_point, std::pair<event, bytes>> queue_;
    bool interrupted_ = false;
};

/// Acknowledges reads and writes of a sparse memory, each after `round_trip`.
struct memory_camera {
    std::map<std::uint32_t, std::byte> memory;
    std::chrono::milliseconds round_trip{};

    void put(std::uint32_t address, std::span<std::byte const> content) {
        for (std::byte const each : content) {
            memory[address++] = each;
        }
    }
    void put(std::uint32_t address, std::string_view content) { put(address, std::as_bytes(std::span(content))); }

    bytes read(std::uint32_t address, std::size_t count) const {
        bytes content;
        for (std::size_t i = 0; i < count; ++i) {
            auto const found = memory.find(address + static_cast<std::uint32_t>(i));
            content.push_back(found != memory.end() ? found->second : std::byte{0});
        }
        return content;
    }

    void serve(scripted_wire& wire, received_command const& command) {
        auto const code = static_cast<openpv::gvcp::command_code>(command.code);
        bytes payload;
        switch (code) {
            case openpv::gvcp::command_code::read_register:
                payload = read(command.word(0), 4);
                break;
            case openpv::gvcp::command_code::read_memory: {
                payload = words({command.word(0)});
                auto const content = read(command.word(0), command.word(1));
                payload.insert(payload.end(), content.begin(), content.end());
                break;
            }
            case openpv::gvcp::command_code::write_register:
            case openpv::gvcp::command_code::write_memory:
                put(command.word(0), std::span(command.payload).subspan(4));
                payload = words({1});
                break;
        }
        wire.respond(make_ack(0, static_cast<std::uint16_t>(command.code + 1), command.request, payload), round_trip);
    }
};
