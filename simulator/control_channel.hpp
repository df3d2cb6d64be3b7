#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "gvcp_packet.hpp"
#include "ipv4.hpp"

namespace camsim {

/// Who may control the camera: control channel privilege and heartbeat of GigE Vision. Time comes in as an argument.
class control_channel {
public:
    using time_point = std::chrono::steady_clock::time_point;

    // Bits of the control channel privilege register.
    static constexpr std::uint32_t exclusive_access = 0x1;
    static constexpr std::uint32_t control_access = 0x2;

    bool may_read(endpoint const& application) const;
    bool may_write(endpoint const& application) const;
    bool is_primary(endpoint const& application) const;
    gvcp::status write_privilege(endpoint const& application, std::uint32_t value, time_point now);
    void heard(endpoint const& application, time_point now);
    std::optional<time_point> expiry(std::chrono::milliseconds heartbeat_timeout) const;
    void release();

    std::uint32_t privilege() const { return privilege_; }
    std::optional<endpoint> const& primary() const { return primary_; }

private:
    std::uint32_t privilege_ = 0;
    std::optional<endpoint> primary_;
    time_point last_heard_;
};

}  // namespace camsim
