#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "combined_sink.hpp"
#include "configuration.hpp"
#include "configuration_file.hpp"
#include "configuration_store.hpp"
#include "control_server.hpp"
#include "exit_status.hpp"
#include "frame_exporter.hpp"
#include "frame_intake.hpp"
#include "grab_progress.hpp"
#include "host_context.hpp"
#include "keeping/held_frames.hpp"
#include "live/onlookers.hpp"
#include "pipeline/pipeline_sink.hpp"
#include "plugin_library.hpp"
#include "progress_report.hpp"
#include "recording/recording.hpp"
#include "restart_policy.hpp"
#include "service/service_manager.hpp"
#include "signal_latch.hpp"
#include "signal_watch.hpp"

namespace mediagrabber {

/// One recording from beginning to end, with all that takes part in it.
class recording_session {
public:
    /// Reads a configuration, the same way each time. \throws configuration_error
    using configuration_reader = std::function<loaded_configuration()>;

    /// \param read  what a reload reads the configuration with
    recording_session(configuration_reader read, configuration first, plugin_library const& plugin);

    /// Runs the plug-in as often as it takes. \return how the recording ended
    exit_status run();

private:
    exit_status run_until_decided();
    exit_status finish(exit_status status);
    [[noreturn]] void cut_short(char const* reason);
    void listen();
    void stop_listening();
    std::optional<std::uint64_t> reload();
    void let_in_onlookers();
    recording_status status() const;
    change_answer reload_and_wait();
    change_answer calculate_table(bool in_12_bits);
    change_answer stop();
    void report_changes(configuration const& next) const;
    host_context::ended_run run_once();
    bool go_back(host_context::ended_run const& ended);
    std::unique_ptr<pipeline_sink> make_pipeline() const;
    std::unique_ptr<held_frames> make_held_frames();
    frame_sink_like& files() const;
    frame_sink_like& sink();
    void keep_frames();
    void report_failure(frame_record const& frame, std::string const& why);

    configuration_reader const read_;
    configuration const first_;  ///< what is fixed for the whole recording comes from here
    grab_progress progress_;
    signal_latch latch_;
    configuration_store configurations_;
    onlookers onlookers_;  ///< before the recording: one that can't be leaves no directory behind
    std::filesystem::path const place_;
    std::unique_ptr<pipeline_sink> const pipeline_;  ///< before the recording: one that can't be leaves no trace
    std::unique_ptr<held_frames> const held_;        ///< instead of the recording, where frames are held
    std::unique_ptr<recording> const recording_;     ///< where frames are written as they come
    combined_sink sinks_;
    frame_exporter exporter_;
    frame_intake intake_;
    host_context context_;
    progress_report report_;
    service_manager service_;
    std::unique_ptr<control_server> control_;

    std::chrono::steady_clock::time_point const begun_ = std::chrono::steady_clock::now();
    std::atomic<bool> stop_asked_{false};    ///< by an onlooker
    configuration const* proven_ = nullptr;  ///< frames came from a run that began with it

    std::atomic<std::int64_t> next_failure_report_{0};  ///< ticks of the steady clock
};

}  // namespace mediagrabber
