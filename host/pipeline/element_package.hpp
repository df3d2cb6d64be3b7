#pragma once

#include <string>
#include <string_view>

namespace mediagrabber {

/// The Debian package that brings an element of GStreamer, empty when it is not known here.
std::string element_package(std::string_view element);

}  // namespace mediagrabber
