#include "recording_session.hpp"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <sstream>
#include <utility>
#include <vector>

#include "configuration_file.hpp"
#include "configuration_schema.hpp"
#include "control_address.hpp"
#include "host_log.hpp"
#include "recording_place.hpp"
#include "running_change.hpp"
#include "thread_pace.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::seconds failure_report_interval{1};
constexpr std::chrono::seconds longest_follow{10};  ///< until the camera follows what an onlooker asks for

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

/// The plug-in may be writing to standard output at this moment, and may never end doing so.
void flush_standard_output_if_free() {
    if (ftrylockfile(stdout) == 0) {
        std::fflush(stdout);
        funlockfile(stdout);
    }
}

recording_format format_of(configuration const& chosen) {
    return {.kind = chosen.output,
            .compression = chosen.compression,
            .software = "mediagrabber " MEDIAGRABBER_VERSION,
            .model = chosen.model.value_or(std::string())};
}

}  // namespace

recording_session::recording_session(configuration_reader read, configuration first, plugin_library const& plugin)
    : read_(std::move(read)),
      first_(std::move(first)),
      configurations_(first_),
      onlookers_(first_),
      place_(recording_place(first_.directory, std::chrono::system_clock::now())),
      pipeline_(make_pipeline()),
      held_(make_held_frames()),
      recording_(held_ == nullptr ? std::make_unique<recording>(place_, format_of(first_)) : nullptr),
      sinks_({{"files", &files()}, {"pipeline", pipeline_.get()}}),
      exporter_(
          sink(), first_.export_buffers,
          [this](frame_record const& frame, std::string const& why) { report_failure(frame, why); },
          onlookers_.watchers()),
      intake_(&exporter_, first_.export_buffers + onlookers_.frames_kept(), first_.frames, progress_),
      context_(configurations_, latch_, intake_, progress_, plugin),
      report_(progress_, exporter_, first_.frames),
      service_(progress_, [this] { return progress_line(report_.figures()); }) {}

/// \return nothing when there is to be none
std::unique_ptr<pipeline_sink> recording_session::make_pipeline() const {
    if (!first_.pipeline) {
        return nullptr;
    }
    using seconds = std::chrono::duration<double>;
    return std::make_unique<pipeline_sink>(pipeline_sink::settings{.text = *first_.pipeline,
                                                                   .directory = place_,
                                                                   .retry_interval = seconds(first_.retry_interval_s),
                                                                   .longest_end = seconds(first_.grace_time_s)},
                                           [this] { return progress_.period_us.load(); });
}

/// \return nothing when frames are written as they come
std::unique_ptr<held_frames> recording_session::make_held_frames() {
    if (first_.keep_s == 0.0) {
        return nullptr;
    }
    return std::make_unique<held_frames>(
        held_frames::settings{
            .directory = place_,
            .make_recording = [this](std::filesystem::path const& place) -> std::unique_ptr<frame_sink_like> {
                return std::make_unique<recording>(place, format_of(first_));
            },
            .time = std::chrono::duration<double>(first_.keep_s),
            .spare_frames = first_.export_buffers,
            .keep_when_lost = first_.keep_when_lost},
        [this] { return progress_.period_us.load(); },
        [this] { return progress_.empty_fetches + exporter_.count().overrun; });
}

/// On the thread of the signals.
void recording_session::keep_frames() {
    if (held_ == nullptr) {
        log_warning("frames can't be kept: they are written as they come, output.keep_s is 0");
        return;
    }
    held_->ask("asked for");
}

frame_sink_like& recording_session::files() const {
    if (held_ != nullptr) {
        return *held_;
    }
    return *recording_;
}

/// What every frame goes to.
frame_sink_like& recording_session::sink() {
    if (pipeline_ != nullptr) {
        return sinks_;
    }
    return files();
}

exit_status recording_session::run() {
    log_info("recording to " + place_.string() + " with plug-in " + context_.plugin_version());
    listen();
    let_in_onlookers();
    work_promptly();
    exit_status const status = run_until_decided();
    signal_watch::restore_default();
    return finish(status);
}

/// A place that nobody asked for and that can't be had is no reason not to record.
void recording_session::listen() {
    if (first_.control_socket == "none") {
        return;
    }
    try {
        control_ = std::make_unique<control_server>(
            first_.control_socket ? std::filesystem::path(*first_.control_socket)
                                  : default_control_socket(first_.log_instance),
            [this](change_request const& wanted) {
                return change_while_running(wanted, configurations_, context_.changes(), latch_);
            });
        log_info("`mediagrabber set` reaches this recording at " + control_->path().string());
    } catch (std::runtime_error const& error) {
        if (first_.control_socket) {
            throw;
        }
        log_warning(std::string(error.what()) + "; `mediagrabber set` can't reach this recording");
    }
}

/// From here on they may ask and change.
void recording_session::let_in_onlookers() {
    if (!onlookers_.any()) {
        return;
    }
    onlookers_.listen([this] {
        auto const& values = configurations_.in_force();
        return wanted_output{.any = (values.log_sinks & 1U) != 0, .level = values.log_level};
    });
    context_.listen_to_log();
    onlookers_.open({.status = [this] { return status(); },
                     .controls = {.change =
                                      [this](change_request const& wanted) {
                                          return change_while_running(wanted, configurations_, context_.changes(),
                                                                      latch_);
                                      },
                                  .reload = [this] { return reload_and_wait(); },
                                  .calculate_table = [this](bool in_12_bits) { return calculate_table(in_12_bits); },
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
    found.running_s = seconds(now - begun_).count();
    found.good_frames = progress_.good_frames;
    found.capturing = progress_.capturing;
    found.period_us = progress_.period_us;
    if (found.good_frames != 0) {
        found.seconds_since_frame = seconds(now - last).count();
    }
    found.plugin_version = context_.plugin_version();
    found.directory = place_.string();
    found.instance = first_.log_instance;
    found.in_force = &configurations_.in_force();
    onlookers_.complete(found);
    return found;
}

change_answer recording_session::reload_and_wait() {
    auto const number = reload();
    latch_.raise(request::reload);
    if (!number) {
        return {.status = exit_status::usage, .lines = {"the configuration is faulty and not reloaded, see the log"}};
    }
    auto const outcome = context_.changes().wait_for(*number, longest_follow);
    if (!outcome.values) {
        return {.status = exit_status::timed_out, .lines = {"reloaded, but no frame has come since to confirm it"}};
    }
    return {.status = exit_status::success, .lines = {"reloaded, frames have come since"}};
}

change_answer recording_session::calculate_table(bool in_12_bits) {
    auto const before = context_.tone().current().calculations;
    latch_.raise(in_12_bits ? request::user_2 : request::user_1);
    if (!context_.tone().wait_for_calculation(before, longest_follow)) {
        return {.status = exit_status::timed_out, .lines = {"no look-up table has been calculated yet, see the log"}};
    }
    return {.status = exit_status::success, .lines = {"a look-up table was calculated from the picture"}};
}

/// As the signal does it; a second one would end the process without the plug-in.
change_answer recording_session::stop() {
    if (!stop_asked_.exchange(true)) {
        kill(getpid(), SIGTERM);
    }
    return {.status = exit_status::success, .lines = {"stopping"}};
}

void recording_session::stop_listening() {
    context_.changes().cancel();
    context_.tone().cancel();
    control_.reset();
    onlookers_.close();
}

exit_status recording_session::run_until_decided() {
    signal_watch signals(latch_, progress_, std::chrono::duration<double>(first_.grace_time_s),
                         {.reload = [this] { reload(); },
                          .keep = [this] { keep_frames(); },
                          .cut_short = [this](char const* why) { cut_short(why); }});
    restart_policy policy(first_.give_up_after);
    while (true) {
        auto const ended = run_once();
        if (!signals.stop_asked() && go_back(ended)) {
            continue;
        }
        auto const decision = policy.decide({.exit_code = ended.exit_code,
                                             .stop_requested = signals.stop_asked(),
                                             .frames_complete = intake_.complete(),
                                             .new_configuration = ended.signal == static_cast<int>(request::reload),
                                             .frames_arrived = ended.frames_arrived,
                                             .has_worked = proven_ == &configurations_.in_force()});
        if (*decision.reason != '\0') {
            log_warning(std::string(decision.reason) + " (exit code " + std::to_string(ended.exit_code) + ")");
        }
        if (decision.next == run_decision::step::end) {
            return decision.status;
        }
        if (decision.next == run_decision::step::wait_and_run_again &&
            signals.wait_for_stop_or_reload(std::chrono::duration<double>(first_.retry_interval_s)) &&
            signals.stop_asked()) {
            return exit_status::success;
        }
    }
}

/// What was offered while the plug-in was not running comes into force before it runs.
host_context::ended_run recording_session::run_once() {
    if (configurations_.waiting() || latch_.reload_pending()) {
        context_.take_configuration();
    }
    configuration const& begun_with = configurations_.in_force();
    auto const ended = context_.run();
    if (ended.frames_arrived) {
        proven_ = &begun_with;
    }
    return ended;
}

/// A new configuration that the camera does not take ends no recording that was going on with the old one.
bool recording_session::go_back(host_context::ended_run const& ended) {
    bool const refused = ended.exit_code == buffers_unusable || ended.exit_code == configuration_failed;
    if (!refused || ended.frames_arrived || proven_ == nullptr || proven_ == &configurations_.in_force()) {
        return false;
    }
    log_error(std::string(meaning_of(ended.exit_code)) + " (exit code " + std::to_string(ended.exit_code) +
              "): going back to the configuration before the reload");
    configurations_.go_back_to(*proven_);
    proven_ = nullptr;
    return true;
}

/// Waits for the disk and the pipeline, says what came of it, and judges.
exit_status recording_session::finish(exit_status status) {
    stop_listening();
    if (pipeline_ != nullptr) {
        pipeline_->hurry();
    }
    exporter_.finish();
    onlookers_.finish();
    bool const pipeline_ended = pipeline_ == nullptr || pipeline_->finish();
    auto const held = held_ == nullptr ? held_frames::figures() : held_->finish();
    report_.stop();
    auto figures = report_.figures();
    if (held_ != nullptr) {
        figures.kept_where = "held, " + std::to_string(held.kept) + " of them kept in " +
                             std::to_string(held.recordings) + " recordings";
        figures.bytes = held.bytes;
    }
    log_lines(summary_text(figures, place_.string()), log_info);
    bool const all_kept = pipeline_ended && held.not_written == 0 && figures.overrun == 0 && figures.not_written == 0 &&
                          figures.kept >= figures.wanted;
    return status == exit_status::success && !all_kept ? exit_status::frames_lost : status;
}

/// On the thread of the signals, while the plug-in's thread is somewhere inside the plug-in and can't be brought back:
/// everything is put in order around it, and the process ends.
void recording_session::cut_short(char const* reason) {
    signal_watch::restore_default();
    log_warning(std::string(reason) + ": ending without it");
    exit_status const status = finish(exit_status::cut_short);
    close_log();
    flush_standard_output_if_free();
    _exit(static_cast<int>(status));
}

/// Reads and checks the file here, on the thread of the signals, so that the plug-in's thread does not wait for a disk.
/// \return the number of the offer, nothing when the file is faulty
std::optional<std::uint64_t> recording_session::reload() {
    try {
        auto loaded = read_();
        log_each(remarks(loaded), log_warning);
        report_changes(loaded.values);
        return configurations_.offer(std::move(loaded.values));
    } catch (configuration_error const& error) {
        log_lines(error.what(), log_error);
        log_error("the configuration is not reloaded, the old one stays in force");
        configurations_.offer_refusal();
        return std::nullopt;
    }
}

void recording_session::report_changes(configuration const& next) const {
    auto const before = configurations_.latest();
    auto running = changed_keys(before, next, change_effect::small_change);
    auto const reconfigured = changed_keys(before, next, change_effect::reconfiguration);
    running.insert(running.end(), reconfigured.begin(), reconfigured.end());
    auto const new_run = changed_keys(before, next, change_effect::new_run);
    auto const next_start = changed_keys(first_, next, change_effect::next_start);
    bool const any = !running.empty() || !new_run.empty();
    log_info("reload: " + (any ? "changed" + listed(running) + listed(new_run) : "nothing has changed") +
             (new_run.empty() ? "" : "; another run begins with it"));
    if (!next_start.empty()) {
        log_warning("reload: these wait until mediagrabber is started again:" + listed(next_start));
    }
}

/// One message a second at most: a full disk fails for every frame.
void recording_session::report_failure(frame_record const& frame, std::string const& why) {
    auto const now = std::chrono::steady_clock::now().time_since_epoch();
    auto const ticks = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    if (ticks < next_failure_report_) {
        return;
    }
    next_failure_report_ = ticks + std::chrono::nanoseconds(failure_report_interval).count();
    log_error("frame " + std::to_string(frame.number) +
              (pipeline_ == nullptr && held_ == nullptr ? " is not on disk: " : " is not kept: ") + why);
}

}  // namespace mediagrabber
