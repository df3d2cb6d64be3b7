// SPDX-License-Identifier: MIT
#include "cli/configuration_place.hpp"

#include <fmt/format.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "base/failures.hpp"

namespace mediagrabber {

namespace {

namespace fs = std::filesystem;

constexpr char system_directory[] = "/etc/mediagrabber";

/// \return empty if the variable is not set
fs::path path_in_environment(char const* variable) {
    char const* const value = std::getenv(variable);
    return value == nullptr ? fs::path() : fs::path(value);
}

/// The XDG base directory specification requires absolute paths and ignores others.
std::vector<fs::path> directories() {
    std::vector<fs::path> all;
    auto const chosen = path_in_environment("XDG_CONFIG_HOME");
    auto const home = path_in_environment("HOME");
    if (chosen.is_absolute()) {
        all.push_back(chosen / "mediagrabber");
    } else if (home.is_absolute()) {
        all.push_back(home / ".config/mediagrabber");
    }
    all.emplace_back(system_directory);
    return all;
}

std::string file_name(fs::path const& name) {
    return name.extension() == ".toml" ? name.string() : name.string() + ".toml";
}

}  // namespace

fs::path find_configuration(fs::path const& given) {
    fs::path const wanted = given.empty() ? path_in_environment(configuration_variable) : given;
    std::error_code unknown;
    if (wanted.empty() || wanted.has_parent_path() || fs::exists(wanted, unknown)) {
        return wanted;
    }
    std::string places = fs::absolute(wanted).string();
    for (auto const& directory : directories()) {
        auto file = directory / file_name(wanted);
        if (fs::exists(file, unknown)) {
            return file;
        }
        places += ", " + file.string();
    }
    throw usage_error(fmt::format("{}{}: no such configuration; looked for {}",
                                  given.empty() ? fmt::format("${}: ", configuration_variable) : "", wanted.string(),
                                  places));
}

fs::path require_configuration(fs::path const& given, char const* option) {
    auto found = find_configuration(given);
    if (found.empty()) {
        throw usage_error(
            fmt::format("{} is required: a file, or the name of one in ~/.config/mediagrabber or {}; ${}"
                        " replaces it",
                        option, system_directory, configuration_variable));
    }
    return found;
}

}  // namespace mediagrabber
