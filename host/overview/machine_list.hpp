// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace mediagrabber {

inline constexpr std::size_t max_machines = 64;  ///< each has a thread and a connection

/// The live page of a recording on another machine.
struct watched_page {
    std::string url;                 ///< http or https, with a final slash
    std::string name = {};           ///< for people; empty: the address
    std::string authorization = {};  ///< value of the header of this name; empty: none
};

/// \param text  http://HOST[:PORT] or https://HOST[:PORT], with or without a final slash
/// \throws usage_error with the expected form
watched_page parse_page(std::string_view text);

/// Reads a TOML file with tables [[machine]] with the keys page, name and token_file, the path of which is relative to
/// the file.
/// \throws usage_error with file, line and column
std::vector<watched_page> read_machine_list(std::filesystem::path const& file);

/// \throws usage_error if there are too many pages, or one twice
void check_machines(std::vector<watched_page> const& pages);

}  // namespace mediagrabber
