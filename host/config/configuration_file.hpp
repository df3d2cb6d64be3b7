// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/configuration.hpp"
#include "config/setting.hpp"

namespace mediagrabber {

/// A position in a file; lines and columns count from 1. Line 0 means the entire file.
struct file_position {
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    std::string option = {};  ///< of the command line, which has the value instead of the file; empty: none
};

/// One error in a configuration file.
struct configuration_fault {
    file_position where;
    std::string what;        ///< the key, what is wrong, and what is expected
    bool temporary = false;  ///< a file could not be read; a later attempt may succeed
};

/// Thrown for a configuration file with errors. `what()` lists them, one per line, as FILE:LINE:COLUMN: TEXT
/// or --set KEY: TEXT.
class configuration_error : public std::runtime_error {
public:
    configuration_error(std::filesystem::path const& file, std::vector<configuration_fault> faults);
    std::vector<configuration_fault> const& faults() const { return faults_; }
    /// Whether the text is valid, and only files could not be read.
    bool temporary() const;

private:
    std::vector<configuration_fault> faults_;
};

/// A configuration and the positions of its values. A key without an origin has its default.
struct loaded_configuration {
    configuration values;
    std::map<std::string, file_position> origins;  ///< by path; "line.n.pin" for the n-th [[line]], from 0
};

/// The maximum file size, bytes; a configuration has a few kilobytes.
inline constexpr std::size_t max_configuration_file = 1U << 20U;

/// Reads and checks a configuration file and the files that it names.
/// \param replaced  values that replace those of the file
/// \throws configuration_error with all errors of the file
loaded_configuration load_configuration(std::filesystem::path const& file, std::vector<setting> const& replaced = {});

/// Reads and checks the text of a configuration file.
/// \param file      named in messages; paths in the text are relative to its directory
/// \param replaced  values that replace those of the text
/// \throws configuration_error with all errors
loaded_configuration parse_configuration(std::string const& text, std::filesystem::path const& file,
                                         std::vector<setting> const& replaced = {});

/// Reads the LUT file that a configuration names, and makes its path absolute.
/// \param directory  that a relative path refers to
/// \throws unavailable_error   if the file cannot be opened or read
/// \throws std::runtime_error  with the file and the error
void read_named_files(configuration& values, std::filesystem::path const& directory);

/// Warnings about values that are configured and have no effect in combination with others.
std::vector<std::string> unused_values(loaded_configuration const& loaded);

/// All warnings about a valid configuration: unused_values(), and values that are probably mistakes.
std::vector<std::string> remarks(loaded_configuration const& loaded);

}  // namespace mediagrabber
