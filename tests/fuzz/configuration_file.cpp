/// \file
/// Configuration files. One that is accepted means the same when it is written as `mediagrabber check` writes it.
///
/// Input: the file.

#include "configuration_file.hpp"

#include "configuration_schema.hpp"
#include "fuzz_input.hpp"

namespace {

using namespace mediagrabber;

/// The values in force as a file.
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
    for (auto const effect : {change_effect::small_change, change_effect::reconfiguration, change_effect::new_run,
                              change_effect::next_start}) {
        for (auto const& path : changed_keys(one, other, effect)) {
            std::fprintf(stderr, "changed: %s\n", path.c_str());
        }
        require(changed_keys(one, other, effect).empty(), "what is shown reads back as the same");
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
        require(!error.faults().empty(), "a file that is refused has a fault");
        return 0;
    }
    remarks(loaded);
    if (!loaded.values.lut_file) {
        check_same(loaded.values, parse_configuration(written(loaded.values), file).values);
    }
    return 0;
}
