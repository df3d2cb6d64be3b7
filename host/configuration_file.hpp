#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "configuration.hpp"

namespace mediagrabber {

/// A place in a file; lines and columns count from 1, 0 means the file as a whole.
struct file_position {
    std::uint32_t line = 0;
    std::uint32_t column = 0;
};

/// One thing that is wrong with a configuration file.
struct configuration_fault {
    file_position where;
    std::string what;  ///< what is wrong, and what would be right
};

/// A configuration file that is refused. `what()` lists its faults, one a line, as FILE:LINE:COLUMN: TEXT.
class configuration_error : public std::runtime_error {
public:
    configuration_error(std::filesystem::path const& file, std::vector<configuration_fault> faults);
    std::vector<configuration_fault> const& faults() const { return faults_; }

private:
    std::vector<configuration_fault> faults_;
};

/// A configuration and where its values were set; a key that is missing in `origins` has its default.
struct loaded_configuration {
    configuration values;
    std::map<std::string, file_position> origins;  ///< by path; of [[line]] the n-th, from 0, is "line.n.pin" and so on
};

/// The largest file that is read, in bytes.
inline constexpr std::size_t largest_configuration_file = 1U << 20U;

/// Reads and checks a configuration file, all of it. \throws configuration_error
loaded_configuration load_configuration(std::filesystem::path const& file);

/// The same for text that is at hand; `file` names it in messages.
loaded_configuration parse_configuration(std::string const& text, std::filesystem::path const& file);

/// Reads the files that a configuration names, and makes their names whole.
/// \param directory  what their names are relative to
/// \throws std::runtime_error with the file and what is wrong with it
void read_named_files(configuration& values, std::filesystem::path const& directory);

/// Remarks about values that are configured and have no effect together with others.
std::vector<std::string> unused_values(loaded_configuration const& loaded);

/// All that an operator should look at again: unused values, and those that are hardly meant as they are.
std::vector<std::string> remarks(loaded_configuration const& loaded);

}  // namespace mediagrabber
