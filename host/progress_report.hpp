#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "frame_exporter.hpp"
#include "grab_progress.hpp"

namespace mediagrabber {

/// What there is to say about a recording at one moment.
struct progress_figures {
    std::uint64_t wanted = 0;  ///< frames, 0: no limit
    std::uint64_t handed_over = 0;
    std::uint64_t kept = 0;
    std::uint64_t overrun = 0;
    std::uint64_t not_written = 0;  ///< disk errors, and frames that the host could make nothing of
    std::uint64_t empty_fetches = 0;
    std::uint64_t bytes = 0;
    std::string kept_where = "on disk";
    double seconds = 0.0;  ///< from the first frame to the last
};

/// One line: "123/1000 frames, 99.8 frames/s, 131.1 MB, 0 lost, 9 s left".
std::string progress_line(progress_figures const& figures);
/// Several lines, about a recording that has ended.
std::string summary_text(progress_figures const& figures, std::string const& directory);

/// Reports on standard error how a recording goes: on a terminal one line that is rewritten five times a second, else a
/// line every ten seconds.
class progress_report {
public:
    progress_report(grab_progress const& progress, frame_exporter const& exporter, std::uint64_t wanted);
    ~progress_report();
    progress_report(progress_report const&) = delete;
    progress_report& operator=(progress_report const&) = delete;

    void stop();
    progress_figures figures() const;

private:
    void run();
    void print(bool rewritten) const;

    grab_progress const& progress_;
    frame_exporter const& exporter_;
    std::uint64_t const wanted_;
    bool const terminal_;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopped_ = false;
    std::mutex join_mutex_;
    std::thread thread_;
};

}  // namespace mediagrabber
