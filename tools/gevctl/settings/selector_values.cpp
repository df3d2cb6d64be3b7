// SPDX-License-Identifier: MIT
#include "settings/selector_values.hpp"

#include <algorithm>

#include "report/failure.hpp"

namespace gevctl {

void selector_values::select(selection const& selectors) {
    for (auto const& [name, text] : selectors) {
        feature_info const& selector = camera_.require(name);
        feature_value const wanted = camera_.parse(selector, text);
        feature_value const present = camera_.read(selector);
        if (present == wanted) {
            continue;
        }
        camera_.write(selector, wanted);
        if (std::ranges::find(initial_, name, &std::pair<std::string, feature_value>::first) == initial_.end()) {
            initial_.emplace_back(name, present);
        }
    }
}

std::vector<std::string> selector_values::restore() {
    std::vector<std::string> failures;
    std::erase_if(initial_, [&](auto const& each) {
        try {
            camera_.write(camera_.require(each.first), each.second);
            return true;
        } catch (failure const& error) {
            failures.emplace_back(error.what());
            return false;
        }
    });
    return failures;
}

std::vector<std::string> selector_values::changed() const {
    std::vector<std::string> names;
    for (auto const& [name, value] : initial_) {
        names.push_back(name + " was " + to_text(value));
    }
    return names;
}

}  // namespace gevctl
