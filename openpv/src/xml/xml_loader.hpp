// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Reads a camera's GenICam XML.

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "gvcp/gvcp_channel.hpp"

namespace openpv {

/// Limits of the time to read a GenICam XML.
struct xml_loading {
    /// A camera of 3 MB with a round trip of 1 ms takes 6 s.
    static constexpr std::chrono::seconds limit{10};
    static constexpr std::chrono::seconds report_interval{2};
};

/// Reads the GenICam XML at the camera's first URL, or else at the second, unpacks it, and makes it printable.
///
/// The camera is not trusted: `parse_xml_url` and `unpack_xml` bound addresses and sizes. Both URLs together take
/// `xml_loading::limit` at most. Blocks for that time.
///
/// \param report called with progress every `xml_loading::report_interval`, and for a first URL that fails
/// \param error receives the reasons for both URLs, a sentence without full stop, on failure
/// \return null on failure
std::optional<std::string> load_xml(gvcp_channel& camera, std::function<void(std::string const&)> const& report,
                                    std::string& error);

}  // namespace openpv
