#pragma once

#include <filesystem>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "active_faults.hpp"
#include "fault_timeline.hpp"
#include "file_descriptor.hpp"

namespace camsim {

/// Answers a request about faults, both a line of TOML.
std::string answer_fault_request(std::string const& line, fault_timeline& timeline, active_faults const& faults,
                                 std::vector<std::string> const& features);

/// A Unix socket of mode 0600 on which a line is asked and a line answered, as often as one likes, on a thread of its
/// own.
class fault_control {
public:
    using answerer = std::function<std::string(std::string const&)>;

    fault_control(std::filesystem::path path, answerer answer);
    ~fault_control();
    fault_control(fault_control const&) = delete;
    fault_control& operator=(fault_control const&) = delete;

    static constexpr std::size_t longest_request = 4096;

private:
    struct connection {
        file_descriptor socket;
        std::string asked{};  ///< not yet a whole line
    };

    void run(std::stop_token const& stop);
    void accept_one();
    bool serve(connection& one);

    std::filesystem::path const path_;
    answerer const answer_;
    file_descriptor listener_;
    file_descriptor wake_;
    std::list<connection> connections_;
    std::jthread thread_;
};

}  // namespace camsim
