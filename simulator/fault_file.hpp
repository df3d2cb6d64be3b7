#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "fault.hpp"

namespace camsim {

/// Faults that are written down wrong. `what()` lists every mistake, one a line, each with its place.
class fault_text_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// \param features names of the camera's features
/// \throws fault_text_error
fault_plan read_fault_file(std::filesystem::path const& file, std::vector<std::string> const& features);
/// The same for text that is at hand; `file` names it in messages.
fault_plan parse_faults(std::string const& text, std::string const& file, std::vector<std::string> const& features);

/// What somebody asks for while the camera runs.
struct fault_request {
    struct list {};
    struct stop {
        std::uint32_t number = 0;  ///< 0: all
    };
    std::variant<list, stop, scheduled_fault> what;
};

/// Reads a request, a line of TOML: `start = { kind = "packet_loss", share = 0.1 }`, `stop = 3`, `stop = "all"` or
/// `list = true`.
/// \throws fault_text_error
fault_request parse_fault_request(std::string const& line, std::vector<std::string> const& features);

}  // namespace camsim
