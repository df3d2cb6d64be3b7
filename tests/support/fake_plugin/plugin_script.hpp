#pragma once

#include <string>
#include <vector>

namespace fake_plugin {

/// One step of a script: a word and its arguments.
struct step {
    std::string verb;
    std::vector<std::string> arguments;

    long number(std::size_t index, long otherwise) const;
    std::string text(std::size_t index, std::string const& otherwise) const;
};

/// The steps of one run of the plug-in. A script, in the environment variable FAKE_PLUGIN_SCRIPT, has a line for each
/// run, the last one for all that follow; steps are separated by semicolons.
std::vector<step> script_of_run(std::string const& script, std::size_t run);

}  // namespace fake_plugin
