// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "faults/fault.hpp"

/// Reads fault files and control requests, both TOML.
namespace camsim {

/// A fault file or request with errors. `what()` lists all of them, one per line, as FILE:LINE:COLUMN: MESSAGE.
class fault_text_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// \param features names of the camera's features, the accepted values of parameters that name a feature
/// \throws fault_text_error if the file cannot be read, is larger than 1 MiB or has errors
fault_plan read_fault_file(std::filesystem::path const& file, std::vector<std::string> const& features);

/// Reads the text of a fault file.
/// \param file its name in messages
/// \param features as in read_fault_file()
/// \throws fault_text_error
fault_plan parse_faults(std::string const& text, std::string const& file, std::vector<std::string> const& features);

/// A request on the control socket.
struct control_request {
    struct list {};
    struct stop {
        std::uint32_t number = 0;  ///< 0: all
    };
    struct input_line {
        bool high = false;
    };
    std::variant<list, stop, scheduled_fault, input_line> what;
};

/// Reads a request, one line of TOML: `start = { kind = "packet_loss", probability = 0.1 }`, `stop = 3`,
/// `stop = "all"`, `list = true`, or `line1 = BOOLEAN`, the level of the input line.
/// \param features as in read_fault_file()
/// \throws fault_text_error
control_request parse_control_request(std::string const& line, std::vector<std::string> const& features);

}  // namespace camsim
