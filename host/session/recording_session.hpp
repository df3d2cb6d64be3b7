// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/exit_status.hpp"
#include "config/configuration.hpp"
#include "config/configuration_file.hpp"
#include "config/configuration_store.hpp"
#include "control/control_server.hpp"
#include "frames/combined_sink.hpp"
#include "frames/frame_exporter.hpp"
#include "frames/frame_receiver.hpp"
#include "frames/grab_progress.hpp"
#include "pipeline/pipeline_sink.hpp"
#include "plugin/host_context.hpp"
#include "plugin/plugin_library.hpp"
#include "plugin/signal_latch.hpp"
#include "pretrigger/pretrigger_recorder.hpp"
#include "segments/recording_retention.hpp"
#include "segments/segmented_recording.hpp"
#include "service/service_manager.hpp"
#include "session/memory_trimmer.hpp"
#include "session/monitoring.hpp"
#include "session/restart_policy.hpp"
#include "session/signal_watch.hpp"
#include "status/progress_report.hpp"

namespace mediagrabber {

/// One recording, from its start to its exit status: owns the plug-in's context, the frame path (receiver, exporter,
/// sinks), and everything that observes or controls the recording.
///
/// Threads: run() calls the plug-in on the calling thread. Signals, the control socket, the frame exporter, the
/// progress report and the live page each have their own thread; they reach the plug-in only through signal_latch and
/// configuration_store. run() may be called once.
class recording_session {
public:
    /// Reads the configuration file and applies the command line. \throws configuration_error
    using configuration_reader = std::function<loaded_configuration()>;

    /// \param read    reads the configuration again for a reload; called on several threads
    /// \param plugin  must outlive the session
    /// \throws std::exception with a message for the user if an output cannot be set up
    recording_session(configuration_reader read, configuration first, plugin_library const& plugin);

    /// Calls the plug-in until the recording is complete, stopped or given up (see restart_policy).
    /// \return the exit status of the process
    exit_status run();

private:
    exit_status run_until_decided();
    bool stopped_while_waiting(signal_watch& signals, char const* reason);
    exit_status finish(exit_status status);
    [[noreturn]] void exit_without_plugin(char const* reason);
    std::unique_ptr<control_server> make_control() const;
    void serve_control();
    change_answer answer(change_request const& wanted);
    void stop_listening();
    std::optional<std::uint64_t> reload();
    void open_monitoring();
    recording_status status() const;
    change_answer reload_and_wait();
    change_answer calculate_lut(bool in_12_bits);
    change_answer stop();
    void report_changes(configuration const& next) const;
    host_context::ended_run run_once();
    bool return_to_8_bits(host_context::ended_run const& ended) const;
    bool roll_back(host_context::ended_run const& ended);
    std::unique_ptr<pipeline_sink> make_pipeline() const;
    std::unique_ptr<pretrigger_recorder> make_pretrigger_recorder();
    std::unique_ptr<retention_thread> make_retention() const;
    std::unique_ptr<segmented_recording> make_recording() const;
    frame_sink_like& files() const;
    frame_sink_like& sink();
    void trigger();
    change_answer trigger_with_name(std::string const& event);
    void report_failure(frame_record const& frame, std::string const& why);

    configuration_reader const read_;
    configuration const first_;  ///< the source of values that cannot change before the next start
    grab_progress progress_;
    signal_latch latch_;
    configuration_store configurations_;
    monitoring monitoring_;  ///< created before the recording: if it fails, no directory is left behind
    std::unique_ptr<control_server> control_;  ///< created before the recording, too; null: none
    std::chrono::system_clock::time_point const start_ = std::chrono::system_clock::now();
    std::filesystem::path const place_;                      ///< of the recording or its first segment
    std::unique_ptr<pipeline_sink> const pipeline_;          ///< created before the recording for the same reason
    std::unique_ptr<pretrigger_recorder> const pretrigger_;  ///< null: frames are saved as they arrive
    std::unique_ptr<retention_thread> const retention_;      ///< null: nothing is deleted
    std::unique_ptr<segmented_recording> const recording_;   ///< null: there is a pre-trigger buffer
    combined_sink sinks_;
    frame_exporter exporter_;
    frame_receiver receiver_;
    host_context context_;
    progress_report report_;
    service_manager service_;
    memory_trimmer memory_;

    std::chrono::steady_clock::time_point const begun_ = std::chrono::steady_clock::now();
    std::atomic<bool> stop_requested_{false};        ///< by a client
    std::atomic<bool> ending_{false};                ///< the last run of the plug-in has ended
    std::atomic<char const*> failure_{""};           ///< why the last failed run of the plug-in ended
    std::atomic<std::uint64_t> failed_at_frame_{0};  ///< the number of good frames then
    std::shared_ptr<configuration const> proven_;    ///< a run that began with it delivered frames

    std::atomic<std::int64_t> next_failure_report_{0};  ///< ticks of the steady clock
};

}  // namespace mediagrabber
