// SPDX-License-Identifier: MIT
#include <PvBuffer.h>
#include <PvGenParameterArray.h>
#include <PvStream.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "cam_proc.hpp"
#include "jai_camera/camera.hpp"
#include "jai_factory/buffer_factory.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"
#include "mg_log_records.hpp"
#include "profile_ring.hpp"
#include "saturating_cast.hpp"
#include "timestamp_sync.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

using mg_host_api::exit_code;
using mg_host_api::param_number;

// ---- Statics: they keep their values from one run to the next -----------------------------------

profile_ring _S_arProfResult;  ///< of the stream fetch, waiting included
profile_ring _S_arProfWrite;   ///< of triggering a frame into the host's memory

timeval _S_gtv1;   ///< trigger start
timeval _S_gtv2;   ///< end of the current measurement
timeval _S_gtv3;   ///< loop start
timeval _S_gtvr1;  ///< fetch start
timeval _S_gtvr2;  ///< fetch end
timeval _S_gtvd;   ///< last difference

/// Start of the interval that decides about sustained loss.
struct drop_checkpoint {
    uint32_t _s_loopsLast;     ///< fetches up to it
    uint32_t _s_dropCntrLast;  ///< drops up to it
};
drop_checkpoint _S_checkpoint;

/// The interval over which the rate of fetches is reported.
struct rate_report {
    time_t start_timeretres;    ///< start of the interval, seconds since the epoch
    time_t curnt_timeretres;    ///< time of the last fetch
    int32_t frame_countretres;  ///< fetches in the interval
};
rate_report _S_rateReport;

// ---- Constants ----------------------------------------------------------------------------------

constexpr uint32_t _S_fetchTimeoutMs = 1000;  ///< longest wait for a frame
constexpr time_t _S_rateReportSeconds = 60;   ///< length of a rate report's interval
constexpr uint32_t _S_dropReportStep = 1000;  ///< drops from one report to the next
constexpr uint32_t _S_dropLossStep = 5000;    ///< drops from one check for sustained loss to the next
constexpr int32_t _S_framesArrive = 4;        ///< grab state "frames are arriving"
constexpr double _S_noTemperature = -321.0;   ///< degrees Celsius, below absolute zero: the temperature is unknown
constexpr float _S_livenessSeconds = 0.6F;    ///< between two liveness reports

/// Converts a 64-bit value to the type of the format "%llu".
constexpr unsigned long long _T_print(uint64_t value) {
    return value;
}

uint64_t _T_microseconds(timeval const& time) {
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000 + static_cast<uint64_t>(time.tv_usec);
}

/// \return the microseconds part of `later` minus `earlier`, without its seconds. All time budgets are checked against
///         this part.
uint32_t _T_spent(timeval const& later, timeval const& earlier) {
    _S_gtvd = MgUtl__TimeValDiff(&later, &earlier);
    return static_cast<uint32_t>(_S_gtvd.tv_usec);
}

uint32_t _T_spent_since(timeval const& earlier) {
    gettimeofday(&_S_gtv2, nullptr);
    return _T_spent(_S_gtv2, earlier);
}

void _T_print_profile(profile_ring const& ring) {
    for (size_t i = 0; i < ring.durations.size(); ++i) {
        MG_LOG_I("%u. %06u us\n", static_cast<unsigned>(i), ring.durations[i]);
    }
    MG_LOG_I("\n");
}

/// One run of the grabbing loop on a configured camera: the body of `CCamProc::ProcLoop`, under whose name it logs.
///
/// `CCamProc::ProcLoop` makes one object per run, calls `run` once and discards it. The kernel and the camera must
/// outlive it. It runs on the calling thread and does not throw. It must not keep pointers to the camera's features: a
/// reload may connect a lost camera again, and a new connection has its own features, or none.
class grab_loop {
public:
    grab_loop(CCamProc& kernel, camera& cam, uint32_t frameLimit, uint32_t bufferCount)
        : kernel_(kernel),
          cam_(cam),
          frameLimit_(frameLimit),
          bufferCount_(bufferCount),
          livenessDivisor_(livenessDivisor(kernel.frameRate)),
          sync_(kernel.framePeriod) {}

    /// Starts capture, grabs until the run ends, restores the camera and logs a summary.
    /// \return exit code of the run
    int run();

private:
    static constexpr mg_log_operation mgLogFunction{"ProcLoop"};

    /// A fetched block. It has a buffer only if the result of the call is OK.
    struct fetched {
        PvResult call;
        PvResult operation;
        PvBuffer* buffer = nullptr;
        PvImage* image = nullptr;  ///< null: the image is not usable
        uint64_t ticks = 0;        ///< the camera's counter after the fetch, 0 when it can't be read
    };

    static uint32_t livenessDivisor(float frameRate);
    void start();
    bool iterate();
    void fetch(fetched& block);
    void reportRate();
    bool handleDrop(fetched const& block);
    bool isSustainedLoss(fetched const& block);
    bool handleFrame(fetched const& block);
    void processFrame(timestamp_sync::arrival const& arrival, uint64_t ticks);
    void calibrate(timestamp_sync::arrival const& arrival, uint64_t ticks);
    void stamp(timestamp_sync::arrival const& arrival);
    void deliver();
    void evaluatePace();
    void announce();
    void runDynamicLut();
    bool handleSignal(fetched const& block);
    float temperature();
    bool exceedsBudget(uint32_t microseconds) const;
    timestamp_settings settings() const;
    void endWithException(char const* text);
    void finish();

    CCamProc& kernel_;
    camera& cam_;
    uint32_t const frameLimit_;  ///< good frames, 0 no limit
    uint32_t const bufferCount_;
    uint32_t const livenessDivisor_;
    timestamp_sync sync_;
    uint32_t startTime_ = 0;   ///< low 32 bits of microseconds
    uint32_t iterations_ = 0;  ///< fetches, good or not
    uint32_t goodFrames_ = 0;
    uint32_t drops_ = 0;           ///< fetches without a usable image
    uint64_t frameTimestamp_ = 0;  ///< of the current frame; 0 for the first one, which has none
    bool depthSwitch_ = false;     ///< the run ends because a dynamic LUT cycle switches the depth
    int exitCode_ = 0;
};

/// The host gets a liveness report about every 0.6 seconds, or for each good frame if frames are rarer.
/// \return good frames from one report to the next, at least 1
uint32_t grab_loop::livenessDivisor(float frameRate) {
    return frameRate <= 1.0F ? 1 : std::max(saturating_cast<uint32_t>(frameRate * _S_livenessSeconds), 1U);
}

int grab_loop::run() {
    start();
    try {
        while (iterate()) {
        }
    } catch (std::exception const& error) {
        endWithException(error.what());
    } catch (...) {
        endWithException("unknown exception");
    }
    finish();
    return exitCode_;
}

void grab_loop::start() {
    if (kernel_.framePeriod == 0) {
        MG_LOG_W("The camera's frame rate is 0 or can't be read: time budgets are not checked\n");
    }
    MG_LOG_I("START GRABBING (bufferFrameSize %u, bNum %u, fNum %u, PID %u) ...\n", kernel_.frameSize, bufferCount_,
             frameLimit_, static_cast<unsigned>(getpid()));
    gettimeofday(&_S_gtv3, nullptr);
    startTime_ = static_cast<uint32_t>(_T_microseconds(_S_gtv3));
    cam_.ExStartCapture();
    MgGi__ResetTermSigProc();
}

/// Logs the exception, sets the exit code and tries to stop capture.
void grab_loop::endWithException(char const* text) {
    exitCode_ = value_of(exit_code::grabbing_failed);
    MG_LOG_W("An unhandled exception occured (%i): %s\n", exitCode_, text);
    try {
        cam_.ExStopCapture();
    } catch (std::exception const& error) {
        MG_LOG_W("The device detach triggered an exception (%i): %s\n", exitCode_, error.what());
    } catch (...) {
        MG_LOG_W("The device detach triggered an exception (%i): %s\n", exitCode_, "unknown exception");
    }
}

/// \return whether the run continues
bool grab_loop::iterate() {
    fetched block;
    fetch(block);
    reportRate();
    kernel_.ProcLookSignal();
    ++iterations_;
    return block.image == nullptr ? handleDrop(block) : handleFrame(block);
}

void grab_loop::fetch(fetched& block) {
    static PvString const _s_counter("GevTimestampValue");
    gettimeofday(&_S_gtvr1, nullptr);
    block.call = cam_.stream->RetrieveBuffer(&block.buffer, &block.operation, _S_fetchTimeoutMs);
    gettimeofday(&_S_gtvr2, nullptr);
    int64_t ticks = 0;
    auto* const params = cam_.getDevParams();
    if (params != nullptr && params->GetIntegerValue(_s_counter, ticks).IsOK()) {
        block.ticks = static_cast<uint64_t>(ticks);
    }
    _S_arProfResult.add(_T_spent(_S_gtvr2, _S_gtvr1));

    bool const arrived = block.call.IsOK() && block.operation.IsOK() && block.buffer != nullptr;
    if (arrived && block.buffer->GetPayloadType() == PvPayloadTypeImage) {
        block.image = block.buffer->GetImage();
    }
}

void grab_loop::reportRate() {
    auto& report = _S_rateReport;
    time_t const now = time(nullptr);
    if (iterations_ == 0) {
        report.start_timeretres = now;
    }
    report.curnt_timeretres = now;
    time_t const elapsed = report.curnt_timeretres - report.start_timeretres;
    if (elapsed < _S_rateReportSeconds) {
        ++report.frame_countretres;
        return;
    }
    MG_LOG_D("%s FPS: %d\n", "retres", static_cast<int>(report.frame_countretres / elapsed));
    report.frame_countretres = 1;
    report.start_timeretres = now;
}

/// Handles a fetch without a usable image.
/// \return whether the run continues
bool grab_loop::handleDrop(fetched const& block) {
    MgGi__HaltUpdate(cam_.sensor->getW(), cam_.sensor->getH(), temperature());
    ++drops_;
    if (drops_ % _S_dropReportStep == 0) {
        MG_LOG_W("%s: Loop_%u(ok_%u dropCntr_%u)\n", mg_log_records::drop_report, iterations_, goodFrames_, drops_);
        if (drops_ % _S_dropLossStep == 0 && isSustainedLoss(block)) {
            cam_.ExStopCapture();
            exitCode_ = value_of(exit_code::grabbing_failed);
            return false;
        }
        _S_checkpoint = {._s_loopsLast = iterations_, ._s_dropCntrLast = drops_};
    }
    if (block.call.IsOK() && block.buffer != nullptr) {
        cam_.stream->QueueBuffer(block.buffer);
    }
    return true;
}

/// Logs the cause of the last drop.
/// \return whether each fetch since the checkpoint was a drop
bool grab_loop::isSustainedLoss(fetched const& block) {
    PvResult const& failed = !block.call.IsOK() ? block.call : block.operation;
    PvString const description = failed.IsOK() ? PvString("non image payload") : failed.GetCodeString();
    MG_LOG_W("error description: %s\n", description.GetAscii());
    return iterations_ - _S_checkpoint._s_loopsLast <= drops_ - _S_checkpoint._s_dropCntrLast;
}

/// \return whether the run continues
bool grab_loop::handleFrame(fetched const& block) {
    MgGi__HaltStop(block.image->GetWidth(), block.image->GetHeight(), temperature());
    if (goodFrames_ % livenessDivisor_ == 0) {
        MgUtl__UpdateGrabState(_S_framesArrive);
    }
    uint64_t const ticks = block.ticks != 0 ? block.ticks : block.buffer->GetTimestamp();
    ++goodFrames_;
    kernel_.frameData = block.image->GetDataPointer();
    kernel_.ProcSignalUsr(goodFrames_);
    runDynamicLut();

    uint64_t const hostTime = _T_microseconds(_S_gtvr2);
    uint64_t const blockTimestamp = kernel_.ProcFrameChunks(&cam_, block.buffer);
    processFrame({.hostTime = hostTime, .blockTimestamp = blockTimestamp}, ticks);
    return handleSignal(block);
}

/// The first good frame only calibrates: it is neither delivered to the host nor checked for its pace. It announces the
/// next frame only in host time, because in camera time the interval is still unknown.
void grab_loop::processFrame(timestamp_sync::arrival const& arrival, uint64_t ticks) {
    if (goodFrames_ == 1) {
        calibrate(arrival, ticks);
        if (!settings().followsCamera()) {
            announce();
        }
        return;
    }
    stamp(arrival);
    deliver();
    evaluatePace();
    announce();
}

void grab_loop::calibrate(timestamp_sync::arrival const& arrival, uint64_t ticks) {
    auto const found = sync_.calibrate(settings(), arrival, startTime_, iterations_ - 1, ticks);
    MG_LOG_I("Init timings: latencyUs=%i, tsDiffAdjUs=%llu, diffCheck=%llu (btsFGotUs=%llu, btsFStartUs=%llu)\n",
             found.latency, _T_print(found.difference), _T_print(found.expectedDelay), _T_print(found.blockTimeAtFetch),
             _T_print(arrival.blockTimestamp));
}

void grab_loop::stamp(timestamp_sync::arrival const& arrival) {
    auto const stamped = sync_.stamp(settings(), arrival);
    if (stamped.wrapped) {
        MG_LOG_I("Loop_%u(%u): bTS wrap is detected: old %lluus, new %lluus\n", iterations_, goodFrames_,
                 _T_print(stamped.wrapped->oldTimestamp), _T_print(stamped.wrapped->newTimestamp));
    }
    if (stamped.initialised) {
        auto const& init = *stamped.initialised;
        MG_LOG_I("Loop_%u(%u): init TS trigger oldD=%llu, newD=%llu, oldFTS=%llu, newFTS=%llu\n", iterations_,
                 goodFrames_, _T_print(init.oldDifference), _T_print(init.newDifference), _T_print(init.oldTimestamp),
                 _T_print(init.newTimestamp));
    }
    frameTimestamp_ = stamped.timestamp;
}

/// Triggers the frame into the host's memory and exports it.
void grab_loop::deliver() {
    uint64_t const timestamp = frameTimestamp_;
    kernel_.ProcLoadFrames(&cam_);
    gettimeofday(&_S_gtv1, nullptr);
    int const triggered = kernel_.ProcLoopMem(timestamp, kernel_.triggerFlag);
    uint32_t const triggerTime = _T_spent_since(_S_gtv1);
    _S_arProfWrite.add(triggerTime);
    if (exceedsBudget(triggerTime)) {
        MG_LOG_W("Loop_%u(%u): Frame %llu export %s (%uus >= %uus)\n", iterations_, goodFrames_, _T_print(timestamp),
                 mg_log_records::budget_exceeded, triggerTime, kernel_.framePeriod);
    }
    MgSc__SetParamVal(value_of(param_number::timestamp_us), &timestamp);
    if (triggered == 0) {
        MgSc__ProcExport(timestamp);
    }
    uint32_t const sceneTime = _T_spent_since(_S_gtvr2);
    if (exceedsBudget(sceneTime)) {
        MG_LOG_I("Loop_%u(%u): Scene %llu export %s (%uus >= %uus)\n", iterations_, goodFrames_, _T_print(timestamp),
                 mg_log_records::budget_exceeded, sceneTime, kernel_.framePeriod);
    }
}

void grab_loop::evaluatePace() {
    auto const pace = sync_.evaluatePace(settings());
    if (pace.fast) {
        MG_LOG_I("Loop_%u(%u): cam is Fast (%uus < %uus), TS readjusting...\n", iterations_, goodFrames_,
                 static_cast<unsigned>(pace.fast->delay), static_cast<unsigned>(pace.fast->bound));
    }
    if (pace.slow) {
        MG_LOG_I("Loop_%u(%u): cam is Slow or frames delaying (%u >= %u), TS readjusting...\n", iterations_,
                 goodFrames_, static_cast<unsigned>(pace.slow->delay), static_cast<unsigned>(pace.slow->bound));
    }
    if (pace.extraSlow) {
        MG_LOG_W("Loop_%u(%u): cam is extra-Slow or frames delay (%u >= %u), TS readjusting...\n", iterations_,
                 goodFrames_, static_cast<unsigned>(pace.extraSlow->delay),
                 static_cast<unsigned>(pace.extraSlow->bound));
    }
}

void grab_loop::announce() {
    auto const next = sync_.announce(settings());
    if (next.overflow) {
        MG_LOG_I("Loop_%u(%u): sync adjust us value %i overflow protection trigger\n", iterations_, goodFrames_,
                 *next.overflow);
    }
    MgGi__CommTriggerAll(next.timestamp, kernel_.latencyAdjustment, kernel_.secondAdjustment);
}

/// An armed cycle starts with the next good frame.
void grab_loop::runDynamicLut() {
    bool const armed = kernel_.dynLutStep == dyn_lut_step::armed;
    kernel_.ProcDynamLut(&cam_);
    if (armed) {
        kernel_.dynLutStep = dyn_lut_step::wait_two_frames;
    }
}

/// Handles the pending signal, then queues the buffer again. The buffer of the run's last frame is not queued.
/// \return whether the run continues
bool grab_loop::handleSignal(fetched const& block) {
    bool stop = false;
    bool const depthSwitch = kernel_.signalCode == signal_code::user_2;
    exitCode_ = static_cast<int>(kernel_.ProcSignal(&cam_, goodFrames_, &stop));
    uint32_t const totalTime = _T_spent_since(_S_gtvr2);
    if (exceedsBudget(totalTime)) {
        MG_LOG_I("total %s (%uus >= %uus), frame %llu\n", mg_log_records::budget_exceeded, totalTime,
                 kernel_.framePeriod, _T_print(frameTimestamp_));
    }
    if (stop) {
        depthSwitch_ = depthSwitch;
        return false;
    }
    if (frameLimit_ != 0 && goodFrames_ >= frameLimit_) {
        cam_.ExStopCapture();
        return false;
    }
    cam_.stream->QueueBuffer(block.buffer);
    return true;
}

/// \return temperature of the camera in degrees Celsius, or `_S_noTemperature`: it can't be read
float grab_loop::temperature() {
    static PvString const _s_feature("DeviceTemperature");
    double celsius = _S_noTemperature;
    auto* const params = cam_.getDevParams();
    if (params == nullptr || !params->GetFloatValue(_s_feature, celsius).IsOK()) {
        celsius = _S_noTemperature;
    }
    return saturating_cast<float>(celsius);
}

/// \return whether a step took a frame period or more; without a known period no step does
bool grab_loop::exceedsBudget(uint32_t microseconds) const {
    return kernel_.framePeriod != 0 && microseconds >= kernel_.framePeriod;
}

timestamp_settings grab_loop::settings() const {
    return {.latencyAdjustment = kernel_.latencyAdjustment,
            .secondAdjustment = kernel_.secondAdjustment,
            .clockCorrection = kernel_.timestampAdjustment,
            .tickFrequency = kernel_.tickFrequency,
            .framePeriod = kernel_.framePeriod,
            .frameRate = kernel_.frameRate};
}

void grab_loop::finish() {
    gettimeofday(&_S_gtv2, nullptr);
    MgGi__SetTermSigProc();
    if (!depthSwitch_) {
        // A dynamic LUT cycle continues in the next run only after a switch of depth: see `CCamProc::ProcOnce`.
        kernel_.abandonDepthSwitch();
        kernel_.dynLutStep = dyn_lut_step::idle;
        kernel_.dynLutMode = dyn_lut_mode::native;
    }
    if (frameLimit_ != 0 && exitCode_ == 0) {
        MgGi__SetNewCfgVendor();
        MgGi__SetNewCfgPlugin();
    }
    MG_LOG_I("...GRABBING IS DONE (captured %u frames of %u loops)\n", goodFrames_, iterations_);
    timeval const took = MgUtl__TimeValDiff(&_S_gtv2, &_S_gtv3);
    if (exitCode_ == 0) {
        kernel_.ProcSetCamConfigEnd(&cam_);
    }
    MG_LOG_I("Profiling info for RetrieveBuffer() (sleeping is accounted), currPos=%u\n", _S_arProfResult.currPos);
    _T_print_profile(_S_arProfResult);
    MG_LOG_I("Profiling info for file writing (buffered), currPos=%u\n", _S_arProfWrite.currPos);
    _T_print_profile(_S_arProfWrite);
    MG_LOG_I("Actual grabbing loop took: %llus %uus\n", _T_print(static_cast<uint64_t>(took.tv_sec)),
             static_cast<unsigned>(took.tv_usec));
    MG_LOG_I("grabbing loop is completed with exitCode =%u\n", static_cast<unsigned>(exitCode_));
}

}  // namespace

int CCamProc::ProcLoop(camera* cam, PvDeviceInfo const* info, buffer_factory* factory) {
    uint32_t const frameLimit = MgGiMainCtx__GetFnum();
    uint32_t buffers = MgGiMainCtx__GetBnum();
    if (ProcSetCamConfig(cam, info, &buffers) < 0) {
        MG_LOG_E("Device configuration error, finish loop\n");
        abandonDepthSwitch();
        return value_of(exit_code::configuration_failed);
    }
    MgGiMainCtx__SetBnum(buffers);
    ProcInitMem(cam, frameSize);
    if (MgGiMem__IsFactoryUsed() != 0 && factory->GetBuffer(cam->stream.get(), &frameSize, buffers) == nullptr) {
        MG_LOG_W("SetUserBuffers error (bufferFrameSize %u, bNum %u)\n", frameSize, buffers);
        abandonDepthSwitch();
        return value_of(exit_code::buffers_unusable);
    }
    return grab_loop(*this, *cam, frameLimit, buffers).run();
}

}  // namespace Vorn::Support::MediaGrabber::Jai
