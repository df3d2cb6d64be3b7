// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "overview/machine_list.hpp"
#include "overview/recording_summary.hpp"
#include "overview/viewer_presence.hpp"

namespace mediagrabber {

/// Asks one live page for its status and image while the overview has viewers. Each page has a thread of its own, so
/// one that does not respond does not delay the others. Any thread may call latest().
class page_watch {
public:
    struct result {
        std::optional<recording_summary> summary;
        std::string error;                         ///< why there is no summary; empty: there is, or nothing is known
        std::shared_ptr<std::string const> image;  ///< JPEG; null: none
        std::string image_error;                   ///< why there is no image, although there is a summary
        std::uint64_t image_number = 0;            ///< changes with the image
    };

    /// \param presence  must outlive the watch
    page_watch(watched_page page, viewer_presence& presence);

    result latest() const;
    /// Ends the watch soon; the destructor waits for its end.
    void request_stop() { thread_.request_stop(); }

private:
    void run(std::stop_token const& stop);
    void ask_status(std::stop_token const& stop);
    void ask_image(std::stop_token const& stop);

    watched_page const page_;
    viewer_presence& presence_;
    std::uint64_t frame_ = 0;  ///< of the image; used only by the thread
    mutable std::mutex mutex_;
    result latest_;  ///< guarded by mutex_
    std::jthread thread_;
};

}  // namespace mediagrabber
