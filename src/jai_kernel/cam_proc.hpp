#pragma once
#include <PvTypes.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

class PvBuffer;
class PvDeviceInfo;
class PvGenParameterArray;

namespace Vorn::Support::MediaGrabber::Jai {

class buffer_factory;
class camera;
class property_bag;

/// Memory from `malloc` for the look-up table calculated from the picture.
struct free_memory {
    void operator()(void* memory) const { std::free(memory); }
};

/// The kernel: configures one camera, grabs from it, follows the host's requests and restores the camera.
///
/// One object per kernel run. Its fields are the state that the steps share; each step lives in the file that its
/// concern names. Sizes are bytes, times microseconds, geometry pixels.
class CCamProc {
public:
    // ---- Runs (grab_run.cpp, grab_loop.cpp) -----------------------------------------------------
    /// Runs the loop, and again as long as a dynamic look-up table asks for it. \return the last loop's exit code
    int ProcOnce(camera* cam, PvDeviceInfo const* info, buffer_factory* factory);
    /// Configures, grabs until told to stop, restores. \return 0, -1 host buffers unusable, -2 configuration failed,
    /// -10 sustained frame loss or an exception, else the result of the signal that stopped it
    int ProcLoop(camera* cam, PvDeviceInfo const* info, buffer_factory* factory);

    // ---- Camera configuration (camera_config.cpp, pixel_format.cpp, chunk_config.cpp) -----------
    /// Brings the camera into the host's configuration. `bufferCount`: wanted in, in force out.
    /// \return 0, -1 pixel format refused, else the result of `setupCam`
    int ProcSetCamConfig(camera* cam, PvDeviceInfo const* info, unsigned* bufferCount);
    /// Applies what can also change while grabbing. \return 0, -1 when a lost camera could not be connected again
    int setupCam(camera* cam, bool restartCapture, bool full);
    /// Sets the format of `*code` on the camera (null: only the outputs are filled); a refused 12-bit format becomes
    /// Mono8. Outputs may be null. \return 0, -1 when the code is unknown or the camera refuses it
    int ProcSetPixelFormat(camera* cam, PvGenParameterArray* params, unsigned char* code, unsigned char* containerBits,
                           unsigned char* significantBits, PvPixelType* type, char const** name);
    /// Switches on the chunks of gain, exposure, timestamp and counter; `chunkMask` tells which of them took effect.
    void ProcSetCamConfigChunks(camera* cam, PvGenParameterArray* params);
    /// Switches off the chunks that were switched on and drains the stream.
    void ProcSetCamConfigEnd(camera* cam);

    void setupCamSensor(camera* cam, property_bag const& bag);
    bool testCamSensorChanged(camera* cam, property_bag const& bag);
    void setupCamGrabControl(camera* cam);
    void setupCamGpio(camera* cam);

    // ---- Frames (frame_memory.cpp, frame_chunks.cpp) --------------------------------------------
    /// Prepares the host's frame memory for frames of `size` bytes.
    void ProcInitMem(camera* cam, uint32_t size);
    /// Turns and converts the current frame as configured and makes what the host is to get pending.
    void ProcLoadFrames(camera* cam);
    /// Hands the pending frames to the host. \return 0, or what the host answered to the frame it refused
    int ProcLoopMem(uint64_t timestamp, uint32_t flag);
    /// Publishes the frame's values. \return the camera's timestamp of the frame in microseconds
    uint64_t ProcFrameChunks(camera* cam, PvBuffer* buffer);

    // ---- Signals (signals.cpp) ------------------------------------------------------------------
    void ProcLookSignal();
    int ProcSignalUsr(unsigned grabbed);
    /// Acts on the pending signal. `stop`, where not null, receives whether the run is to end, if a signal was pending.
    /// \return 0, or 1 when a failed reconfiguration ends the run
    unsigned ProcSignal(camera* cam, unsigned grabbed, bool* stop);

    // ---- Look-up tables, gamma, rotation (manual_lut.cpp, gamma_rotation.cpp, dynamic_lut.cpp) --
    /// Loads the host's table, or the dynamic one, into the camera. \return 1 loaded or switched off, 0 nothing done,
    /// -1 switching off failed, -2 a value was refused
    int setupCamLutManual(camera* cam, bool fromDynamic, bool restartCapture);
    void SetupCamGamma(camera* cam, bool restartCapture);
    void ProcParametrizeCamRotate(camera* cam);
    /// One step of the look-up table calculated from the picture; called for every good frame.
    void ProcDynamLut(camera* cam);

    // ---- State: pixel format --------------------------------------------------------------------
    uint8_t formatCode = 0;
    uint8_t containerBits = 0;
    uint8_t significantBits = 0;
    PvPixelType pixelType{};
    uint8_t isColor = 0;      ///< 1: the camera has three colour channels
    uint8_t lutBits = 0;      ///< bits of the output format
    uint8_t cdfBits = 0;      ///< bits of the pixels being grabbed
    uint8_t triggerFlag = 0;  ///< handed to the host with every frame

    // ---- State: geometry and frame memory -------------------------------------------------------
    uint32_t frameSize = 0;  ///< of one buffer
    uint32_t bufferCount = 0;
    uint32_t stride = 0;  ///< bytes a line
    uint32_t fullFrameSize = 0;
    int32_t instanceIndex = -1;  ///< memory instance that receives frames; -1 plain memory
    uint32_t instance0FrameSize = 0;
    uint32_t instance1FrameSize = 0;
    uint32_t instance1SetupSize = 0;
    uint8_t conversionFormat = 0;  ///< format code that frames are converted to, 0 none
    bool conversionActive = false;
    uint32_t conversionPixelType = 0;
    std::vector<uint8_t> convertedFrame;   ///< where frames are converted to; made once a run
    void const* instance0Frame = nullptr;  ///< waiting to be triggered
    void const* instance1Frame = nullptr;  ///< waiting to be triggered
    void* frameData = nullptr;             ///< pixels of the frame being handled

    // ---- State: time ----------------------------------------------------------------------------
    float frameRate = 0.0F;          ///< frames per second
    uint32_t framePeriod = 0;        ///< also every time budget of the loop
    uint32_t tickFrequency = 0;      ///< ticks a second of the camera's counter
    uint32_t latencyAdjustment = 0;  ///< added to host arrival times
    uint32_t secondAdjustment = 0;
    int32_t timestampAdjustment = 0;  ///< clock correction in ns/s; 0 stamps with host time

    // ---- State: values of the camera ------------------------------------------------------------
    uint32_t chunkMask = 0;   ///< chunks in force: 1 gain, 2 exposure, 4 timestamp, 8 counter
    float gainDb = 0.0F;      ///< last gain
    double exposure = 0.0;    ///< last exposure time
    int32_t exposureInt = 0;  ///< the same, truncated
    float currentGamma = 0.0F;
    int32_t gainMode = 0;      ///< sweep mode of the last set-up; 0 none yet
    int32_t exposureMode = 0;  ///< sweep mode of the last set-up; 0 none yet

    // ---- State: requests of the host ------------------------------------------------------------
    uint32_t signalCode = 0;  ///< pending signal
    uint32_t dynLutStep = 0;  ///< step of the dynamic look-up table, 0 idle
    uint32_t dynLutMode = 0;  ///< 0 normal, 6 in 12 bits for a dynamic look-up table, 7 on the way back from there
    std::unique_ptr<uint16_t[], free_memory> dynLut;  ///< 2^lutBits entries of 12 bits
    uint32_t dynLutEntries = 0;                       ///< entries of the table that `dynLut` holds
    std::unique_ptr<uint32_t[], free_memory> dynCdf;  ///< 2^cdfBits cumulative counts
    uint16_t const* lastLutData = nullptr;            ///< the host's table last loaded; tells a new one by its address
    uint8_t swRotate = 0;                             ///< 1: frames are turned by 180 degrees

private:
    void initConversion();
    void prepareConversion(camera* cam);
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
