#include "camera_session.hpp"

#include <chrono>
#include <cstdint>
#include <utility>

#include "aravis_result.hpp"
#include "description_check.hpp"
#include "gvcp_client.hpp"
#include "gvcp_message.hpp"
#include "lost_object_release.hpp"

namespace openpv {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds answer_time{300};
constexpr int attempts = 4;

register_read read_patiently(gvcp_client& client, uint32_t address, uint32_t& value) {
    register_read answer = register_read::silent;
    for (int i = 0; i < attempts && answer != register_read::answered && answer != register_read::refused; ++i) {
        answer = client.read(address, answer_time, value);
    }
    return answer;
}

PvResult refuse(connection_id const& id, uint32_t code, std::string const& reason) {
    return {code, (to_text(id) + " cannot be connected: " + reason + ".").c_str()};
}

/// Asks who answers at the camera's address and whether it is free, so that the common reasons for a failure are told
/// at once, and by name.
PvResult check_camera(gvcp_client& client, connection_id const& id) {
    uint32_t high = 0;
    uint32_t low = 0;
    uint32_t privilege = 0;
    register_read answer = read_patiently(client, gvcp::reg::mac_high, high);
    if (answer == register_read::answered) {
        answer = read_patiently(client, gvcp::reg::mac_low, low);
    }
    if (answer == register_read::answered) {
        answer = read_patiently(client, gvcp::reg::control_channel_privilege, privilege);
    }
    if (answer == register_read::refused) {
        return refuse(id, PvResult::Code::GENERIC_ERROR, "another application has exclusive access to the camera");
    }
    if (answer != register_read::answered) {
        return refuse(id, PvResult::Code::NOT_FOUND, "no camera answers");
    }
    uint64_t const mac = static_cast<uint64_t>(high & 0xFFFFU) << 32 | low;
    if (mac != id.mac) {
        return refuse(id, PvResult::Code::NOT_FOUND, "camera " + mac_to_text(mac) + " has this address");
    }
    if ((privilege & (gvcp::privilege_control | gvcp::privilege_exclusive)) != 0) {
        return refuse(id, PvResult::Code::GENERIC_ERROR, "another application controls the camera");
    }
    return {};
}

object_handle<GInetAddress> to_inet_address(ipv4_address address) {
    return object_handle<GInetAddress>(g_inet_address_new_from_string(to_text(address).c_str()));
}

object_handle<ArvDevice> open_device(connection_id const& id, PvResult& result) {
    error_slot error;
    object_handle<ArvDevice> device(
        arv_gv_device_new(to_inet_address(id.host).get(), to_inet_address(id.camera).get(), error.out()));
    if (device == nullptr) {
        result = to_failure(to_text(id) + " cannot be connected", error.get());
        return nullptr;
    }
    // Opening succeeds without control too, when another application has it.
    if (arv_gv_device_take_control(ARV_GV_DEVICE(device.get()), error.out()) == FALSE) {
        result = to_failure(to_text(id) + " cannot be connected, control is refused", error.get());
        return nullptr;
    }
    if (auto const why = find_endless_reference(*arv_device_get_genicam(device.get()))) {
        result = refuse(id, PvResult::Code::GENERIC_ERROR, "its description of itself cannot be used, " + *why);
        return nullptr;
    }
    arv_gv_device_set_packet_size_adjustment(ARV_GV_DEVICE(device.get()), ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
    // What the camera's description calls cachable is asked for once, and again when one of its invalidators was
    // written.
    arv_device_set_register_cache_policy(device.get(), ARV_REGISTER_CACHE_POLICY_ENABLE);
    arv_gv_device_set_stream_options(ARV_GV_DEVICE(device.get()), ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    return device;
}

}  // namespace

std::unique_ptr<camera_session> camera_session::open(connection_id const& id, std::function<void()> lost,
                                                     PvResult& result) {
    auto client = gvcp_client::open(id.host, id.camera);
    if (!client) {
        result = refuse(id, PvResult::Code::NOT_FOUND, "the host has no such address, or no way to the camera");
        return nullptr;
    }
    result = check_camera(*client, id);
    if (!result.IsOK()) {
        return nullptr;
    }
    auto device = open_device(id, result);
    if (device == nullptr) {
        return nullptr;
    }
    std::unique_ptr<camera_session> session(new camera_session(std::move(device)));
    session->watch_ =
        std::make_unique<loss_watch>(std::move(*client), [camera_lost = &session->lost_, tell = std::move(lost)] {
            *camera_lost = true;
            tell();
        });
    return session;
}

camera_session::~camera_session() {
    watch_.reset();
    if (alive()) {
        arv_gv_device_leave_control(ARV_GV_DEVICE(device_.get()), nullptr);
        device_.reset();
    } else {
        release_lost_object(object_handle<GObject>(G_OBJECT(device_.release())));
    }
}

PvResult camera_session::not_connected(std::string const& what) {
    return {PvResult::Code::NOT_CONNECTED, (what + ": the camera is not connected.").c_str()};
}

}  // namespace openpv
