// SPDX-License-Identifier: MIT
/// \file
/// Configuration files. An accepted file, written as `mediagrabber check` writes it, is read back with the same values.
///
/// Input: the file.

#include "config/configuration_file.hpp"

#include "config/configuration_schema.hpp"
#include "fuzz_input.hpp"

namespace {

using namespace mediagrabber;

/// The active values as a configuration file.
std::string written(configuration const& values) {
    std::string text;
    for (auto const& key : configuration_schema()) {
        std::string const shown = key.show(values);
        text += shown.empty() ? "" : key.path + " = " + shown + "\n";
    }
    for (io_line const& line : values.lines) {
        text += "[[line]]\n";
        for (auto const& key : io_line_schema()) {
            text += key.path.substr(key.path.find('.') + 1) + " = " + key.show(line) + "\n";
        }
    }
    return text;
}

void check_same(configuration const& one, configuration const& other) {
    for (auto const effect : {change_effect::live_update, change_effect::reconfiguration, change_effect::restart,
                              change_effect::next_start}) {
        for (auto const& path : changed_keys(one, other, effect)) {
            std::fprintf(stderr, "changed: %s\n", path.c_str());
        }
        require(changed_keys(one, other, effect).empty(), "written values are read back unchanged");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    std::filesystem::path const file = "/nonexistent/run.toml";
    loaded_configuration loaded;
    try {
        loaded = parse_configuration(input.text(), file);
    } catch (configuration_error const& error) {
        require(!error.faults().empty(), "a refused file has an error");
        return 0;
    }
    remarks(loaded);
    if (!loaded.values.tone.lut_file) {
        check_same(loaded.values, parse_configuration(written(loaded.values), file).values);
    }
    return 0;
}
