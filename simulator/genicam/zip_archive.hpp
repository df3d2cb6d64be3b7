// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace camsim {

/// \return a ZIP archive with one entry, as GigE Vision cameras compress their GenICam XML
/// \throws std::runtime_error if libzip cannot make it
std::string zip_archive(std::string const& name, std::string const& content);

}  // namespace camsim
