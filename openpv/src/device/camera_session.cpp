// SPDX-License-Identifier: MIT
#include "device/camera_session.hpp"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "base/printable_text.hpp"
#include "gvcp/gvcp_message.hpp"
#include "xml/xml_loader.hpp"

namespace openpv {
namespace {

using std::chrono::milliseconds;

// A camera acknowledges within a few milliseconds. Four attempts bound the check of an absent camera to 1.2 s.
constexpr gvcp_channel::patience brief{milliseconds(300), 4, milliseconds(1200)};

PvResult refuse(connection_id const& id, std::uint32_t code, std::string const& reason) {
    return {code, (to_text(id) + " cannot be connected: " + reason + ".").c_str()};
}

/// Checks which camera responds at the address and whether it is free, so that the common reasons for a failure are
/// reported quickly and precisely.
PvResult check_camera(gvcp_channel& channel, connection_id const& id, session_mode mode) {
    std::uint32_t high = 0;
    std::uint32_t low = 0;
    std::uint32_t privilege = 0;
    auto result = channel.read_register(gvcp::reg::mac_high, high, brief);
    if (result.ok()) {
        result = channel.read_register(gvcp::reg::mac_low, low, brief);
    }
    if (result.ok()) {
        result = channel.read_register(gvcp::reg::control_channel_privilege, privilege, brief);
    }
    if (result.outcome == register_outcome::refused) {
        return refuse(id, PvResult::Code::GENERIC_ERROR, "another application has exclusive access to the camera");
    }
    if (!result.ok()) {
        return refuse(id, PvResult::Code::NOT_FOUND,
                      "no camera responds at " + to_text(id.camera) + ". Check power, cable and address");
    }
    std::uint64_t const mac = static_cast<std::uint64_t>(high & 0xFFFFU) << 32 | low;
    if (mac != id.mac) {
        return refuse(id, PvResult::Code::NOT_FOUND,
                      "camera " + mac_to_text(mac) + " has this address. Search for cameras again");
    }
    bool const controlled = (privilege & (gvcp::privilege_control | gvcp::privilege_exclusive)) != 0;
    if (mode == session_mode::control && controlled) {
        return refuse(id, PvResult::Code::GENERIC_ERROR,
                      "another application controls the camera. Stop that application first");
    }
    return {};
}

/// Without the register, which is optional in old versions of the standard, the camera supports none of the options.
std::uint32_t read_capability(gvcp_channel& channel) {
    std::uint32_t capability = 0;
    channel.read_register(gvcp::reg::capability, capability);
    return capability;
}

/// Lets the camera announce slow commands. Cameras that refuse it just take longer to acknowledge.
void enable_pending_ack(gvcp_channel& channel) {
    std::uint32_t configuration = 0;
    if (channel.read_register(gvcp::reg::configuration, configuration).ok()) {
        channel.write_register(gvcp::reg::configuration, configuration | gvcp::configuration_pending_ack);
    }
}

PvResult take_control(gvcp_channel& channel, connection_id const& id) {
    auto const taken = channel.write_register(gvcp::reg::control_channel_privilege, gvcp::privilege_control);
    if (!taken.ok()) {
        return refuse(id, PvResult::Code::GENERIC_ERROR, "control is refused, " + taken.description);
    }
    std::uint32_t const capability = read_capability(channel);
    channel.set_write_memory((capability & gvcp::capability_write_memory) != 0);
    if ((capability & gvcp::capability_pending_ack) != 0) {
        enable_pending_ack(channel);
    }
    return {};
}

std::unique_ptr<node_graph> load_features(gvcp_channel& channel, connection_id const& id, PvResult& result) {
    auto const report = [&id](std::string const& text) {
        std::fprintf(stderr, "openpv: camera %s: %s\n", to_text(id.camera).c_str(), text.c_str());
    };
    std::string error;
    auto const xml = load_xml(channel, report, error);
    if (!xml) {
        report(printable("the GenICam XML cannot be read: " + error));  // applications may log the code only
        result = refuse(id, PvResult::Code::GENERIC_ERROR, "its GenICam XML cannot be read: " + error);
        return nullptr;
    }
    auto features = node_graph::load(*xml, channel, error);
    if (features == nullptr) {
        result = refuse(id, PvResult::Code::GENERIC_ERROR, "its GenICam XML is invalid: " + error);
    }
    return features;
}

}  // namespace

std::unique_ptr<camera_session> camera_session::open(connection_id const& id, std::function<void()> lost,
                                                     PvResult& result, session_mode mode) {
    auto channel = gvcp_channel::open(id.host, id.camera);
    if (channel == nullptr) {
        result = refuse(id, PvResult::Code::NOT_FOUND,
                        "the host has no address " + to_text(id.host) + ", or no route to the camera");
        return nullptr;
    }
    result = check_camera(*channel, id, mode);
    if (!result.IsOK()) {
        return nullptr;
    }
    auto features = load_features(*channel, id, result);
    if (features == nullptr) {
        return nullptr;
    }
    if (mode == session_mode::control) {
        result = take_control(*channel, id);
        if (!result.IsOK()) {
            return nullptr;
        }
    }
    gvcp_channel& opened = *channel;
    std::unique_ptr<camera_session> session(
        new camera_session(std::move(channel), std::move(features), mode == session_mode::control));
    session->heartbeat_ = std::make_unique<heartbeat_monitor>(
        opened, session->controlled_, [&opened, camera_lost = &session->lost_, notify = std::move(lost)] {
            *camera_lost = true;
            opened.close();
            notify();
        });
    return session;
}

camera_session::~camera_session() {
    heartbeat_.reset();
    if (controlled_ && alive()) {
        registers_->write_register(gvcp::reg::control_channel_privilege, 0);
    }
}

PvResult camera_session::not_connected(std::string const& what) {
    return {PvResult::Code::NOT_CONNECTED, (what + ": the camera is not connected.").c_str()};
}

}  // namespace openpv
