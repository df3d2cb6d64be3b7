// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "control/access_faults.hpp"
#include "device/camera_state.hpp"
#include "genicam/register_map.hpp"
#include "protocol/gvcp_packet.hpp"

namespace camsim {

/// How a command arrived. Of broadcast commands, only those that the standard broadcasts are processed.
enum class delivery : std::uint8_t { unicast, broadcast };

/// An acknowledge to send to the sender of a command.
struct gvcp_ack {
    std::vector<std::byte> datagram;
    std::chrono::milliseconds delay{0};  ///< from now
};

/// A valid PACKETRESEND_CMD and the destination of its packets.
struct resend_job {
    gvcp::packet_resend request;
    gvsp::id_mode ids;
    bool extended_status;
    endpoint destination;
};

/// The result of a command.
struct gvcp_outcome {
    std::vector<gvcp_ack> acks;
    std::optional<resend_job> resend;
};

/// The device side of GVCP: takes a command as a datagram, executes it on the registers and returns the ACKs.
///
/// It has no sockets and does not wait, so tests drive it with bytes and times of their own. Every field of a datagram
/// is checked before it is used. Callers hold the state's mutex. The referenced objects must outlive it.
class gvcp_device {
public:
    using time_point = control_channel::time_point;

    /// Moves the camera's sockets to another address of this host. Called with the state's mutex held.
    /// \return whether they have moved
    using move_function = std::function<bool(ipv4_address)>;

    /// \param move executes FORCEIP
    /// \param faults faults of register accesses; may be null
    gvcp_device(camera_state& state, register_map const& registers, move_function move,
                access_faults const* faults = nullptr);

    /// Executes a command.
    /// \param datagram any bytes; bytes that are not a GVCP command are ignored
    /// \param now time of arrival, restarts the heartbeat timeout if the sender has control
    gvcp_outcome handle(std::span<std::byte const> datagram, endpoint const& sender, time_point now,
                        delivery how = delivery::unicast);

    /// \return when control is lost unless a command arrives; empty if no application has control or the heartbeat is
    /// disabled
    std::optional<time_point> control_expiry() const;

    /// Ends the control of an application whose heartbeat timeout has passed.
    void check_heartbeat(time_point now);

    /// \return when the next scheduled action is due; empty if none is scheduled
    std::optional<time_point> next_action() const;

    /// Executes the scheduled actions that are due.
    void run_actions(time_point now);

    /// More actions than this are refused (BUSY).
    static constexpr std::size_t max_scheduled_actions = 64;

private:
    struct request {
        gvcp::command_header header;
        std::span<std::byte const> payload;
        endpoint sender;
        time_point now;
    };
    struct reply {
        gvcp::status status;
        std::vector<std::byte> payload;
        bool is_write = false;
        bool silent = false;  ///< send no ACK
    };

    reply execute(request const& one);
    reply discover();
    reply force_ip(request const& one);
    reply run_action(request const& one);
    reply read_registers(request const& one) const;
    reply write_registers(request const& one);
    reply read_memory(request const& one) const;
    reply write_memory(request const& one);
    gvcp::status read(std::uint32_t address, std::span<std::byte> out) const;
    gvcp::status write(request const& one, std::uint32_t address, std::span<std::byte const> data);
    gvcp::status write_privilege(request const& one, std::span<std::byte const> data);
    std::optional<resend_job> resend(request const& one) const;
    std::vector<gvcp_ack> make_acks(request const& one, reply const& result) const;

    camera_state& state_;
    register_map const& registers_;
    move_function const move_;
    access_faults const* faults_;
    std::multiset<time_point> actions_;  ///< scheduled
};

}  // namespace camsim
