// SPDX-License-Identifier: MIT
#include "cli/camera_argument.hpp"

#include <algorithm>

#include "net/ipv4_address.hpp"
#include "report/failure.hpp"

namespace gevctl {

found_camera find_camera(std::string const& name) {
    if (auto const address = openpv::parse_ipv4(name)) {
        if (auto const found = camera_at(*address)) {
            return *found;
        }
    }
    return choose_camera(find_cameras({}), name);
}

found_camera take_camera(std::vector<std::string>& words, first_word kind) {
    std::string const first = words.empty() ? std::string() : words.front();
    bool const named = !first.empty() && (kind == first_word::is_camera || openpv::parse_ipv4(first).has_value());
    if (named) {
        words.erase(words.begin());
        return find_camera(first);
    }
    auto const cameras = find_cameras({});
    bool const is_name =
        !first.empty() && std::ranges::any_of(cameras, [&](auto const& each) { return is_called(each, first); });
    if (is_name) {
        words.erase(words.begin());
        return choose_camera(cameras, first);
    }
    try {
        return choose_camera(cameras, {});
    } catch (failure const& error) {
        throw failure(error.status(),
                      (first.empty() || cameras.empty() ? "" : "no camera has the name \"" + first + "\", and ") +
                          std::string(error.what()));
    }
}

void require_features(opened_camera const& camera, std::vector<std::string> const& words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i == 0 && words.size() > 1 && camera.features.catalogue().find(words[0]) == nullptr) {
            throw failure(exit_status::usage, "\"" + words[0] +
                                                  "\" is neither a camera that was found nor a feature of " +
                                                  name_of(camera.connection.camera()));
        }
        camera.features.require(words[i]);
    }
}

}  // namespace gevctl
