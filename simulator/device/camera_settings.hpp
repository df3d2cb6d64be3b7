// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/ipv4.hpp"
#include "device/frame_trigger.hpp"
#include "device/level_control.hpp"
#include "device/output_lines.hpp"
#include "image/pfnc.hpp"
#include "image/pixel_packing.hpp"
#include "image/tone.hpp"
#include "protocol/chunk_data.hpp"

namespace camsim {

enum class acquisition_mode : std::uint8_t { continuous = 0, single_frame = 1, multi_frame = 2 };

enum class gain_kind : std::uint8_t { analog_all = 0, digital_all = 1 };

/// Settings of image format, acquisition and gain.
struct image_settings {
    region area;
    pixel_format format = pixel_format::mono8;
    double frame_rate = 20.0;  ///< Hz
    double exposure_us = 1000.0;
    std::array<double, 2> gains{1.0, 1.0};  ///< linear factors, by gain_kind
    gain_kind selected_gain = gain_kind::analog_all;
    acquisition_mode mode = acquisition_mode::continuous;
    std::uint32_t frame_count = 1;  ///< AcquisitionFrameCount

    double total_gain() const { return gains[0] * gains[1]; }
};

enum class lut_mode : std::uint8_t { off = 0, table = 1, gamma = 2 };

/// Settings of tone mapping.
struct lut_settings {
    lut_mode mode = lut_mode::off;
    lut_channel selected = lut_channel::red;
    std::size_t index = 0;  ///< LUTIndex
    std::array<lut_table, lut_channels> tables{identity_lut(), identity_lut(), identity_lut()};
    std::size_t gamma = gammas.size() - 1;  ///< index into `gammas`
};

/// Settings of chunk data.
struct chunk_settings {
    bool active = false;  ///< ChunkModeActive
    chunk_set enabled;
    chunk selected = chunk::gain_all;

    /// The chunks that new blocks carry.
    chunk_set sent() const { return active ? enabled : chunk_set{}; }
};

/// The settings that a user set holds (SFNC: UserSetControl).
struct user_set {
    image_settings image;
    trigger_settings trigger;
    level_settings level;
    lut_settings lut;
    std::array<line_settings, line_names.size()> lines{};
    chunk_settings chunks;
};

/// Entries of UserSetSelector. The first one has the camera's initial settings and cannot be saved.
inline constexpr std::array<std::string_view, 3> user_set_names{"Default", "UserSet1", "UserSet2"};

/// Ways to get an address: bits of the IP configuration registers. Link-local addressing is always enabled (GigE
/// Vision).
namespace ip_method {
inline constexpr std::uint32_t persistent = 0x1;
inline constexpr std::uint32_t dhcp = 0x2;
inline constexpr std::uint32_t link_local = 0x4;
}  // namespace ip_method

/// What the camera remembers without power.
struct nonvolatile_memory {
    std::array<std::optional<user_set>, user_set_names.size() - 1> user_sets;
    std::size_t default_user_set = 0;  ///< UserSetDefault: loaded at power-up; index into user_set_names
    std::string user_name;
    std::uint32_t ip_methods = ip_method::dhcp | ip_method::link_local;  ///< those that are enabled
    ipv4_address persistent_address = 0;
    ipv4_address persistent_subnet_mask = 0;
    ipv4_address persistent_gateway = 0;
};

}  // namespace camsim
