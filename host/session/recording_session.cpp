// SPDX-License-Identifier: MIT
#include "session/recording_session.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "base/host_log.hpp"
#include "base/thread_scheduling.hpp"
#include "base/unix_socket.hpp"
#include "config/camera_name.hpp"
#include "config/configuration_file.hpp"
#include "config/configuration_schema.hpp"
#include "control/live_update.hpp"
#include "control/value_query.hpp"
#include "segments/recording_place.hpp"
#include "status/status_message.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::seconds failure_report_interval{1};
/// For the frame that confirms a request of the live page.
constexpr std::chrono::seconds confirmation_timeout{10};

void log_lines(std::string const& text, void (*log)(std::string const&)) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        log(line);
    }
}

void log_each(std::vector<std::string> const& texts, void (*log)(std::string const&)) {
    for (auto const& text : texts) {
        log(text);
    }
}

/// " a b c"
std::string listed(std::vector<std::string> const& words) {
    std::string text;
    for (auto const& word : words) {
        text += " " + word;
    }
    return text;
}

/// Does not block: an unresponsive plug-in may hold the lock of standard output. The buffered output is then lost.
void flush_standard_output_if_free() {
    if (ftrylockfile(stdout) == 0) {
        std::fflush(stdout);
        funlockfile(stdout);
    }
}

/// Available to this user; nothing if it cannot be read.
std::optional<std::uint64_t> free_bytes_of(std::filesystem::path const& directory) {
    std::error_code error;
    auto const space = std::filesystem::space(directory, error);
    return error ? std::nullopt : std::optional(std::uint64_t{space.available});
}

recording_format format_of(configuration const& chosen) {
    return {.kind = chosen.output.format,
            .compression = chosen.output.compression,
            .software = "mediagrabber " MEDIAGRABBER_VERSION,
            .model = chosen.camera.model.value_or(std::string()),
            .serial = chosen.camera.serial.value_or(std::string()),
            .configuration = chosen.file_text};
}

}  // namespace

recording_session::recording_session(configuration_reader read, configuration first, plugin_library const& plugin)
    : read_(std::move(read)),
      first_(std::move(first)),
      configurations_(first_),
      monitoring_(first_),
      control_(make_control()),
      place_(recording_place(first_.output.directory, start_)),
      pipeline_(make_pipeline()),
      pretrigger_(make_pretrigger_recorder()),
      retention_(make_retention()),
      recording_(make_recording()),
      sinks_({{"files", &files()}, {"pipeline", pipeline_.get()}}),
      exporter_(
          sink(), first_.memory.export_buffers,
          [this](frame_record const& frame, std::string const& why) { report_failure(frame, why); },
          monitoring_.observers()),
      receiver_(&exporter_, first_.memory.export_buffers + monitoring_.max_frames_held(), first_.run.frames, progress_),
      context_(configurations_, latch_, receiver_, progress_, plugin),
      report_(progress_, exporter_, first_.run.frames),
      service_(progress_, [this] { return progress_line(report_.figures()); }) {}

/// \return null if no pipeline is configured
std::unique_ptr<pipeline_sink> recording_session::make_pipeline() const {
    if (!first_.output.pipeline) {
        return nullptr;
    }
    using seconds = std::chrono::duration<double>;
    return std::make_unique<pipeline_sink>(
        pipeline_sink::settings{.text = *first_.output.pipeline,
                                .directory = place_,
                                .retry_interval = seconds(first_.run.retry_interval_s),
                                .max_end_time = seconds(first_.run.grace_time_s)},
        [this] { return progress_.period_us.load(); });
}

/// \return null if frames are saved as they arrive
std::unique_ptr<pretrigger_recorder> recording_session::make_pretrigger_recorder() {
    if (first_.pretrigger.seconds == 0.0) {
        return nullptr;
    }
    return std::make_unique<pretrigger_recorder>(
        pretrigger_recorder::settings{
            .directory = place_,
            .make_recording = [this](std::filesystem::path const& place) -> std::unique_ptr<frame_sink_like> {
                return std::make_unique<recording>(place, format_of(first_));
            },
            .time = std::chrono::duration<double>(first_.pretrigger.seconds),
            .spare_frames = first_.memory.export_buffers,
            .trigger_on_loss = first_.pretrigger.trigger_on_loss},
        [this] { return progress_.period_us.load(); },
        [this] { return progress_.empty_fetches + exporter_.count().dropped_queue_full; });
}

/// \return null if everything is kept
std::unique_ptr<retention_thread> recording_session::make_retention() const {
    auto const& output = first_.output;
    if (!output.has_retention()) {
        return nullptr;
    }
    std::vector<std::string> directories{output.directory};
    if (output.delete_pretrigger) {
        directories.push_back(output.directory + "/pretrigger/{time}{event}");
    }
    using days = std::chrono::duration<double, std::chrono::days::period>;
    return std::make_unique<retention_thread>(
        recording_retention(directories, {.age = days(output.keep_days),
                                          .bytes = static_cast<std::uint64_t>(output.keep_bytes),
                                          .min_free_bytes = static_cast<std::uint64_t>(output.min_free_bytes)}));
}

/// \return null if there is a pre-trigger buffer
std::unique_ptr<segmented_recording> recording_session::make_recording() const {
    if (pretrigger_ != nullptr) {
        return nullptr;
    }
    using seconds = std::chrono::duration<double>;
    auto const max_time = std::chrono::duration_cast<std::chrono::microseconds>(seconds(first_.output.segment_s));
    return std::make_unique<segmented_recording>(
        segmented_recording::settings{.directory = first_.output.directory,
                                      .format = format_of(first_),
                                      .max_frames = first_.output.segment_frames,
                                      .max_time = max_time},
        start_, [this] {
            if (retention_ != nullptr) {
                retention_->segment_finished();
            }
        });
}

/// Called on the signal thread.
void recording_session::trigger() {
    if (pretrigger_ == nullptr) {
        log_warning("trigger ignored: pretrigger.seconds is 0, so frames are not buffered");
        return;
    }
    pretrigger_->trigger("requested");
}

frame_sink_like& recording_session::files() const {
    if (pretrigger_ != nullptr) {
        return *pretrigger_;
    }
    return *recording_;
}

/// The sink of every frame.
frame_sink_like& recording_session::sink() {
    if (pipeline_ != nullptr) {
        return sinks_;
    }
    return files();
}

exit_status recording_session::run() {
    log_info(
        fmt::format("recording {} to {} with plug-in {}", name_of(first_), place_.string(), context_.plugin_version()));
    try {
        serve_control();
        open_monitoring();
        request_short_time_slices();
        return finish(run_until_decided());
    } catch (...) {
        stop_listening();  // clients must not reach objects that are being destroyed
        throw;
    }
}

/// If the default socket cannot be created, records without it; for an explicitly configured one this is an error.
std::unique_ptr<control_server> recording_session::make_control() const {
    auto const& chosen = first_.control;
    if (chosen.socket == "none") {
        return nullptr;
    }
    auto const group = chosen.group ? group_number(*chosen.group) : std::nullopt;
    if (chosen.socket) {
        return std::make_unique<control_server>(*chosen.socket, group);
    }
    constexpr char without[] = "recording without `mediagrabber set`";
    auto const usual = default_control_socket(name_of(first_));
    if (!usual) {
        log_warning(
            fmt::format("this user has no runtime directory ($XDG_RUNTIME_DIR) for a control socket; {}", without));
        return nullptr;
    }
    try {
        return std::make_unique<control_server>(*usual, group);
    } catch (std::runtime_error const& error) {
        log_warning(fmt::format("{}; {}", error.what(), without));
        return nullptr;
    }
}

void recording_session::serve_control() {
    if (control_ != nullptr) {
        log_info(fmt::format("control socket for `mediagrabber set`: {}", control_->path().string()));
        control_->open([this](change_request const& wanted) { return answer(wanted); });
    }
}

/// A signal cannot carry the name of the event.
change_answer recording_session::trigger_with_name(std::string const& event) {
    if (pretrigger_ == nullptr) {
        return {.status = exit_status::not_changeable,
                .lines = {"trigger refused: pretrigger.seconds is 0, so frames are not buffered"}};
    }
    auto const directory = pretrigger_->trigger("event " + event, event);
    if (!directory) {
        return {.status = exit_status::not_changeable,
                .lines = {"nothing is saved, because no frame has arrived since the last trigger"}};
    }
    return {.status = exit_status::success, .lines = {"saving " + directory->string()}};
}

/// A request of `mediagrabber signal` takes the way of a signal, so that both have the same effect.
change_answer recording_session::answer(change_request const& wanted) {
    if (wanted.is_change()) {
        return change_while_running(wanted, configurations_, context_.changes(), latch_);
    }
    if (wanted.asks_status) {
        auto const found = status();
        return {.status = exit_status::success,
                .lines = status_lines(found),
                .result = status_message(found).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)};
    }
    if (!wanted.keys.empty()) {
        auto const found = status();
        known_values camera{.latest = {}, .delivery = found.delivery};
        if (found.newest) {
            camera.latest.gain_db = found.newest->gain_db;
            camera.latest.exposure_us = found.newest->exposure_us;
        }
        return read_values(wanted.keys, *found.active, camera);
    }
    if (!wanted.event.empty()) {
        return trigger_with_name(wanted.event);
    }
    int const number = signal_of(wanted.signal);
    if (number == 0) {
        return {.status = exit_status::usage, .lines = {fmt::format("{} is not a valid request", wanted.signal)}};
    }
    kill(getpid(), number);
    return {.status = exit_status::success, .lines = {}};
}

/// From here on, clients may read the status and change values. The plug-in's log is read for them, for `mediagrabber
/// status`, and for the offsets of the region, which the plug-in reports only there.
void recording_session::open_monitoring() {
    bool const has_offsets = first_.image.offset_x || first_.image.offset_y;
    if (!monitoring_.any() && !has_offsets && control_ == nullptr) {
        return;
    }
    monitoring_.capture(
        [this] {
            auto const values = configurations_.snapshot();
            return wanted_output{.any = (values->log.sinks & log_sink_stdout) != 0, .level = values->log.level};
        },
        [this](std::string_view line) { context_.delivery().read_log_line(line); });
    context_.capture_log();
    if (!monitoring_.any()) {
        return;
    }
    monitoring_.open({.status = [this] { return status(); },
                      .controls = {.change =
                                       [this](change_request const& wanted) {
                                           return change_while_running(wanted, configurations_, context_.changes(),
                                                                       latch_);
                                       },
                                   .reload = [this] { return reload_and_wait(); },
                                   .calculate_lut = [this](bool in_12_bits) { return calculate_lut(in_12_bits); },
                                   .stop = [this] { return stop(); }},
                      .tone = &context_.tone(),
                      .period_us = &progress_.period_us});
}

recording_status recording_session::status() const {
    using seconds = std::chrono::duration<double>;
    auto const now = std::chrono::steady_clock::now();
    auto const last = progress_.last_frame.load();
    recording_status found;
    found.figures = report_.figures();
    found.uptime_s = seconds(now - begun_).count();
    found.good_frames = progress_.good_frames;
    found.capturing = progress_.capturing;
    found.period_us = progress_.period_us;
    if (found.good_frames != 0) {
        found.seconds_since_frame = seconds(now - last).count();
    }
    found.plugin_version = context_.plugin_version();
    found.directory = (recording_ != nullptr ? recording_->directory() : place_).string();
    found.free_bytes = free_bytes_of(found.directory);
    found.name = name_of(first_);
    found.instance = first_.log.instance;
    found.active = configurations_.snapshot();
    found.delivery = context_.delivery().values();
    found.state = state_of({.stop_requested = ending_ || latch_.stop_pending(),
                            .has_pretrigger = pretrigger_ != nullptr,
                            .failure = found.good_frames == failed_at_frame_ ? failure_.load() : "",
                            .seconds_since_frame = found.seconds_since_frame,
                            .period_us = found.period_us});
    monitoring_.complete(found);
    return found;
}

change_answer recording_session::reload_and_wait() {
    auto const number = reload();
    latch_.raise(signal_code::reload);
    if (!number) {
        return {.status = exit_status::usage, .lines = {"configuration not reloaded: it has errors, see the log"}};
    }
    auto const outcome = context_.changes().wait_for(*number, confirmation_timeout);
    if (!outcome.values) {
        return {.status = exit_status::timed_out, .lines = {"reloaded, but no frame has arrived since to confirm it"}};
    }
    return {.status = exit_status::success, .lines = {"reloaded, confirmed by a frame"}};
}

change_answer recording_session::calculate_lut(bool in_12_bits) {
    if (in_12_bits && context_.refuses_12_bits()) {
        return {.status = exit_status::not_changeable,
                .lines = {"no LUT is calculated: the camera has no 12-bit format; calculate it from 8 bits"}};
    }
    auto const before = context_.tone().current().calculations;
    latch_.raise(in_12_bits ? signal_code::user_2 : signal_code::user_1);
    if (!context_.tone().wait_for_calculation(before, confirmation_timeout)) {
        return {.status = exit_status::timed_out, .lines = {"no LUT has been calculated yet, see the log"}};
    }
    bool const from_8_bits = in_12_bits && context_.refuses_12_bits();
    return {
        .status = exit_status::success,
        .lines = {from_8_bits ? "a histogram-equalised LUT was calculated, from 8 bits: the camera has no 12-bit format"
                              : "a histogram-equalised LUT was calculated"}};
}

/// Stops as SIGTERM does. Only once: a second signal would exit without the plug-in.
change_answer recording_session::stop() {
    if (!stop_requested_.exchange(true)) {
        kill(getpid(), SIGTERM);
    }
    return {.status = exit_status::success, .lines = {"stopping"}};
}

void recording_session::stop_listening() {
    context_.changes().cancel();
    context_.tone().cancel();
    control_.reset();
    monitoring_.close();
}

exit_status recording_session::run_until_decided() {
    signal_watch signals(latch_, progress_, std::chrono::duration<double>(first_.run.grace_time_s),
                         {.reload = [this] { reload(); },
                          .trigger = [this] { trigger(); },
                          .exit_without_plugin = [this](char const* why) { exit_without_plugin(why); }});
    restart_policy policy(first_.run.give_up_after);
    while (true) {
        auto const ended = run_once();
        if (!signals.stop_requested() && (return_to_8_bits(ended) || roll_back(ended))) {
            continue;
        }
        auto const decision = policy.decide({.exit_code = ended.exit_code,
                                             .stop_requested = signals.stop_requested(),
                                             .frames_complete = receiver_.complete(),
                                             .new_configuration = ended.signal == signal_code::reload,
                                             .frames_arrived = ended.frames_arrived,
                                             .has_worked = proven_ == configurations_.snapshot()});
        if (*decision.reason != '\0') {
            log_warning(fmt::format("{} (exit code {})", decision.reason, ended.exit_code));
        }
        if (decision.next == run_decision::step::end) {
            return decision.status;
        }
        if (decision.next == run_decision::step::wait_and_run_again &&
            stopped_while_waiting(signals, decision.reason)) {
            return exit_status::success;
        }
    }
}

/// Waits before the next attempt to reach the camera.
bool recording_session::stopped_while_waiting(signal_watch& signals, char const* reason) {
    failed_at_frame_ = progress_.good_frames.load();
    failure_ = reason;
    ++progress_.retries;
    progress_.waits_for_retry = true;
    bool const requested = signals.wait_for_stop_or_reload(std::chrono::duration<double>(first_.run.retry_interval_s));
    progress_.waits_for_retry = false;
    return requested && signals.stop_requested();
}

/// A configuration that was staged while the plug-in was not running is activated first.
host_context::ended_run recording_session::run_once() {
    if (configurations_.pending() || latch_.reload_pending()) {
        context_.activate_configuration();
    }
    auto const begun_with = configurations_.snapshot();
    auto const ended = context_.run();
    if (ended.frames_arrived) {
        proven_ = begun_with;
    }
    return ended;
}

/// A LUT request must not end the recording.
/// \return whether the plug-in is to run again
bool recording_session::return_to_8_bits(host_context::ended_run const& ended) const {
    if (!ended.refused_12_bits || !is_configuration_refused(ended.exit_code)) {
        return false;
    }
    log_warning(
        "SIGUSR2 refused: the camera has no 12-bit format; recording continues in the configured format. SIGUSR1"
        " calculates a LUT from 8 bits");
    return true;
}

/// Rolls back a reload that the camera refuses, if the recording worked before it.
/// \return whether the plug-in is to run again
bool recording_session::roll_back(host_context::ended_run const& ended) {
    bool const refused = is_configuration_refused(ended.exit_code);
    if (!refused || ended.frames_arrived || proven_ == nullptr || proven_ == configurations_.snapshot()) {
        return false;
    }
    log_error(fmt::format("{} (exit code {}): rolling back to the configuration before the reload",
                          meaning_of(ended.exit_code), ended.exit_code));
    configurations_.rollback(std::exchange(proven_, nullptr));
    return true;
}

/// Writes all frames that wait, ends everything else, logs the summary, and determines the exit status. Until the
/// frames are written, SIGINT and SIGTERM stay blocked: a further one must not end the process before.
exit_status recording_session::finish(exit_status status) {
    ending_ = true;
    if (pipeline_ != nullptr) {
        pipeline_->hurry();
    }
    exporter_.finish();
    auto const held = pretrigger_ == nullptr ? pretrigger_recorder::figures() : pretrigger_->finish();
    signal_watch::restore_default();
    bool const pipeline_ended = pipeline_ == nullptr || pipeline_->finish();
    stop_listening();
    monitoring_.finish();
    report_.stop();
    auto figures = report_.figures();
    if (pretrigger_ != nullptr) {
        figures.outcome = fmt::format("buffered, {} of them saved in {} recordings", held.saved, held.recordings);
        figures.bytes = held.bytes;
    }
    log_lines(summary_text(figures, place_.string()), log_info);
    log_each(context_.delivery().differences(), log_warning);
    bool const all_saved = pipeline_ended && held.dropped_write_error == 0 && figures.dropped_queue_full == 0 &&
                           figures.dropped_write_error == 0 && figures.saved >= figures.wanted;
    return status == exit_status::success && !all_saved ? exit_status::frames_lost : status;
}

/// Called on the signal thread while the plug-in's thread is blocked inside the plug-in. Saves everything that has
/// arrived, and ends the process without returning to that thread.
void recording_session::exit_without_plugin(char const* reason) {
    log_warning(fmt::format("{}: exiting without it", reason));
    exit_status const status = finish(exit_status::unresponsive);
    close_log();
    flush_standard_output_if_free();
    _exit(static_cast<int>(status));
}

/// Reads and checks the file on the calling thread, so that the plug-in's thread does not wait for a disk.
/// \return the number of the staged change, nothing if the file has errors
std::optional<std::uint64_t> recording_session::reload() {
    try {
        auto loaded = read_();
        log_each(remarks(loaded), log_warning);
        report_changes(loaded.values);
        return configurations_.stage(std::move(loaded.values));
    } catch (configuration_error const& error) {
        log_lines(error.what(), log_error);
        log_error("configuration not reloaded; the previous one stays active");
    } catch (std::exception const& error) {
        log_error(fmt::format("configuration not reloaded: {}; the previous one stays active", error.what()));
    }
    configurations_.stage_refusal();
    return std::nullopt;
}

void recording_session::report_changes(configuration const& next) const {
    auto const before = configurations_.latest();
    auto running = changed_keys(before, next, change_effect::live_update);
    auto const reconfigured = changed_keys(before, next, change_effect::reconfiguration);
    running.insert(running.end(), reconfigured.begin(), reconfigured.end());
    auto const restart = changed_keys(before, next, change_effect::restart);
    auto const next_start = changed_keys(first_, next, change_effect::next_start);
    bool const any = !running.empty() || !restart.empty();
    log_info(fmt::format("reload: {}{}", any ? "changed" + listed(running) + listed(restart) : "no changes",
                         restart.empty() ? "" : "; restarting acquisition"));
    if (!next_start.empty()) {
        log_warning(fmt::format("reload: these keys take effect at the next start:{}", listed(next_start)));
    }
}

/// Logs at most one message per second: a full disk fails for every frame.
void recording_session::report_failure(frame_record const& frame, std::string const& why) {
    auto const now = std::chrono::steady_clock::now().time_since_epoch();
    auto const ticks = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    if (ticks < next_failure_report_) {
        return;
    }
    next_failure_report_ = ticks + std::chrono::nanoseconds(failure_report_interval).count();
    log_error(fmt::format("frame {} was not saved: {}", frame.number, why));
}

}  // namespace mediagrabber
