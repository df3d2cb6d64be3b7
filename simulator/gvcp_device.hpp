#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <vector>

#include "access_faults.hpp"
#include "camera_state.hpp"
#include "gvcp_packet.hpp"
#include "register_map.hpp"

namespace camsim {

/// How a command came in. By broadcast only the commands are heard that the standard sends so.
enum class delivery : std::uint8_t { unicast, broadcast };

struct gvcp_answer {
    std::vector<std::byte> datagram;
    std::chrono::milliseconds delay{0};  ///< from now
};

/// A PACKETRESEND_CMD that was found to be in order, and where its packets go.
struct resend_job {
    gvcp::packet_resend request;
    gvsp::id_mode ids;
    bool extended_status;
    endpoint destination;
};

struct gvcp_outcome {
    std::vector<gvcp_answer> answers;  ///< to whoever sent the command
    std::optional<resend_job> resend;
};

/// The device's side of GVCP: a datagram comes in, its sender's answers go out. No sockets, no waiting; nothing in a
/// datagram is believed before it is checked. Callers hold the state's mutex.
class gvcp_device {
public:
    using time_point = control_channel::time_point;

    /// \param faults may be null
    gvcp_device(camera_state& state, register_map const& registers, access_faults const* faults = nullptr);

    gvcp_outcome handle(std::span<std::byte const> datagram, endpoint const& sender, time_point now,
                        delivery how = delivery::unicast);
    std::optional<time_point> control_expiry() const;
    void check_heartbeat(time_point now);

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
        bool silent = false;  ///< no answer at all
    };

    reply execute(request const& one);
    reply discover();
    reply force_ip(request const& one) const;
    reply read_registers(request const& one) const;
    reply write_registers(request const& one);
    reply read_memory(request const& one) const;
    reply write_memory(request const& one);
    gvcp::status read(std::uint32_t address, std::span<std::byte> out) const;
    gvcp::status write(request const& one, std::uint32_t address, std::span<std::byte const> data);
    gvcp::status write_privilege(request const& one, std::span<std::byte const> data);
    std::optional<resend_job> resend(request const& one) const;
    std::vector<gvcp_answer> answers(request const& one, reply const& result) const;

    camera_state& state_;
    register_map const& registers_;
    access_faults const* faults_;
};

}  // namespace camsim
