// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace fake_plugin {

/// One step of a script: a verb and its arguments.
struct step {
    std::string verb;
    std::vector<std::string> arguments;

    /// \return argument `index` as a number, or `otherwise` if it is absent
    long number(std::size_t index, long otherwise) const;
    /// \return argument `index`, or `otherwise` if it is absent
    std::string text(std::size_t index, std::string const& otherwise) const;
};

/// \param script one line per run, steps separated by semicolons; the last line is for all further runs
/// \param run number of the run, from 0
/// \return the steps of that run
std::vector<step> script_of_run(std::string const& script, std::size_t run);

}  // namespace fake_plugin
