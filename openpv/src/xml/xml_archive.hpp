// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Compressed GenICam XML.

#include <cstddef>
#include <optional>
#include <span>
#include <string>

namespace openpv {

/// Unpacks the GenICam XML from a ZIP archive: the first entry with the extension `.xml`, or else the first entry.
///
/// Archives come from the camera and are not trusted. Refused are archives with more than 16 entries, and entries of
/// more than 16 MiB, with a compression ratio above 200 (XML reaches 10 to 30), with a method other than "stored" and
/// "deflate", encrypted ones, and those with a wrong checksum.
///
/// \param error receives the reason, a sentence without full stop, if the archive is refused
/// \return null if the archive is refused
std::optional<std::string> unpack_xml(std::span<std::byte const> archive, std::string& error);

}  // namespace openpv
