// SPDX-License-Identifier: MIT
#include "gvcp/gvcp_channel.hpp"

#include <algorithm>
#include <limits>
#include <random>
#include <utility>

namespace openpv {
namespace {

using std::chrono::milliseconds;

/// Pause before a request is sent again to an address that answered "port unreachable": a camera that restarts its
/// network stack may do so for a moment.
constexpr milliseconds unreachable_pause{100};

constexpr std::uint64_t word = 4;

std::uint64_t round_down(std::uint64_t address) {
    return address / word * word;
}
std::uint64_t round_up(std::uint64_t address) {
    return round_down(address + word - 1);
}

register_result invalid(std::string reason) {
    return {register_outcome::invalid, 0, std::move(reason)};
}

bool is_register_address(std::uint64_t address) {
    return address % word == 0 && address <= std::numeric_limits<std::uint32_t>::max();
}
register_result not_a_register() {
    return invalid("the address of a register must be a multiple of 4 and have 32 bits");
}

/// Whether GVCP can address the memory, after rounding to words.
bool is_addressable(std::uint64_t address, std::size_t bytes) {
    constexpr std::uint64_t end = std::uint64_t{1} << 32;
    return address < end && bytes <= end - address;
}
register_result not_addressable() {
    return invalid("the address has more than 32 bits");
}

}  // namespace

std::unique_ptr<gvcp_channel> gvcp_channel::open(ipv4_address host, ipv4_address camera) {
    auto wire = open_gvcp_wire(host, camera);
    if (wire == nullptr) {
        return nullptr;
    }
    // A first ID that cannot be guessed: a forged acknowledge has to match it.
    auto const before_first = static_cast<std::uint16_t>(std::random_device{}());
    return std::make_unique<gvcp_channel>(std::move(wire), before_first);
}

register_result gvcp_channel::read_register(std::uint64_t address, std::uint32_t& value) {
    return read_register(address, value, normal);
}

register_result gvcp_channel::read_register(std::uint64_t address, std::uint32_t& value, patience const& allowed) {
    if (!is_register_address(address)) {
        return not_a_register();
    }
    std::array<std::byte, word> bytes{};
    request current{gvcp::make_read_register(static_cast<std::uint32_t>(address)), bytes};
    auto result = execute(current, allowed, clock::time_point::max());
    if (result.ok()) {
        value = *gvcp::parse_register(bytes);
    }
    return result;
}

register_result gvcp_channel::write_register(std::uint64_t address, std::uint32_t value) {
    if (!is_register_address(address)) {
        return not_a_register();
    }
    request current{gvcp::make_write_register(static_cast<std::uint32_t>(address), value), {}};
    return execute(current, normal, clock::time_point::max());
}

register_result gvcp_channel::read(std::uint64_t address, std::span<std::byte> into) {
    return read(address, into, wire_->now() + normal.limit);
}

register_result gvcp_channel::read(std::uint64_t address, std::span<std::byte> into, clock::time_point limit) {
    if (!is_addressable(address, into.size())) {
        return not_addressable();
    }
    std::uint64_t const begin = round_down(address);
    std::uint64_t const end = round_up(address + into.size());
    if (begin == address && end == address + into.size()) {
        return read_aligned(static_cast<std::uint32_t>(begin), into, limit);
    }
    std::vector<std::byte> words(end - begin);
    auto result = read_aligned(static_cast<std::uint32_t>(begin), words, limit);
    if (result.ok()) {
        std::ranges::copy(std::span(words).subspan(address - begin, into.size()), into.begin());
    }
    return result;
}

/// Memory that does not consist of words is completed with what the camera has there.
register_result gvcp_channel::write(std::uint64_t address, std::span<std::byte const> from) {
    if (!is_addressable(address, from.size())) {
        return not_addressable();
    }
    auto const limit = wire_->now() + normal.limit;
    std::uint64_t const begin = round_down(address);
    std::uint64_t const end = round_up(address + from.size());
    if (begin == address && end == address + from.size()) {
        return write_aligned(static_cast<std::uint32_t>(begin), from, limit);
    }
    std::vector<std::byte> words(end - begin);
    auto result = read_aligned(static_cast<std::uint32_t>(begin), words, limit);
    if (!result.ok()) {
        return result;
    }
    std::ranges::copy(from, words.begin() + static_cast<std::ptrdiff_t>(address - begin));
    return write_aligned(static_cast<std::uint32_t>(begin), words, limit);
}

register_result gvcp_channel::read_aligned(std::uint32_t address, std::span<std::byte> into, clock::time_point limit) {
    register_result result;
    while (!into.empty() && result.ok()) {
        auto const block = into.first(std::min(into.size(), gvcp::max_memory_bytes));
        request current{gvcp::make_read_memory(address, block.size()), block};
        result = execute(current, normal, limit);
        into = into.subspan(block.size());
        address += static_cast<std::uint32_t>(block.size());
    }
    return result;
}

register_result gvcp_channel::write_aligned(std::uint32_t address, std::span<std::byte const> from,
                                            clock::time_point limit) {
    register_result result;
    std::size_t const max_bytes = write_memory_ ? gvcp::max_memory_bytes : word;
    while (!from.empty() && result.ok()) {
        auto const block = from.first(std::min(from.size(), max_bytes));
        request current{write_memory_ ? gvcp::make_write_memory(address, block)
                                      : gvcp::make_write_register(address, *gvcp::parse_register(block)),
                        {}};
        result = execute(current, normal, limit);
        from = from.subspan(block.size());
        address += static_cast<std::uint32_t>(block.size());
    }
    return result;
}

register_result gvcp_channel::execute(request& current, patience const& allowed, clock::time_point limit) {
    current.limit = std::min(limit, wire_->now() + allowed.limit);
    std::unique_lock lock(mutex_);
    if (!closed_) {
        drop_waiting_datagrams();
        request_ = gvcp::next_request_id(request_);
        current.id = request_;
        current.command.set_request(current.id);
        requests_.push_back(&current);
        run_attempts(lock, current, allowed);
        std::erase(requests_, &current);
        if (requests_.empty()) {
            idle_.notify_all();
        }
    }
    return result_of(current, allowed);
}

/// While a thread receives, the socket does not hold datagrams for long.
void gvcp_channel::drop_waiting_datagrams() {
    // Bounds the time under a flood of datagrams; those that remain have no request that they could match but this one.
    constexpr int max_dropped = 4096;
    for (int i = 0; i < max_dropped && !receiving_; ++i) {
        auto const received = wire_->receive(memory_, false);
        if (received.what == gvcp_wire::event::nothing) {
            return;
        }
        handle(received);
    }
}

void gvcp_channel::run_attempts(std::unique_lock<std::mutex>& lock, request& current, patience const& allowed) {
    // Nothing is sent when the limit has passed, so a series of requests under one limit exceeds it by one round trip.
    for (int attempt = 0; attempt < allowed.attempts && wire_->now() < current.limit; ++attempt) {
        bool const is_last = attempt + 1 == allowed.attempts;
        current.unreachable = false;
        current.deadline = std::min(current.limit, wire_->now() + allowed.ack_timeout);
        lock.unlock();
        auto sent = wire_->send(current.command.bytes());
        if (sent == gvcp_wire::event::unreachable) {
            sent = wire_->send(current.command.bytes());  // the error is that of an earlier datagram
        }
        lock.lock();
        if (sent == gvcp_wire::event::unreachable) {
            handle_unreachable();
        }
        while (!current.acknowledged && !closed_ && !(current.unreachable && is_last) &&
               wire_->now() < current.deadline) {
            wait_for_ack(lock, current);
        }
        if (current.acknowledged || closed_) {
            return;
        }
    }
}

void gvcp_channel::wait_for_ack(std::unique_lock<std::mutex>& lock, request& current) {
    if (receiving_) {
        wake_.wait_for(lock, gvcp_wire::max_wait);
        return;
    }
    receiving_ = true;
    lock.unlock();
    auto const received = wire_->receive(memory_, true);
    lock.lock();
    receiving_ = false;
    handle(received);
    if (current.acknowledged && requests_.size() > 1) {
        wake_.notify_all();  // another thread has to receive now
    }
}

void gvcp_channel::handle(gvcp_wire::reception const& received) {
    if (received.what == gvcp_wire::event::unreachable) {
        handle_unreachable();
    } else if (received.what == gvcp_wire::event::datagram && received.bytes <= memory_.size()) {
        if (auto const ack = gvcp::parse_acknowledge(std::span(memory_).first(received.bytes))) {
            handle_ack(*ack);
        }
    }
}

void gvcp_channel::handle_ack(gvcp::acknowledge const& ack) {
    auto const found = std::ranges::find(requests_, ack.request, &request::id);
    if (found == requests_.end() || (*found)->acknowledged) {
        return;
    }
    request& current = **found;
    if (ack.code == gvcp::pending_ack) {
        auto const time = gvcp::parse_pending_time(ack.payload);
        if (!time || ack.status != 0) {
            return;
        }
        ++current.pending_acks;
        last_response_ = wire_->now();
        // The time that the camera announces, and that of an acknowledge on its way.
        auto const extended = wire_->now() + milliseconds(*time) + normal.ack_timeout;
        current.deadline = std::min(current.limit, std::max(current.deadline, extended));
        return;
    }
    if (ack.code != current.command.ack_code()) {
        return;
    }
    if (ack.status == 0 && !copy_content(ack, current)) {
        return;
    }
    current.status = ack.status;
    current.acknowledged = true;
    last_response_ = wire_->now();
    if (requests_.size() > 1) {
        wake_.notify_all();
    }
}

/// \return false if the payload does not fit the command
bool gvcp_channel::copy_content(gvcp::acknowledge const& ack, request& current) {
    if (current.into.empty()) {
        return true;
    }
    bool const is_memory = ack.code == static_cast<std::uint16_t>(gvcp::command_code::read_memory) + 1;
    auto const content =
        is_memory ? gvcp::parse_memory(ack.payload, current.command.address(), current.into.size()) : ack.payload;
    if (!content || content->size() != current.into.size()) {
        return false;
    }
    std::ranges::copy(*content, current.into.begin());
    return true;
}

/// Counts for every request under way: no GVCP server receives them.
void gvcp_channel::handle_unreachable() {
    auto const again = wire_->now() + unreachable_pause;
    for (request* const each : requests_) {
        if (!each->acknowledged) {
            each->unreachable = true;
            each->deadline = std::min(each->deadline, again);
        }
    }
    wake_.notify_all();
}

register_result gvcp_channel::result_of(request const& current, patience const& allowed) const {
    if (current.acknowledged) {
        return current.status == 0 ? register_result()
                                   : register_result{register_outcome::refused, current.status,
                                                     "the camera refused: " + gvcp::status_text(current.status)};
    }
    if (closed_) {
        return {register_outcome::closed, 0, "the connection to the camera is closed"};
    }
    if (current.unreachable) {
        return {register_outcome::unreachable, 0, "no GVCP server responds at the camera's address"};
    }
    if (current.pending_acks > 0) {
        return {register_outcome::timeout, 0,
                "the camera announced its acknowledge " + std::to_string(current.pending_acks) +
                    " times (PENDING_ACK) and did not send it within " + std::to_string(allowed.limit.count()) + " ms"};
    }
    return {register_outcome::timeout, 0, "the camera did not respond in time"};
}

bool gvcp_channel::wait_idle(milliseconds time) {
    std::unique_lock lock(mutex_);
    return idle_.wait_for(lock, time, [this] { return requests_.empty() || closed_; });
}

void gvcp_channel::close() {
    std::lock_guard const lock(mutex_);
    closed_ = true;
    wire_->interrupt();
    wake_.notify_all();
    idle_.notify_all();
}

}  // namespace openpv
