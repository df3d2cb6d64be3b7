// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "frames/frame_exporter.hpp"
#include "frames/grab_progress.hpp"

namespace mediagrabber {

/// The counts of a recording at one moment. The same words name them on the page, in the metrics and in the log.
struct progress_figures {
    std::uint64_t wanted = 0;       ///< frame limit, 0: none
    std::uint64_t handed_over = 0;  ///< frames that the plug-in has exported
    std::uint64_t saved =
        0;  ///< frames that every configured output has stored; a pre-trigger buffer counts as storage
    std::uint64_t dropped_queue_full = 0;   ///< frames dropped by the host because the export queue was full
    std::uint64_t dropped_write_error = 0;  ///< frames that an output could not store, or of an unusable description
    std::uint64_t empty_fetches = 0;        ///< fetches without a frame, time-outs included
    std::uint64_t bytes = 0;                ///< written to files
    std::string outcome = "saved";          ///< what the summary reports of the `saved` frames
    double seconds = 0.0;                   ///< from the first frame to the latest
};

/// Dropped frames are listed by cause, and fetches without a frame only if there were any.
/// \return one line, for example "123/1000 frames saved, 99.8 frames/s, 131.1 MB, 0 dropped, 9 s left"
std::string progress_line(progress_figures const& figures);
/// \return two lines about a recording that has ended, without a line end behind the last
std::string summary_text(progress_figures const& figures, std::string const& directory);

/// Reports the progress of a recording on standard error: on a terminal one line that is rewritten five times a second,
/// otherwise a log line every ten seconds.
///
/// Runs a thread from construction to stop(). Reads `progress` and `exporter`, which must outlive it. figures() and
/// stop() may be called from any thread.
class progress_report {
public:
    /// \param wanted  frame limit, 0: none
    progress_report(grab_progress const& progress, frame_exporter const& exporter, std::uint64_t wanted);
    ~progress_report();
    progress_report(progress_report const&) = delete;
    progress_report& operator=(progress_report const&) = delete;

    /// Ends the thread and clears the terminal's line. Further calls have no effect.
    void stop();
    progress_figures figures() const;

private:
    void run();
    void print(bool rewrite) const;

    grab_progress const& progress_;
    frame_exporter const& exporter_;
    std::uint64_t const wanted_;
    bool const terminal_;

    std::mutex mutex_;  ///< guards stopped_
    std::condition_variable changed_;
    bool stopped_ = false;
    std::mutex join_mutex_;  ///< serialises stop()
    std::jthread thread_;
};

}  // namespace mediagrabber
