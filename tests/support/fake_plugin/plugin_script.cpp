// SPDX-License-Identifier: MIT
#include "plugin_script.hpp"

#include <sstream>

namespace fake_plugin {

long step::number(std::size_t index, long otherwise) const {
    return index < arguments.size() ? std::stol(arguments[index]) : otherwise;
}

std::string step::text(std::size_t index, std::string const& otherwise) const {
    return index < arguments.size() ? arguments[index] : otherwise;
}

std::vector<step> script_of_run(std::string const& script, std::size_t run) {
    std::istringstream lines(script);
    std::string line;
    std::string next;
    for (std::size_t i = 0; i <= run && std::getline(lines, next); ++i) {
        line = next;
    }
    std::vector<step> steps;
    std::istringstream parts(line);
    for (std::string part; std::getline(parts, part, ';');) {
        std::istringstream words(part);
        step one;
        words >> one.verb;
        for (std::string word; words >> word;) {
            one.arguments.push_back(word);
        }
        if (!one.verb.empty()) {
            steps.push_back(std::move(one));
        }
    }
    return steps;
}

}  // namespace fake_plugin
