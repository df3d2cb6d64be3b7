// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Addresses of a camera's GenICam XML, as its bootstrap registers name them.

#include <cstdint>
#include <optional>
#include <string>

namespace openpv {

/// Position of a GenICam XML in the camera's memory.
struct xml_url {
    /// Far above the GenICam XML of any camera, which has 0.1 to 3 MB.
    static constexpr std::uint64_t max_bytes = 16 << 20;

    std::uint32_t address = 0;
    std::uint32_t bytes = 0;  ///< 1 to `max_bytes`
    bool is_zip = false;      ///< by the extension of the file name

    bool operator==(xml_url const&) const = default;
};

/// Parses `Local:NAME.EXT;ADDRESS;LENGTH`, optionally with `///` after the colon and `?SchemaVersion=...` at the end.
/// Case does not matter; the numbers are hexadecimal.
///
/// Other URLs of the GigE Vision standard (`File:`, `http:`) are refused: they name files and servers of the host's
/// side, so a camera would choose what this process opens.
///
/// \param text contents of the register up to the first 0 byte
/// \param error receives the reason, a sentence without full stop, if the URL is refused
/// \return null if the URL is refused
std::optional<xml_url> parse_xml_url(std::string const& text, std::string& error);

}  // namespace openpv
