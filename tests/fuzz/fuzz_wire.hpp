// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// A control channel without a network: a function of the fuzzer decides what happens to each command.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "gvcp/gvcp_message.hpp"
#include "gvcp/gvcp_wire.hpp"

using datagram = std::vector<std::byte>;

inline void put16(datagram& to, unsigned value) {
    to.push_back(static_cast<std::byte>(value >> 8));
    to.push_back(static_cast<std::byte>(value));
}
inline void put32(datagram& to, uint32_t value) {
    put16(to, value >> 16);
    put16(to, value & 0xFFFF);
}
inline uint32_t get32(std::span<std::byte const> from, std::size_t at) {
    uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value << 8 | std::to_integer<uint32_t>(from[at + i]);
    }
    return value;
}

inline datagram make_ack(unsigned status, unsigned code, unsigned request, std::span<std::byte const> payload) {
    datagram made;
    put16(made, status);
    put16(made, code);
    put16(made, static_cast<unsigned>(payload.size()));
    put16(made, request);
    made.insert(made.end(), payload.begin(), payload.end());
    return made;
}

/// Its clock advances only while the channel waits.
class fuzz_wire final : public openpv::gvcp_wire {
public:
    struct happening {
        event what = event::datagram;
        datagram bytes;
    };

    std::function<event(std::span<std::byte const> command)> on_command;
    std::deque<happening> happenings;  ///< the next receptions
    datagram last;                     ///< the last datagram that was received

    void advance(std::chrono::milliseconds time) { now_ += time; }

    event send(std::span<std::byte const> command) override { return on_command(command); }
    reception receive(std::span<std::byte> memory, bool wait) override {
        if (happenings.empty()) {
            now_ += wait ? max_wait : std::chrono::milliseconds(0);
            return {};
        }
        auto next = std::move(happenings.front());
        happenings.pop_front();
        if (next.what == event::nothing) {
            now_ += max_wait;
        }
        std::ranges::copy(std::span(next.bytes).first(std::min(next.bytes.size(), memory.size())), memory.begin());
        last = std::move(next.bytes);
        return {next.what, last.size()};
    }
    void interrupt() override {}
    clock::time_point now() const override { return now_; }

private:
    clock::time_point now_{};
};
