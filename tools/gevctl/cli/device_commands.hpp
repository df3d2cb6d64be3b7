// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// `gevctl xml`, `register` and `suits`.

#include <iosfwd>
#include <string>
#include <vector>

#include "report/failure.hpp"

namespace gevctl {

/// Prints the GenICam XML.
/// \param file to write instead of printing; may be empty
exit_status xml_command(std::string const& camera, std::string const& file, std::ostream& out);

/// Reads or writes a 32-bit register, and prints it.
/// \param words `ADDRESS`, `CAMERA ADDRESS` or `CAMERA ADDRESS VALUE`: a write names its camera
exit_status register_command(std::vector<std::string> words, std::ostream& out);

/// Prints which of the features that `libmgjai.so` uses the camera has, and what is lost without the others.
exit_status suits_command(std::string const& camera, bool json, std::ostream& out);

}  // namespace gevctl
