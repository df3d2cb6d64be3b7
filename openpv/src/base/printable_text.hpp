// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Makes texts from the network safe to print.

#include <string>

namespace openpv {

/// Replaces control characters by `?`: C0, DEL, C1 (U+0080 to U+009F), and the characters that reorder or break lines
/// of text (U+200E, U+200F, U+2028 to U+202E, U+2066 to U+2069). They would control a terminal, or add lines to a log.
/// Bytes that are not UTF-8 are replaced as well.
std::string printable(std::string text);

/// As `printable`, and replaces every byte outside ASCII. For fields that the GigE Vision standard defines, which most
/// applications show without knowing their encoding.
std::string printable_ascii(std::string text);

/// Replaces control characters in an XML document: those that `printable` replaces, except tab, line feed and carriage
/// return, and numeric references to any control character (`&#27;`). Attributes and names of the parsed document are
/// printable then. References are replaced by as many `?`, so that the length stays.
std::string printable_xml(std::string document);

}  // namespace openpv
