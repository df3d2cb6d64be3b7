// SPDX-License-Identifier: MIT
#include "config/camera_name.hpp"

#include <fmt/format.h>
#include <mosquitto.h>

#include <cstdlib>
#include <string_view>

#include "base/failures.hpp"

namespace mediagrabber {

namespace {

/// Separators of paths, wildcards of MQTT, and the brackets of placeholders.
constexpr std::string_view reserved = "/+#{}";

}  // namespace

std::string expected_camera_name() {
    return fmt::format("a name of 1 to {} bytes, printable, without / + # {{ }}, and not beginning with . or $",
                       max_camera_name);
}

/// libmosquitto refuses control characters, too.
bool is_camera_name(std::string const& name) {
    bool const fits = !name.empty() && name.size() <= max_camera_name;
    return fits && name.find_first_of(reserved) == name.npos && name.front() != '.' && name.front() != '$' &&
           name.front() != ' ' && name.back() != ' ' &&
           mosquitto_validate_utf8(name.data(), static_cast<int>(name.size())) == MOSQ_ERR_SUCCESS;
}

std::string name_of(configuration const& values) {
    return values.camera.name.value_or(std::to_string(values.log.instance));
}

void take_name_from_environment(configuration& values) {
    char const* const given = std::getenv(camera_name_variable);
    if (given == nullptr || *given == '\0' || values.camera.name) {
        return;
    }
    if (!is_camera_name(given)) {
        throw usage_error(
            fmt::format("${}: \"{}\" is not valid, expected {}; camera.name in the configuration replaces it",
                        camera_name_variable, given, expected_camera_name()));
    }
    values.camera.name = given;
}

std::string with_name(std::string text, std::string const& name) {
    constexpr std::string_view placeholder = "{name}";
    for (auto at = text.find(placeholder); at != text.npos; at = text.find(placeholder, at + name.size())) {
        text.replace(at, placeholder.size(), name);
    }
    return text;
}

}  // namespace mediagrabber
