// SPDX-License-Identifier: MIT
#include "camera/camera_connection.hpp"

#include <array>
#include <chrono>
#include <cstdio>

#include "base/printable_text.hpp"
#include "gvcp/connection_id.hpp"
#include "report/failure.hpp"
#include "report/interruption.hpp"
#include "xml/xml_loader.hpp"

namespace gevctl {

namespace {

using openpv::gvcp_channel;
using openpv::register_outcome;
using openpv::register_result;
namespace gvcp = openpv::gvcp;

constexpr std::uint16_t access_denied = 0x8006;  // GVCP status

[[noreturn]] void fail(std::string const& what, register_result const& result) {
    bool const refused = result.outcome == register_outcome::refused;
    throw failure(refused ? exit_status::refused : exit_status::lost, what + ": " + result.description);
}

std::string hex(std::uint32_t address) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%04X", static_cast<unsigned>(address));
    return text.data();
}

}  // namespace

camera_connection::camera_connection(found_camera const& camera)
    : camera_(camera), channel_(gvcp_channel::open(camera.host, camera.address)) {
    std::array<std::byte, gvcp::discovery_data_bytes> registers{};
    // As for a search: a camera acknowledges within a second.
    auto const limit = gvcp_channel::clock::now() + std::chrono::milliseconds(1200);
    auto const result = channel_ != nullptr ? channel_->read(0, registers, limit) : register_result();
    if (result.outcome == register_outcome::refused && result.status == access_denied) {
        throw failure(exit_status::controlled, "another program has exclusive access to camera " + name_of(camera) +
                                                   ". Stop that program first");
    }
    if (channel_ == nullptr || !result.ok()) {
        throw failure(exit_status::lost, "camera " + name_of(camera) +
                                             " does not respond. If this machine has no address in its subnet,"
                                             " \"gevctl list\" shows the command that moves the camera there");
    }
    auto const present = gvcp::parse_identity(registers);
    if (present.mac != camera.identity.mac) {
        throw failure(exit_status::no_camera, "camera " + openpv::mac_to_text(present.mac) +
                                                  " has taken over address " + to_text(camera.address) +
                                                  ". Search for cameras again");
    }
}

camera_connection::~camera_connection() {
    if (controlled_) {
        channel_->write_register(gvcp::reg::control_channel_privilege, 0);
    }
}

std::string camera_connection::load_xml() {
    std::string error;
    auto const report = [](std::string const& text) {
        std::fprintf(stderr, "gevctl: %s\n", openpv::printable(text).c_str());
    };
    auto xml = openpv::load_xml(*channel_, report, error);
    if (!xml) {
        throw failure(exit_status::lost,
                      openpv::printable("the GenICam XML of camera " + name_of(camera_) + " cannot be read: " + error));
    }
    return std::move(*xml);
}

void camera_connection::take_control() {
    if (controlled_) {
        return;
    }
    catch_signals();
    auto const result = channel_->write_register(gvcp::reg::control_channel_privilege, gvcp::privilege_control);
    if (result.outcome == register_outcome::refused) {
        std::uint32_t privilege = 0;
        channel_->read_register(gvcp::reg::control_channel_privilege, privilege);
        auto const present = read_controller(*channel_, privilege);
        throw failure(exit_status::controlled,
                      present ? "camera " + name_of(camera_) + " is controlled by " + to_text(*present) +
                                    ". Stop that program first"
                              : "control of camera " + name_of(camera_) + " is refused: " + result.description);
    }
    if (!result.ok()) {
        fail("control of camera " + name_of(camera_) + " cannot be taken", result);
    }
    controlled_ = true;
    std::uint32_t capability = 0;  // an optional register: without it, the camera supports none of the options
    channel_->read_register(gvcp::reg::capability, capability);
    channel_->set_write_memory((capability & gvcp::capability_write_memory) != 0);
    std::uint32_t configuration = 0;
    if ((capability & gvcp::capability_pending_ack) != 0 &&
        channel_->read_register(gvcp::reg::configuration, configuration).ok()) {
        // Lets the camera announce slow commands. Cameras that refuse it just take longer to acknowledge.
        channel_->write_register(gvcp::reg::configuration, configuration | gvcp::configuration_pending_ack);
    }
}

std::uint32_t camera_connection::read_register(std::uint32_t address) {
    std::uint32_t value = 0;
    if (auto const result = channel_->read_register(address, value); !result.ok()) {
        fail("register " + hex(address) + " cannot be read", result);
    }
    return value;
}

void camera_connection::write_register(std::uint32_t address, std::uint32_t value) {
    take_control();
    if (auto const result = channel_->write_register(address, value); !result.ok()) {
        fail("register " + hex(address) + " cannot be set to " + hex(value), result);
    }
}

std::uint64_t camera_connection::read_register_pair(std::uint32_t address) {
    std::uint64_t const high = read_register(address);
    std::uint64_t const low = read_register(address + 4);
    return high << 32 | low;
}

}  // namespace gevctl
