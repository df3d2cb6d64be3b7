// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Control channel of a camera.

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "gvcp/gvcp_message.hpp"
#include "gvcp/gvcp_wire.hpp"
#include "gvcp/register_port.hpp"

namespace openpv {

/// Accesses a camera's registers and memory over GVCP.
///
/// Any number of threads may have a request under way. Request IDs begin at random. One of the waiting threads
/// receives, and hands the acknowledges of other requests to their threads; no lock is held during a round trip. An
/// acknowledge is dropped unless its ID, its code and its length match a request under way, and datagrams that waited
/// in the socket are dropped before a request is sent.
///
/// A request is sent again with the same ID if its acknowledge does not arrive in time. PENDING_ACK extends the wait.
/// Both end with the limit of the access.
///
/// The session owns it. No access may be under way when it is destroyed; `close` ends them.
class gvcp_channel final : public register_port {
public:
    using clock = gvcp_wire::clock;

    /// How long an access waits.
    struct patience {
        std::chrono::milliseconds ack_timeout;  ///< for each attempt, unless the camera sends PENDING_ACK
        int attempts;
        std::chrono::milliseconds limit;  ///< for the access, with all attempts and PENDING_ACKs
    };
    /// A camera that is busy with another command may take hundreds of milliseconds.
    static constexpr patience normal{std::chrono::milliseconds(500), 6, std::chrono::seconds(5)};

    /// \return null if the socket cannot be created or `camera` is unreachable; the reason is in `errno`
    static std::unique_ptr<gvcp_channel> open(ipv4_address host, ipv4_address camera);

    /// \param request the ID before the first one
    gvcp_channel(std::unique_ptr<gvcp_wire> wire, std::uint16_t request)
        : wire_(std::move(wire)), request_(request), last_response_(wire_->now()) {}
    gvcp_channel(gvcp_channel const&) = delete;
    gvcp_channel& operator=(gvcp_channel const&) = delete;

    register_result read(std::uint64_t address, std::span<std::byte> into) override;
    register_result write(std::uint64_t address, std::span<std::byte const> from) override;
    register_result read_register(std::uint64_t address, std::uint32_t& value) override;
    register_result write_register(std::uint64_t address, std::uint32_t value) override;

    register_result read_register(std::uint64_t address, std::uint32_t& value, patience const& allowed);
    /// \param limit ends the access earlier than the normal limit
    register_result read(std::uint64_t address, std::span<std::byte> into, clock::time_point limit);

    /// Whether the camera supports WRITEMEM. Without, `write` writes registers one by one. Set it before the first
    /// write.
    void set_write_memory(bool supported) { write_memory_ = supported; }

    /// Waits until no request is under way.
    /// \return false if one still is after `time`
    bool wait_idle(std::chrono::milliseconds time);
    /// \return when the camera last acknowledged a request, with success, an error or PENDING_ACK
    clock::time_point last_response() const { return last_response_; }

    clock::time_point now() const { return wire_->now(); }

    void close();  ///< ends all accesses under way, and each later one, with `closed`

private:
    /// A request under way. Lives on the stack of its thread; guarded by `mutex_` while it is in `requests_`.
    struct request {
        gvcp::command command;
        std::span<std::byte> into;  ///< receives the payload of a read
        std::uint16_t id = 0;
        bool acknowledged = false;
        bool unreachable = false;      ///< since the last attempt
        std::uint16_t status = 0;      ///< of the acknowledge
        int pending_acks = 0;          ///< received
        clock::time_point deadline{};  ///< of this attempt
        clock::time_point limit{};     ///< of the access
    };

    register_result execute(request& current, patience const& allowed, clock::time_point limit);
    register_result read_aligned(std::uint32_t address, std::span<std::byte> into, clock::time_point limit);
    register_result write_aligned(std::uint32_t address, std::span<std::byte const> from, clock::time_point limit);
    void run_attempts(std::unique_lock<std::mutex>& lock, request& current, patience const& allowed);
    void wait_for_ack(std::unique_lock<std::mutex>& lock, request& current);
    void drop_waiting_datagrams();
    void handle(gvcp_wire::reception const& received);
    void handle_ack(gvcp::acknowledge const& ack);
    static bool copy_content(gvcp::acknowledge const& ack, request& current);
    void handle_unreachable();
    register_result result_of(request const& current, patience const& allowed) const;

    std::unique_ptr<gvcp_wire> const wire_;
    std::atomic<bool> write_memory_ = true;

    std::mutex mutex_;              ///< guards the members below; never held while a thread waits for the camera
    std::condition_variable wake_;  ///< a request was acknowledged, or the receiving thread stops receiving
    std::condition_variable idle_;  ///< no request is under way
    std::vector<request*> requests_;
    std::uint16_t request_;   ///< the last ID
    bool receiving_ = false;  ///< a thread receives; only it uses `memory_` then
    bool closed_ = false;
    std::array<std::byte, gvcp::max_message_bytes> memory_{};
    std::atomic<clock::time_point> last_response_;
};

}  // namespace openpv
