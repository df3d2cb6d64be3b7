// SPDX-License-Identifier: MIT
/// \file
/// A plug-in that follows a script instead of a camera. It calls the host as the real one does, and prints the host's
/// results on standard output, unbuffered. The script is in the environment variable FAKE_PLUGIN_SCRIPT; see
/// `script_of_run` for its form. Its verbs:
///
/// ~~~
/// image WIDTH HEIGHT CODEC [PADDING]  geometry and format of the frames that follow; padding in bytes per line
/// grab [INTERVAL_MS]                  frames until a stop, the frame limit or a configuration that needs a new run;
///                                     10 ms apart, which a busy disk keeps up with, unless given
/// frames COUNT [INTERVAL_MS]          that many good frames, signals do not end them
/// overwrite                           from now on, overwrite each buffer right after its frame was exported
/// convert CODEC                       from now on, also hand over converted frames, on instance 1
/// stubborn                            from now on, the camera keeps its gain, exposure time and frame rate
/// real_time                           from now on, the camera clock is the host's, in ticks of 10 us, and the next
///                                     timestamps follow it; without it, frames are 10 ms apart by any clock
/// fetches COUNT [INTERVAL_MS]         that many fetches without an image
/// await FILE                          fetches without an image until FILE exists; the path has no spaces
/// idle                                fetches without an image, endlessly
/// hang                                no calls, endlessly
/// wrong                               calls that a correct plug-in does not make
/// devices COUNT                       a report of that many cameras
/// exit CODE                           return CODE; without it, a run returns 0
/// ~~~

#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "mg_host_api.hpp"
#include "plugin_script.hpp"

uint32_t gMgLogIdLib = 0;
uint32_t gMgLogLevelLib = 0;
uint32_t gMgLogModeLib = 0;

namespace {

using fake_plugin::step;
using mg_host_api::param_number;
using mg_host_api::signal_code;

constexpr uint64_t tick_us = 10;  ///< of the camera clock

[[gnu::format(printf, 1, 2)]] void report(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout);
}

void pause_ms(long milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

struct image_format {
    uint32_t width = 64;
    uint32_t height = 48;
    uint32_t padding = 0;
    std::string codec = "MONO8T";

    uint32_t bits() const { return codec == "MONO12T" ? 16 : codec == "MONO12PT" ? 12 : 8; }
    uint32_t line() const { return (width * bits() + 7) / 8 + padding; }
    uint32_t bytes() const { return line() * height; }
};

/// One run: follows its script and holds the state of a plug-in.
class scripted_run {
public:
    int32_t follow(std::vector<step> const& steps);

private:
    void set_up();
    bool good_frame();
    void fill(uint8_t* slot) const;
    void hand_over(uint8_t* slot);
    void set_up_camera(bool with_frame_rate);
    void take_time();
    bool follow_signal(int32_t code);
    bool reconfigure();
    void grab(long interval_ms);
    void empty_fetch(long interval_ms);
    static void call_wrongly();
    static void report_devices(long count);

    image_format image_;
    std::string converted_codec_;
    bool overwrite_ = false;
    bool stubborn_ = false;
    bool real_time_ = false;
    uint64_t ticks_ = 0;  ///< of the last frame
    float gain_db_ = 1.5F;
    float exposure_us_ = 250.0F;
    uint32_t period_us_ = 10'000;
    bool set_up_ = false;
    uint32_t buffers_ = 0;
    uint32_t good_frames_ = 0;
    uint64_t next_timestamp_ = 1'700'000'000'000'000;
    std::vector<uint8_t> converted_;
};

/// Fills a frame so that a test recognises a mixture of two frames: byte i of good frame n is i * 7 + n * 13. The upper
/// four bits of a 16-bit pixel are 0.
void scripted_run::fill(uint8_t* slot) const {
    for (uint32_t i = 0; i < image_.bytes(); ++i) {
        slot[i] = static_cast<uint8_t>(i * 7 + good_frames_ * 13);
        if (image_.bits() == 16 && i % 2 == 1) {
            slot[i] &= 0x0F;
        }
    }
}

void scripted_run::set_up() {
    if (set_up_) {
        return;
    }
    set_up_ = true;
    uint32_t const bits = image_.bits() == 8 ? 8 : 12;
    uint32_t const line = image_.line();
    MgSc__SetParamVal(value_of(param_number::format_name), image_.codec.c_str(), bits);
    MgSc__SetParamVal(value_of(param_number::stride), &line);
    MgSc__SetParamVal(value_of(param_number::width), &image_.width);
    MgSc__SetParamVal(value_of(param_number::height), &image_.height);
    MgGiMemInst__SetActFsize(0, image_.bytes());
    buffers_ = MgGiMainCtx__GetBnum();
    MgGiMainCtx__SetBnum(buffers_);
    MgGiMem__Init(image_.bytes(), 0, image_.bytes());
    MgGiMem__SetActFsize(image_.bytes());
    if (!converted_codec_.empty()) {
        converted_.resize(image_.bytes() * 2);
        MgGiMemInst__Init(1, static_cast<uint32_t>(converted_.size()), 0);
        MgGiMemInst__SetActFsize(1, image_.bytes());
        MgSc__InstSetParamVal(1, value_of(param_number::format_name), converted_codec_.c_str());
    }
    report("buffers %u width %d format %u\n", buffers_, MgGiMainCtx__GetWidth(), unsigned{MgGiMainCtx__GetFormat()});
    set_up_camera(true);
    MgGi__SetCurrFpsUs(period_us_);
    MgGi__ResetTermSigProc();
}

/// Applies the manual values of the host; without them, the camera keeps the values of its start.
void scripted_run::set_up_camera(bool with_frame_rate) {
    constexpr int32_t manual = 1;
    if (stubborn_) {
        return;
    }
    if (MgGiMainCtx__GetSweepGainMod() == manual && MgGiMainCtx__GetGainMan() > -100.0F) {
        gain_db_ = MgGiMainCtx__GetGainMan();
    }
    if (MgGiMainCtx__GetSweepEtimeMod() == manual && MgGiMainCtx__GetExptMan() > 0.0F) {
        exposure_us_ = MgGiMainCtx__GetExptMan();
    }
    if (with_frame_rate && MgGiMainCtx__GetFps() > 0.0F) {
        period_us_ = static_cast<uint32_t>(1e6F / MgGiMainCtx__GetFps());
        MgGi__SetCurrFpsUs(period_us_);
    }
}

void scripted_run::hand_over(uint8_t* slot) {
    uint64_t const timestamp = next_timestamp_;
    int result = 0;
    if (!converted_codec_.empty()) {
        std::memset(converted_.data(), static_cast<int>(good_frames_ & 0xFFU), converted_.size());
        result = MgGiMemInst__Trigger(1, 0, timestamp, converted_.data(), 0);
    }
    result = result == 0 ? MgGiMemInst__Trigger(0, 0, timestamp, slot, 0) : result;
    MgSc__SetParamVal(value_of(param_number::timestamp_us), &timestamp);
    if (result == 0) {
        MgSc__ProcExport(timestamp);
    } else {
        report("refused %d\n", result);
    }
    if (overwrite_) {
        std::memset(slot, 0xEE, image_.bytes());
        std::fill(converted_.begin(), converted_.end(), uint8_t{0xEE});
    }
}

/// Sets the camera timestamp of the current frame: 10 ms after the last one, or now.
void scripted_run::take_time() {
    using std::chrono::steady_clock;
    auto const now = std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now().time_since_epoch());
    ticks_ = real_time_ ? static_cast<uint64_t>(now.count()) / tick_us : uint64_t{good_frames_} * 1000;
}

/// \return whether the run continues
bool scripted_run::good_frame() {
    set_up();
    int32_t const code = MgUtl__CheckSignal();
    MgGi__HaltStop(image_.width, image_.height, 36.5F);
    MgUtl__UpdateGrabState(4);
    ++good_frames_;
    auto* const slot = static_cast<uint8_t*>(MgGiMem__GetBufPtr(good_frames_ % buffers_));
    fill(slot);
    uint64_t const ticks_before = ticks_;
    take_time();
    MgSc__SetParamVal(value_of(param_number::gain_db), &gain_db_);
    MgSc__SetParamVal(value_of(param_number::exposure_us), &exposure_us_);
    MgSc__SetParamVal(value_of(param_number::camera_ticks), &ticks_);
    if (good_frames_ > 1) {
        hand_over(slot);
    }
    next_timestamp_ = real_time_ ? (2 * ticks_ - ticks_before) * tick_us : next_timestamp_ + 10'000;
    MgGi__CommTriggerAll(next_timestamp_, 0, 0);
    return follow_signal(code);
}

bool scripted_run::follow_signal(int32_t code) {
    auto const signal = static_cast<signal_code>(code);
    if (signal == signal_code::none) {
        if (MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr) != 0) {
            set_up_camera(false);
            report("small change: gain %.1f exposure %.1f bright %.2f level %u\n", double{MgGiMainCtx__GetGainMan()},
                   double{MgGiMainCtx__GetExptMan()}, double{MgGiMainCtx__GetAtbright()}, gMgLogLevelLib);
        }
        return true;
    }
    report("signal %d\n", code);
    if (signal == signal_code::reload) {
        return reconfigure();
    }
    bool const stop = signal == signal_code::stop || signal == signal_code::stop_second_kind;
    if (stop) {
        MgGi__SetSignalAction(code);
    }
    return !stop;
}

bool scripted_run::reconfigure() {
    uint32_t exit_requested = 0;
    int const result = MgGi__DoReconfig(&exit_requested);
    report("reconfigured %d exit %u width %d rate %.1f\n", result, exit_requested, MgGiMainCtx__GetWidth(),
           double{MgGiMainCtx__GetFps()});
    if (exit_requested != 0) {
        MgGi__SetSignalAction(value_of(signal_code::reload));
    } else if (result == 0) {
        set_up_camera(true);
    }
    return exit_requested == 0;
}

void scripted_run::grab(long interval_ms) {
    uint32_t const limit = MgGiMainCtx__GetFnum();
    while (good_frame() && (limit == 0 || good_frames_ < limit)) {
        pause_ms(interval_ms);
    }
    MgGi__SetTermSigProc();
    report("grabbed %u\n", good_frames_);
}

void scripted_run::empty_fetch(long interval_ms) {
    MgUtl__CheckSignal();
    MgGi__HaltUpdate(image_.width, image_.height, -321.0F);
    pause_ms(interval_ms);
}

void scripted_run::call_wrongly() {
    uint32_t exit_requested = 7;
    uint8_t stray[16] = {};
    report("no reload %d\n", MgGi__DoReconfig(&exit_requested));
    report("buffer %d\n", MgGiMem__GetBufPtr(100'000) == nullptr);
    MgGiMem__Init(4096, 0, 4096);
    report("instance %d\n", MgGiMemInst__Trigger(7, 0, 1, stray, 0));
    report("null %d\n", MgGiMemInst__Trigger(0, 0, 1, nullptr, 0));
    report("stray %d\n", MgGiMemInst__Trigger(0, 0, 1, stray, 0));
    MgSc__ProcExport(1);
    MgSc__SetParamVal(value_of(param_number::format_name), "NOSUCHFORMAT", uint32_t{8});
    report("pin %u\n", MgGiMainCtx__GetIoboxPin(99));
}

void scripted_run::report_devices(long count) {
    report("[FAKE:i]: Printing all the devices information found:\n");
    for (long i = 0; i < count; ++i) {
        report("[FAKE:i]: == %ld. Camera Device Information ==\n[FAKE:i]: ====\n", i);
        report("[FAKE:i]: \tDeviceModel        : Fake %ld\n[FAKE:i]: \tDeviceSerial       : F%03ld\n", i, i);
    }
    report("[FAKE:i]: fail: target device not found\n");
}

int32_t scripted_run::follow(std::vector<step> const& steps) {
    for (step const& now : steps) {
        if (now.verb == "image") {
            image_ = {.width = static_cast<uint32_t>(now.number(0, 64)),
                      .height = static_cast<uint32_t>(now.number(1, 48)),
                      .padding = static_cast<uint32_t>(now.number(3, 0)),
                      .codec = now.text(2, "MONO8T")};
        } else if (now.verb == "grab") {
            grab(now.number(0, 10));
        } else if (now.verb == "frames") {
            for (long i = 0; i < now.number(0, 1); ++i) {
                good_frame();
                pause_ms(now.number(1, 1));
            }
        } else if (now.verb == "overwrite") {
            overwrite_ = true;
        } else if (now.verb == "real_time") {
            real_time_ = true;
        } else if (now.verb == "stubborn") {
            stubborn_ = true;
        } else if (now.verb == "convert") {
            converted_codec_ = now.text(0, "MONO8T");
        } else if (now.verb == "fetches") {
            for (long i = 0; i < now.number(0, 1); ++i) {
                empty_fetch(now.number(1, 1));
            }
        } else if (now.verb == "await") {
            while (!std::filesystem::exists(now.text(0, ""))) {
                empty_fetch(1);
            }
        } else if (now.verb == "idle") {
            report("idle\n");
            while (true) {
                empty_fetch(5);
            }
        } else if (now.verb == "hang") {
            report("hang\n");
            while (true) {
                pause_ms(1000);
            }
        } else if (now.verb == "wrong") {
            call_wrongly();
        } else if (now.verb == "devices") {
            report_devices(now.number(0, 0));
        } else if (now.verb == "exit") {
            return static_cast<int32_t>(now.number(0, 0));
        } else {
            report("unknown verb %s\n", now.verb.c_str());
            std::abort();
        }
    }
    return 0;
}

}  // namespace

int32_t MgLibProc() {
    static std::size_t run = 0;
    char const* const script = std::getenv("FAKE_PLUGIN_SCRIPT");
    report("run %zu level %u mode %u instance %u\n", run, gMgLogLevelLib, gMgLogModeLib, gMgLogIdLib);
    return scripted_run().follow(fake_plugin::script_of_run(script == nullptr ? "grab" : script, run++));
}

char const* MgLibGetVer() {
    return "fake 1.0";
}
