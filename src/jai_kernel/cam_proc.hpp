// SPDX-License-Identifier: MIT
#pragma once
#include <PvImage.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "mg_host_api.hpp"

class PvBuffer;
class PvDeviceInfo;
class PvGenParameterArray;

namespace Vorn::Support::MediaGrabber::Jai {

class buffer_factory;
class camera;
class property_bag;

using mg_host_api::signal_code;
using mg_host_api::value_of;

/// Steps of a dynamic LUT cycle. A cycle lets two frames pass, then measures one and applies the LUT that follows from
/// it. The grabbing loop advances `armed` to `wait_two_frames`, `CCamProc::ProcDynamLut` makes all other steps.
enum class dyn_lut_step : uint32_t {
    idle = 0,
    armed = 1,
    wait_two_frames = 2,
    wait_one_frame = 3,
    compute = 4,
    apply = 5,
    finish = 8,
};

/// Depth of a dynamic LUT cycle. An 8-bit image is measured in 12 bits, which takes two restarts of capture.
enum class dyn_lut_mode : uint32_t {
    native = 0,          ///< the cycle measures the depth that is grabbed
    in_12_bits = 6,      ///< switched to 12 bits for the measurement
    back_to_8_bits = 7,  ///< measured; switching back to 8 bits
};

/// Kinds of chunk data, as bits of `CCamProc::chunkMask`.
enum class chunk_bit : uint32_t { gain = 1, exposure = 2, timestamp = 4, counter = 8 };

/// Deleter of the dynamic LUT's arrays. They come from `malloc`, which reports failure without an exception.
struct free_memory {
    void operator()(void* memory) const { std::free(memory); }
};

/// The kernel: configures one camera, grabs from it, handles the host's signals and restores the camera.
///
/// `Kernel__Run` makes one object for each run on a camera. The fields are the state that the steps share and that
/// survives from one loop run to the next; each step is a member, implemented in the file named after its concern. All
/// members run on the thread that called `MgLibProc`; nothing is locked. The `camera` passed to the members is the same
/// one each time and must outlive the call. Members report failures by result codes and log them; exceptions of the
/// feature blocks end a step, unless a comment states otherwise. Sizes are in bytes, times in microseconds, geometry in
/// pixels.
class CCamProc {
public:
    /// \name Runs (grab_run.cpp, grab_loop.cpp)
    /// \param cam connected camera
    /// \param info the camera's entry in the list of devices
    /// \param factory wraps the host's frame buffers
    /// @{

    /// Runs the loop, and repeats it for each switch of depth that a dynamic LUT cycle requires.
    /// \return the last loop's exit code, a value of `mg_host_api::exit_code`
    int ProcOnce(camera* cam, PvDeviceInfo const* info, buffer_factory* factory);
    /// Configures the camera, grabs until a signal, the frame limit or a failure ends the loop, restores the camera.
    /// \return 0 orderly end, 1 a reload failed and the host ended the run for it, -1 host buffers unusable,
    ///         -2 configuration failed, -10 sustained frame loss or an exception
    int ProcLoop(camera* cam, PvDeviceInfo const* info, buffer_factory* factory);

    /// @}
    /// \name Camera configuration (camera_config.cpp, pixel_format.cpp, chunk_config.cpp)
    /// @{

    /// Applies the host's configuration to the camera.
    /// \param bufferCount in: requested number of frame buffers, out: number in use
    /// \return 0, -1 the pixel format was refused or a lost camera could not be connected again
    int ProcSetCamConfig(camera* cam, PvDeviceInfo const* info, unsigned* bufferCount);
    /// Applies the settings that can change while grabbing. Connects a lost camera again first.
    /// \param restartCapture capture is running: stop it around writes that the camera refuses while it captures
    /// \param full also apply frame rate and rotation
    /// \return 0, -1 a lost camera could not be connected again
    int setupCam(camera* cam, bool restartCapture, bool full);
    /// Selects a pixel format. A camera that refuses a 12-bit format gets Mono8.
    /// \param cam null: fill the outputs, do not write to the camera
    /// \param code in: a `format_code`, out: the active one
    /// \param containerBits receives the bits of a pixel in memory; may be null, as the outputs that follow
    /// \param significantBits receives the bits of a pixel that carry data
    /// \param type receives the camera's value of the format
    /// \param name receives the codec
    /// \return 0, -1 the code is unknown or the camera refuses the format
    int ProcSetPixelFormat(camera* cam, PvGenParameterArray* params, unsigned char* code, unsigned char* containerBits,
                           unsigned char* significantBits, PvPixelType* type, char const** name);
    /// Enables the chunks of gain, exposure, timestamp and counter. `chunkMask` receives those that the camera enabled.
    void ProcSetCamConfigChunks(camera* cam, PvGenParameterArray* params);
    /// Disables the chunks that `ProcSetCamConfigChunks` enabled and drains the stream.
    void ProcSetCamConfigEnd(camera* cam);

    /// Applies a region of interest.
    /// \throws generic_error the region was refused
    void setupCamSensor(camera* cam, property_bag const& bag);
    /// \return whether the region in `bag` differs from the camera's
    bool testCamSensorChanged(camera* cam, property_bag const& bag);
    /// Applies the host's gain and exposure settings.
    /// \throws generic_error a setting was refused
    void setupCamGrabControl(camera* cam);
    /// Applies the host's settings of the output lines; logs failures.
    void setupCamGpio(camera* cam);

    /// @}
    /// \name Frames (frame_memory.cpp, frame_chunks.cpp)
    /// @{

    /// Prepares the host's frame memory.
    /// \param size of one buffer in bytes
    void ProcInitMem(camera* cam, uint32_t size);
    /// Rotates and converts the current frame as configured and makes the frames for the host pending.
    void ProcLoadFrames(camera* cam);
    /// Hands the pending frames to the host.
    /// \param timestamp of the frame, in microseconds on the host's time base
    /// \param flag passed on to the host
    /// \return 0, or the host's result for the frame that it refused
    int ProcLoopMem(uint64_t timestamp, uint32_t flag);
    /// Publishes gain, exposure time, ticks and counter of a frame.
    /// \return camera timestamp of the frame in microseconds
    /// \throws generic_error the exposure time can't be read
    uint64_t ProcFrameChunks(camera* cam, PvBuffer* buffer);

    /// @}
    /// \name Signals (signals.cpp)
    /// @{

    /// Polls the host's signal into `signalCode`.
    void ProcLookSignal();
    /// Handles user signal 1: arms a dynamic LUT cycle.
    /// \param grabbed good frames so far, for the message
    /// \return 0
    int ProcSignalUsr(unsigned grabbed);
    /// Handles any other pending signal.
    /// \param grabbed good frames so far, for messages
    /// \param stop receives whether the run ends, unless no signal was pending; may be null
    /// \return 0, 1 a reload failed and the host ended the run for it
    unsigned ProcSignal(camera* cam, unsigned grabbed, bool* stop);
    /// Requests the 8-bit format again if a run ends during the 12-bit part of a dynamic LUT cycle, so that a host that
    /// keeps the requested format is not left in 12 bits.
    void abandonDepthSwitch();

    /// @}
    /// \name LUT, gamma, rotation (manual_lut.cpp, gamma_rotation.cpp, dynamic_lut.cpp)
    /// @{

    /// Loads a LUT into the camera, or disables the camera's LUT if the host has none.
    /// \param fromDynamic load the dynamic LUT, not the host's
    /// \param restartCapture capture is running: stop it around the writes
    /// \return 1 loaded or disabled, 0 nothing done, -1 the LUT could not be disabled, -2 the camera refused a value
    int setupCamLutManual(camera* cam, bool fromDynamic, bool restartCapture);
    /// Applies the configured gamma; logs failures as warnings.
    /// \param restartCapture capture is running: stop it around the writes
    void SetupCamGamma(camera* cam, bool restartCapture);
    /// Reads the configured rotation into `swRotate`. The plug-in rotates the frames, not the camera.
    void ProcParametrizeCamRotate(camera* cam);
    /// Makes one step of the dynamic LUT cycle; called for every good frame.
    void ProcDynamLut(camera* cam);

    /// @}
    /// \name State: pixel format
    /// @{
    uint8_t formatCode = 0;  ///< active `format_code`
    uint8_t containerBits = 0;
    uint8_t significantBits = 0;
    PvPixelType pixelType{};
    uint8_t isColor = 0;      ///< 1: the camera has three colour channels
    uint8_t lutBits = 0;      ///< bits of the output format
    uint8_t cdfBits = 0;      ///< bits of the pixels being grabbed
    uint8_t triggerFlag = 0;  ///< handed to the host with every frame
    /// @}

    /// \name State: geometry and frame memory
    /// @{
    uint32_t frameSize = 0;  ///< of one buffer, chunks and padding included
    uint32_t bufferCount = 0;
    uint32_t stride = 0;         ///< bytes per line
    uint32_t fullFrameSize = 0;  ///< of the image alone
    int32_t instanceIndex = -1;  ///< memory instance that receives frames; -1 plain memory
    uint32_t instance0FrameSize = 0;
    uint32_t instance1FrameSize = 0;
    uint32_t instance1SetupSize = 0;
    uint8_t conversionFormat = 0;  ///< `format_code` that frames are converted to, 0 none
    bool conversionActive = false;
    uint32_t conversionPixelType = 0;
    std::vector<uint8_t> convertedFrame;   ///< output of the conversion; allocated once per run
    void const* instance0Frame = nullptr;  ///< pending for instance 0; borrowed until it is triggered
    void const* instance1Frame = nullptr;  ///< pending for instance 1; borrowed until it is triggered
    void* frameData = nullptr;             ///< pixels of the current frame, in the host's memory
    /// @}

    /// \name State: time
    /// @{
    float frameRate = 0.0F;      ///< frames per second
    uint32_t framePeriod = 0;    ///< also each time budget of the loop; 0: the rate is unknown, no budget is checked
    uint32_t tickFrequency = 0;  ///< of the camera's counter, ticks per second; 0: the counter is not usable
    uint32_t latencyAdjustment = 0;  ///< added to host arrival times
    uint32_t secondAdjustment = 0;
    int32_t timestampAdjustment = 0;  ///< clock correction in ns/s; 0 stamps with host time
    /// @}

    /// \name State: camera values
    /// @{
    uint32_t chunkMask = 0;   ///< enabled chunks, `chunk_bit` values
    float gainDb = 0.0F;      ///< last gain
    double exposure = 0.0;    ///< last exposure time
    int32_t exposureInt = 0;  ///< the same, truncated
    float currentGamma = 0.0F;
    int32_t gainMode = 0;      ///< sweep mode of the last set-up; 0 none yet
    int32_t exposureMode = 0;  ///< sweep mode of the last set-up; 0 none yet
    /// @}

    /// \name State: signals, dynamic LUT, rotation
    /// @{
    signal_code signalCode = signal_code::none;  ///< pending signal
    dyn_lut_step dynLutStep = dyn_lut_step::idle;
    dyn_lut_mode dynLutMode = dyn_lut_mode::native;
    std::unique_ptr<uint16_t[], free_memory> dynLut;  ///< 2^lutBits entries of 12 bits
    uint32_t dynLutEntries = 0;                       ///< entries of the LUT that `dynLut` holds
    std::unique_ptr<uint32_t[], free_memory> dynCdf;  ///< 2^cdfBits cumulative counts
    uint16_t const* lastLutData = nullptr;            ///< the host's LUT last loaded; a new one has another address
    uint8_t swRotate = 0;                             ///< 1: frames are rotated by 180 degrees
    /// @}

private:
    void initConversion();
    void prepareConversion(camera* cam, uint32_t size);
    bool convertFrame(camera* cam);
    bool disableChunks(PvGenParameterArray* params);
    void publishGainAndExposure(camera* cam);

    void pollDynamicConfig(camera* cam, unsigned grabbed);
    void finishWithSignal(camera* cam, unsigned grabbed);
    unsigned reconfigure(camera* cam, unsigned grabbed, bool* stop);
    bool switchDepth(camera* cam, unsigned grabbed);

    void reportDevice(camera* cam, PvDeviceInfo const* info);
    void reportCurrentSettings(camera* cam);
    void readTickFrequency(PvGenParameterArray* params);
    bool selectPixelFormat(camera* cam);
    void configureRegion(camera* cam);
    void computeFrameSize(camera* cam);
    void capBufferCount(camera* cam, unsigned* bufferCount);
    void computeGeometry(camera* cam);
    void publishGeometry(camera* cam);
    bool ensureConnected(camera* cam);
    void configureFrameRate(camera* cam);
    void readFrameRate(camera* cam);
    void takeFrameRate(double rate);
    void reportNewSettings(camera* cam);
    void selectTimestampMode();

    int disableLut(camera* cam, bool active, bool restartCapture);
    int loadHostLut(camera* cam, uint16_t const* data, bool restartCapture);
    int loadDynamicLut(camera* cam, bool restartCapture);
    int writeLut(camera* cam, uint32_t const* table, unsigned configuredValues, uint32_t start, bool restartCapture);
    bool writeLutChannels(camera* cam, uint32_t const* table);
    void computeDynamicLut(camera* cam);
    bool allocateDynamicLut();
    void applyDynamicLut(camera* cam);
    void finishDynamicLut();
};

}  // namespace Vorn::Support::MediaGrabber::Jai
