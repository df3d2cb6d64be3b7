#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "unix_listener.hpp"
#include "control_message.hpp"

namespace mediagrabber {

/// Answers requests that come over the control socket, one after the other, on a thread of its own.
class control_server {
public:
    using answerer = std::function<change_answer(change_request const&)>;

    /// \param answer  what answers a request; called on the server's thread
    /// \throws std::runtime_error with a message for the operator when it can't listen at `path`
    control_server(std::filesystem::path const& path, answerer answer);
    /// Waits for `answer` to return; who called it has to see to that.
    ~control_server();
    control_server(control_server const&) = delete;
    control_server& operator=(control_server const&) = delete;

    std::filesystem::path const& path() const { return listener_.path(); }

private:
    void run();
    void serve(file_handle const& connection) const;
    std::string answer_to(std::string const& line) const;

    unix_listener const listener_;
    answerer const answer_;
    file_handle const end_;  ///< tells the thread to end
    std::thread thread_;
};

}  // namespace mediagrabber
