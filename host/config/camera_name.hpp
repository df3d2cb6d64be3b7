// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The name of a recording, for people: in directories, metrics, topics, the page and the log.

#include <cstddef>
#include <string>

#include "config/configuration.hpp"

namespace mediagrabber {

/// The environment variable with the default of camera.name; a service gets its instance's name in it.
inline constexpr char camera_name_variable[] = "MEDIAGRABBER_NAME";

/// With it, the path of the default control socket of a service of the same name fits into sockaddr_un::sun_path.
inline constexpr std::size_t max_camera_name = 32;

/// What a name must be, for messages and the manual.
std::string expected_camera_name();
/// Whether a name can be part of a file name, of a topic and of a line of text.
bool is_camera_name(std::string const& name);

/// \return camera.name, otherwise log.instance as text
std::string name_of(configuration const& values);

/// Sets camera.name to the value of the environment variable, if only the variable is set.
/// \throws usage_error  if the variable has an invalid value
void take_name_from_environment(configuration& values);

/// \param text  a directory or a topic
/// \return the text with the name in the place of every {name}
std::string with_name(std::string text, std::string const& name);

}  // namespace mediagrabber
