// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// `gevctl dump`, `apply` and `diff`.

#include <iosfwd>
#include <string>
#include <vector>

#include "report/failure.hpp"

namespace gevctl {

struct dump_options {
    std::string camera;
    bool all = false;  ///< also features that are not streamable
};
/// Prints a feature file.
exit_status dump_command(dump_options const& options, std::ostream& out, std::ostream& errors);

struct apply_options {
    std::vector<std::string> words;  ///< `[CAMERA] FILE`
    bool dry_run = false;
};
/// Applies a feature file, and prints what was changed and what differs.
exit_status apply_command(apply_options const& options, std::ostream& out, std::ostream& errors);

/// Prints the differences between a camera and a feature file, or between two files.
/// \param words `[CAMERA] FILE` or `FILE FILE`. The first of two words is a file if one of this name exists, or if it
///     has the form of a path
exit_status diff_command(std::vector<std::string> const& words, std::ostream& out, std::ostream& errors);

}  // namespace gevctl
