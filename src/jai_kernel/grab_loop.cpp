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
#include "profile_ring.hpp"
#include "saturating_cast.hpp"
#include "timestamp_sync.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

// ---- Statics of the loop: they survive from one run to the next ---------------------------------

profile_ring _S_arProfResult;  ///< of the stream fetch, waiting included
profile_ring _S_arProfWrite;   ///< of handing a frame to the host's memory

timeval _S_gtv1;   ///< trigger start
timeval _S_gtv2;   ///< end of whatever is being measured
timeval _S_gtv3;   ///< loop start
timeval _S_gtvr1;  ///< fetch start
timeval _S_gtvr2;  ///< fetch end
timeval _S_gtvd;   ///< last difference

/// Where sustained loss is counted from.
struct drop_checkpoint {
    uint32_t _s_loopsLast;
    uint32_t _s_dropCntrLast;
};
drop_checkpoint _S_checkpoint;

/// The interval over which the rate of fetches is reported.
struct rate_report {
    time_t start_timeretres;
    time_t curnt_timeretres;
    int32_t frame_countretres;
};
rate_report _S_rateReport;

// ---- Constants ----------------------------------------------------------------------------------

constexpr uint32_t _S_fetchTimeoutMs = 1000;
constexpr time_t _S_rateReportSeconds = 60;
constexpr uint32_t _S_dropReportStep = 1000;
constexpr uint32_t _S_dropLossStep = 5000;
constexpr int _S_exitLoss = -10;
constexpr int32_t _S_framesArrive = 4;  ///< grab state for the host
constexpr double _S_noTemperature = -321.0;
constexpr uint32_t _S_userSignal2 = 4;

/// A 64-bit value as the messages' formats take it.
constexpr unsigned long long _T_print(uint64_t value) {
    return value;
}

uint64_t _T_microseconds(timeval const& time) {
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000 + static_cast<uint64_t>(time.tv_usec);
}

/// The microseconds part of `later` minus `earlier`. All time budgets judge by it, so a delay of whole seconds counts
/// by its remainder only.
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

/// One run of the loop over a configured camera. All messages carry the name of the operation that it is the body of.
///
/// The camera is asked for its features each time they are needed: a reload may have connected a lost camera again, and
/// a new connection has features of its own, or none.
class grab_loop {
public:
    grab_loop(CCamProc& kernel, camera& cam, uint32_t frameLimit, uint32_t bufferCount)
        : kernel_(kernel),
          cam_(cam),
          frameLimit_(frameLimit),
          bufferCount_(bufferCount),
          livenessDivisor_(livenessDivisor(kernel.frameRate)),
          sync_(kernel.framePeriod) {}

    /// Starts capture, grabs until told to stop, and reports. \return the run's exit code
    int run();

private:
    static constexpr mg_log_operation mgLogFunction{"ProcLoop"};

    /// A fetched block. Only with OK as the call's result is there a buffer.
    struct fetched {
        PvResult call;
        PvResult operation;
        PvBuffer* buffer = nullptr;
        PvImage* image = nullptr;  ///< null: no usable image
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
    void judgePace();
    void announce();
    void runDynamicLut();
    bool followSignal(fetched const& block);
    float temperature();
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
    uint32_t drops_ = 0;
    uint64_t frameTimestamp_ = 0;  ///< of the frame being handled; 0 for the first one, which has none
    bool depthSwitch_ = false;     ///< the run ends for a dynamic look-up table's switch of depth
    int exitCode_ = 0;
};

/// The host is told about 5 times in 3 seconds that frames arrive, or for every frame where they are rarer than that.
uint32_t grab_loop::livenessDivisor(float frameRate) {
    return frameRate <= 1.0F ? 1 : std::max(saturating_cast<uint32_t>(frameRate * 0.6F), 1U);
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
    MG_LOG_I("START GRABBING (bufferFrameSize %u, bNum %u, fNum %u, PID %u) ...\n", kernel_.frameSize, bufferCount_,
             frameLimit_, static_cast<unsigned>(getpid()));
    gettimeofday(&_S_gtv3, nullptr);
    startTime_ = static_cast<uint32_t>(_T_microseconds(_S_gtv3));
    cam_.ExStartCapture();
    MgGi__ResetTermSigProc();
}

/// The frames can't be trusted after an exception; capture is stopped, if the camera still listens.
void grab_loop::endWithException(char const* text) {
    exitCode_ = _S_exitLoss;
    MG_LOG_W("An unhandled exception occured (%i): %s\n", exitCode_, text);
    try {
        cam_.ExStopCapture();
    } catch (std::exception const& error) {
        MG_LOG_W("The device detach triggered an exception (%i): %s\n", exitCode_, error.what());
    } catch (...) {
        MG_LOG_W("The device detach triggered an exception (%i): %s\n", exitCode_, "unknown exception");
    }
}

/// \return whether to go on
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

/// A fetch that gave no usable image. \return whether to go on
bool grab_loop::handleDrop(fetched const& block) {
    MgGi__HaltUpdate(cam_.sensor->getW(), cam_.sensor->getH(), temperature());
    ++drops_;
    if (drops_ % _S_dropReportStep == 0) {
        MG_LOG_W("Frames Drop trigger: Loop_%u(ok_%u dropCntr_%u)\n", iterations_, goodFrames_, drops_);
        if (drops_ % _S_dropLossStep == 0 && isSustainedLoss(block)) {
            cam_.ExStopCapture();
            exitCode_ = _S_exitLoss;
            return false;
        }
        _S_checkpoint = {._s_loopsLast = iterations_, ._s_dropCntrLast = drops_};
    }
    if (block.call.IsOK() && block.buffer != nullptr) {
        cam_.stream->QueueBuffer(block.buffer);
    }
    return true;
}

/// Has every fetch since the checkpoint been a drop?
bool grab_loop::isSustainedLoss(fetched const& block) {
    PvResult const& failed = !block.call.IsOK() ? block.call : block.operation;
    PvString const description = failed.IsOK() ? PvString("non image payload") : failed.GetCodeString();
    MG_LOG_W("error description: %s\n", description.GetAscii());
    return iterations_ - _S_checkpoint._s_loopsLast <= drops_ - _S_checkpoint._s_dropCntrLast;
}

/// \return whether to go on
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
    return followSignal(block);
}

/// The first good frame only calibrates: it is neither handed to the host nor judged, and announces the next one only
/// where the host's clock alone tells when that will be.
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
    judgePace();
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

/// Hands the frame to the host's memory and has it exported.
void grab_loop::deliver() {
    uint64_t const timestamp = frameTimestamp_;
    kernel_.ProcLoadFrames(&cam_);
    gettimeofday(&_S_gtv1, nullptr);
    int const triggered = kernel_.ProcLoopMem(timestamp, kernel_.triggerFlag);
    uint32_t const triggerTime = _T_spent_since(_S_gtv1);
    _S_arProfWrite.add(triggerTime);
    if (triggerTime >= kernel_.framePeriod) {
        MG_LOG_W("Loop_%u(%u): Frame %llu export time budget is over (%uus >= %uus)\n", iterations_, goodFrames_,
                 _T_print(timestamp), triggerTime, kernel_.framePeriod);
    }
    MgSc__SetParamVal(12, &timestamp);
    if (triggered == 0) {
        MgSc__ProcExport(timestamp);
    }
    uint32_t const sceneTime = _T_spent_since(_S_gtvr2);
    if (sceneTime >= kernel_.framePeriod) {
        MG_LOG_I("Loop_%u(%u): Scene %llu export time budget is over (%uus >= %uus)\n", iterations_, goodFrames_,
                 _T_print(timestamp), sceneTime, kernel_.framePeriod);
    }
}

void grab_loop::judgePace() {
    auto const pace = sync_.judgePace(settings());
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

/// An armed cycle begins with the next good frame.
void grab_loop::runDynamicLut() {
    bool const armed = kernel_.dynLutStep == 1;
    kernel_.ProcDynamLut(&cam_);
    if (armed) {
        kernel_.dynLutStep = 2;
    }
}

/// Lets the pending signal act, then queues the buffer again. The buffer of the run's last frame stays out.
/// \return whether to go on
bool grab_loop::followSignal(fetched const& block) {
    bool stop = false;
    bool const depthSwitch = kernel_.signalCode == _S_userSignal2;
    exitCode_ = static_cast<int>(kernel_.ProcSignal(&cam_, goodFrames_, &stop));
    uint32_t const totalTime = _T_spent_since(_S_gtvr2);
    if (totalTime >= kernel_.framePeriod) {
        MG_LOG_I("total time budget is over (%uus >= %uus), frame %llu\n", totalTime, kernel_.framePeriod,
                 _T_print(frameTimestamp_));
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

/// \return degrees Celsius, or a value that no camera has when it can't be read
float grab_loop::temperature() {
    static PvString const _s_feature("DeviceTemperature");
    double celsius = _S_noTemperature;
    auto* const params = cam_.getDevParams();
    if (params == nullptr || !params->GetFloatValue(_s_feature, celsius).IsOK()) {
        celsius = _S_noTemperature;
    }
    return static_cast<float>(celsius);
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
        // Whatever else ended the run, it is not answered with another one.
        kernel_.dynLutStep = 0;
        kernel_.dynLutMode = 0;
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
        return -2;
    }
    MgGiMainCtx__SetBnum(buffers);
    ProcInitMem(cam, frameSize);
    if (MgGiMem__IsFactoryUsed() != 0 && factory->GetBuffer(cam->stream.get(), &frameSize, buffers) == nullptr) {
        MG_LOG_W("SetUserBuffers error (bufferFrameSize %u, bNum %u)\n", frameSize, buffers);
        return -1;
    }
    return grab_loop(*this, *cam, frameLimit, buffers).run();
}

}  // namespace Vorn::Support::MediaGrabber::Jai
