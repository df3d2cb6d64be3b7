// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "overview/machine_list.hpp"
#include "overview/page_watch.hpp"
#include "overview/viewer_presence.hpp"
#include "web/web_server.hpp"

namespace mediagrabber {

/// A recording of this machine, as `mediagrabber list` finds it.
struct local_recording {
    std::string place;                                     ///< "mediagrabber@left", or the path of the control socket
    std::string status = {};                               ///< JSON, as of /status.json; empty: there is an error
    std::string error = {};                                ///< why there is no status
    std::string page = {};                                 ///< URL of the live page; empty: it has none
    std::string link = {};                                 ///< where browsers find the page; empty: at `page`
    std::optional<std::string> token_file = std::nullopt;  ///< of the page
};

/// The recordings of this machine and the live pages of others on one page. Its functions are called on the threads of
/// the server, which must end before this object does.
class overview {
public:
    /// \param find  called on a thread of the overview, one call at a time, only while it has viewers; may take seconds
    overview(std::vector<watched_page> const& machines, std::function<std::vector<local_recording>()> find);
    ~overview();
    overview(overview const&) = delete;
    overview& operator=(overview const&) = delete;

    /// What the server serves.
    std::vector<web_server::page> pages();
    /// Body of GET /overview.json
    std::string response();

private:
    struct machine {
        std::uint64_t id;
        watched_page page;
        std::unique_ptr<page_watch> watch;
    };
    struct local {
        std::uint64_t id = 0;
        local_recording found;
        std::string image_error;            ///< why it has no watch
        std::unique_ptr<page_watch> watch;  ///< null: no live page, or no access to it
    };

    static void end_together(std::map<std::string, local>& some);
    void follow_local(std::stop_token const& stop);
    void take(std::vector<local_recording> found);
    local made(std::uint64_t id, local_recording found);
    void send_image(http_request const& request, http_response& response);
    std::shared_ptr<std::string const> image_of(std::uint64_t id);

    std::function<std::vector<local_recording>()> const find_;
    viewer_presence presence_;
    std::vector<machine> machines_;
    std::mutex mutex_;                    ///< guards the members down to search_error_
    std::map<std::string, local> local_;  ///< by place
    std::uint64_t next_id_;
    std::string search_error_;
    std::jthread search_;
};

}  // namespace mediagrabber
