// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace mediagrabber {

/// \param element  name of a GStreamer element
/// \return the Debian package that contains it; empty if not known here
std::string element_package(std::string_view element);

}  // namespace mediagrabber
