// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace mediagrabber {

/// The rule for all files with a secret (token, password, private key): users who are neither the owner nor in the
/// group have no access. The group may read, as systemd's credentials require. A file that does not exist is left to
/// the reader's error. \throws std::runtime_error with the reason and the cure, without the file's name
void check_secret_file(std::filesystem::path const& file);

}  // namespace mediagrabber
