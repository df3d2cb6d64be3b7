// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The C interface between a media-grabber host and the plug-in: the symbols that the plug-in exports, the functions
/// that the host exports, and the numbers that both use.
///
/// The host exports every function below the plug-in's own (link the host with `-rdynamic`). The plug-in leaves them
/// undefined; the dynamic loader resolves each of them in the host process at its first call. The plug-in calls host
/// functions only from the thread that called `MgLibProc`. Unless a name or a comment states otherwise, times are in
/// microseconds, sizes in bytes, image geometry in pixels and frame rates in frames per second. A getter returns the
/// configured value; it has no error result.

#include <sys/time.h>

#include <cstdint>
#include <type_traits>

/// The numbers of the interface. Functions take and return them as plain integers, see `value_of`.
namespace mg_host_api {

/// Results of `MgLibProc`.
enum class exit_code : int32_t {
    orderly_end = 0,            ///< a stop signal, the frame limit or a reload that needs a new run
    reload_failed = 1,          ///< a reload failed and the host ended the run for it
    no_device = 2,              ///< no camera found on any interface
    no_target = 3,              ///< cameras found, but none that matches the configured one
    buffers_unusable = -1,      ///< the host's frame buffers are missing, too small or not equally spaced
    configuration_failed = -2,  ///< the camera refused the pixel format, or the connection was lost
    camera_unavailable = -5,    ///< the connection to the camera or its stream could not be opened
    grabbing_failed = -10,      ///< sustained frame loss, or an exception while grabbing
};

/// Signals that the host passes to a running plug-in, see `MgUtl__CheckSignal`.
enum class signal_code : int32_t {
    none = 0,
    stop = 1,              ///< end the run
    reload = 2,            ///< load the new configuration
    user_1 = 3,            ///< calculate a LUT from the image, in the depth being grabbed
    user_2 = 4,            ///< calculate a LUT from the image, measured in 12 bits
    stop_second_kind = 5,  ///< end the run, as `stop`; the host learns which of the two it was
};

/// Values that the plug-in publishes with `MgSc__SetParamVal` and `MgSc__InstSetParamVal`. Other numbers are unused.
enum class param_number : uint32_t {
    width = 1,              ///< uint32_t, pixels
    height = 2,             ///< uint32_t, pixels
    format_name = 4,        ///< text: the codec, "MONO8T", "MONO12PT", "MONO12T" or "BayerRG8T"
    gain_db = 6,            ///< float, dB
    exposure_us = 7,        ///< float, microseconds
    stride = 8,             ///< uint32_t, bytes per line
    camera_ticks = 9,       ///< uint64_t, ticks of the camera's counter
    exposure_counter = 10,  ///< uint32_t, exposures since the camera's counter was reset
    timestamp_us = 12,      ///< uint64_t, microseconds on the host's time base
};

/// Pixel formats, in the spelling of GenICam's "PixelFormat" feature.
enum class format_code : uint8_t {
    none = 0,
    Mono8 = 1,
    Mono12Packed = 2,  ///< GigE Vision packing: two pixels in three bytes
    Mono12 = 3,        ///< 12 significant bits in 16
    BayerRG8 = 9,
};

/// \return the integer that stands for `enumerator` on the C interface
template <typename enumeration>
constexpr std::underlying_type_t<enumeration> value_of(enumeration enumerator) {
    return static_cast<std::underlying_type_t<enumeration>>(enumerator);
}

}  // namespace mg_host_api

#pragma GCC visibility push(default)
extern "C" {

/// \name Exported by the plug-in
/// @{

/// Makes one grabbing run: finds the configured camera, grabs until the run ends, restores its chunk settings. Blocks
/// for the length of the run. Set the three log variables first. Not re-entrant.
/// \return an `mg_host_api::exit_code`: 0 orderly end, 1 a reload failed and the host ended the run for it, 2 no device
///         found, 3 target device not found, -1 host buffers unusable, -2 camera configuration failed, -5 camera could
///         not be opened, -10 sustained frame loss or an exception
int32_t MgLibProc();

/// \return the plug-in's version: the release, "-" and the 40 hexadecimal digits of the source revision
char const* MgLibGetVer();

/// Entry point of the shared object when it is started as a program: prints the version and ends the process.
void LibEntry();

extern uint32_t gMgLogIdLib;     ///< instance number, part of the system log's ident
extern uint32_t gMgLogLevelLib;  ///< 0 nothing, 1 errors, 2 and warnings, 3 and info, 4 and debug
extern uint32_t gMgLogModeLib;   ///< bit mask of sinks: 1 standard output, 2 system log

/// @}
/// \name Configuration: camera selection
/// @{

/// \return model name of the camera, or null: the mask alone selects
char const* MgGiMainCtx__GetModelStr();
/// \return serial number of the camera; null or empty: any
char const* MgGiMainCtx__GetIdStr();
/// \return bit mask; bit i selects the camera at index i (modulo 32) of the list of all cameras found
uint32_t MgGiMainCtx__GetActiveCamMask();

/// @}
/// \name Configuration: geometry, format, frame rate, transport
/// @{

/// \return width of the region in pixels, -1: not configured
int32_t MgGiMainCtx__GetWidth();
/// \return height of the region in pixels, -1: not configured
int32_t MgGiMainCtx__GetHeight();
/// \return horizontal offset of the region in pixels, -1: not configured
int32_t MgGiMainCtx__GetOffsetX();
/// \return vertical offset of the region in pixels, -1: not configured
int32_t MgGiMainCtx__GetOffsetY();
/// \return pixel format, an `mg_host_api::format_code`
uint8_t MgGiMainCtx__GetFormat();
/// Overrides the configured pixel format until `MgLibProc` returns.
/// \param format an `mg_host_api::format_code`
void MgGiMainCtx__SetFormat(uint8_t format);
/// \return pixel format to convert frames to, an `mg_host_api::format_code`; 0: no conversion
uint8_t MgGiMainCtx__GetCformat();
/// \return 0: keep the present rotation, 2: rotate frames by 180 degrees, else: do not rotate
int32_t MgGiMainCtx__GetRotate();
/// \return GigE Vision packet size in bytes; above 9000: negotiate it with the camera
uint32_t MgGiMainCtx__GetDatachunk();
/// \return frame rate in frames per second, -1: not configured
float MgGiMainCtx__GetFps();
/// \return camera clock correction in nanoseconds per second; 0: stamp frames with host time
int32_t MgGiMainCtx__GetTsadjns();

/// @}
/// \name Configuration: exposure, gain, gamma
/// @{

/// \return manual exposure time in microseconds, -1: not configured
float MgGiMainCtx__GetExptMan();
/// \return manual gain in dB, -100: not configured
float MgGiMainCtx__GetGainMan();
/// \return target brightness of the automatic functions, a fraction from 0 to 1; -1: not configured
float MgGiMainCtx__GetAtbright();
/// \return lower limit of the automatic gain in dB, -100: neither limit is configured
float MgGiMainCtx__GetGainlimsLow();
/// \return upper limit of the automatic gain in dB
float MgGiMainCtx__GetGainlimsHigh();
/// \return lower limit of the automatic exposure time in microseconds, -1: neither limit is configured
float MgGiMainCtx__GetEtlimsLow();
/// \return upper limit of the automatic exposure time in microseconds
float MgGiMainCtx__GetEtlimsHigh();
/// \return 1: measure brightness in the area that the camera defines, else: unchanged
int32_t MgGiMainCtx__GetSweepProf();
/// \return 1: manual gain, 2: automatic gain, else: unchanged
int32_t MgGiMainCtx__GetSweepGainMod();
/// \return 1: manual exposure time, 2: automatic exposure time, else: unchanged
int32_t MgGiMainCtx__GetSweepEtimeMod();
/// \return 1: LUT and gamma are configured, else: unchanged
int32_t MgGiMainCtx__GetSweepLutMod();
/// \return gamma, -1: not configured, 1: no gamma
float MgGiMainCtx__GetGamma();

/// @}
/// \name Configuration: I/O lines and LUT
/// @{

/// \return number of configured I/O lines
uint32_t MgGiMainCtx__GetIoboxNum();
/// \param index of the I/O line, from 0
/// \return pin number; 5 "Out1" and 6 "Out2" can be configured
uint32_t MgGiMainCtx__GetIoboxPin(uint32_t index);
/// \param index of the I/O line, from 0
/// \return signal source: 1 low, 2 or 3 exposure active
uint32_t MgGiMainCtx__GetIoboxSrc(uint32_t index);
/// \param index of the I/O line, from 0
/// \return 1 not inverted, 2 inverted
uint32_t MgGiMainCtx__GetIoboxInv(uint32_t index);
/// \return number of LUT entries
uint16_t MgGiMainCtx__GetLutArrCount();
/// \return bits of each LUT entry
uint16_t MgGiMainCtx__GetLutBitSize();
/// \return LUT entries, or null: no LUT is configured. Valid for the whole run. The plug-in recognises a new LUT by its
///         address, so the host must not reuse the address of an array for other data.
uint16_t const* MgGiMainCtx__GetLutDataU16();

/// @}
/// \name Configuration: buffers and run length
/// @{

/// \return good frames after which the run ends, 0: no limit
uint32_t MgGiMainCtx__GetFnum();
/// \return requested number of frame buffers
uint32_t MgGiMainCtx__GetBnum();
/// \param count number of frame buffers in use, at most the requested number
void MgGiMainCtx__SetBnum(uint32_t count);

/// @}
/// \name Frame memory
/// The sizes may change from run to run; the setters below may come before the initialisation that they belong to.
/// @{

/// Sets up the plain frame memory.
/// \param frameSize bytes that one buffer must hold
/// \param zero always 0
/// \param frameSizeAgain the same as `frameSize`
void MgGiMem__Init(uint32_t frameSize, uint32_t zero, uint32_t frameSizeAgain);
/// \param bytes of a frame, without padding and chunk data
void MgGiMem__SetActFsize(uint32_t bytes);
/// \return non-zero: the camera writes into the host's buffers
int MgGiMem__IsFactoryUsed();
/// \param index of the buffer, from 0
/// \return the buffer, or null: there is none. The distance from one buffer to the next is always the same.
void* MgGiMem__GetBufPtr(uint32_t index);
/// Sets up a memory instance.
/// \param instance 0 or 1
/// \param size bytes that one frame of the instance may have
/// \param zero always 0
void MgGiMemInst__Init(uint32_t instance, uint32_t size, uint32_t zero);
/// \param instance 0 or 1
/// \param bytes of a frame of the instance
void MgGiMemInst__SetActFsize(uint32_t instance, uint32_t bytes);
/// Hands one frame to the host.
/// \param instance 0 or 1
/// \param zero always 0
/// \param timestamp of the frame, in microseconds on the host's time base
/// \param frame its first pixel; valid until `MgSc__ProcExport` returns
/// \param flag reserved
/// \return 0: the host has taken the frame, else it is not exported
int MgGiMemInst__Trigger(uint32_t instance, uint32_t zero, uint64_t timestamp, void const* frame, uint8_t flag);

/// @}
/// \name Values and export
/// @{

// clang-format off
/// Publishes a value of the run or of the next frame to be exported.
///
/// | number | value                           | type behind `value`                                              |
/// |--------|---------------------------------|------------------------------------------------------------------|
/// | 1      | width in pixels                 | uint32_t                                                         |
/// | 2      | height in pixels                | uint32_t                                                         |
/// | 4      | codec: "MONO8T" ...             | char (the text); third argument: significant bits, uint32_t      |
/// | 6      | gain in dB                      | float                                                            |
/// | 7      | exposure time in microseconds   | float                                                            |
/// | 8      | bytes per line                  | uint32_t                                                         |
/// | 9      | camera timestamp in ticks       | uint64_t                                                         |
/// | 10     | exposure start counter          | uint32_t                                                         |
/// | 12     | frame timestamp in microseconds | uint64_t                                                         |
///
/// \param number an `mg_host_api::param_number`
/// \param value points to the value; valid during the call only
void MgSc__SetParamVal(uint32_t number, void const* value, ...);
// clang-format on

/// Publishes a value of a memory instance.
/// \param instance 0 or 1
/// \param number always 4, `mg_host_api::param_number::format_name`
/// \param value the codec of the instance's frames, a text; valid during the call only
void MgSc__InstSetParamVal(uint32_t instance, uint32_t number, void const* value);
/// Exports the frame that was handed over last.
/// \param timestamp of the frame, in microseconds on the host's time base
void MgSc__ProcExport(uint64_t timestamp);

/// @}
/// \name Control
/// @{

/// Polled once per fetch and once after each run. The plug-in handles the signal only if the fetch gives a good frame.
/// The host must report a signal until it has been handled.
/// \return the pending signal, an `mg_host_api::signal_code`
int32_t MgUtl__CheckSignal();
/// Loads the new configuration.
/// \param exitRequested receives non-zero when grabbing can't continue with it
/// \return 0: the new configuration is active, else it was rejected
int MgGi__DoReconfig(uint32_t* exitRequested);
/// Reports the signal for which the run ends.
/// \param signalCode an `mg_host_api::signal_code`
void MgGi__SetSignalAction(int32_t signalCode);
/// The four arguments are always null.
/// \return non-zero: settings changed that are applied while grabbing
int MgGi__CheckDynConfig(void*, void*, void*, void*);
/// Reports an end by stop signal or frame limit, before `MgGi__SetNewCfgPlugin`.
void MgGi__SetNewCfgVendor();
/// Reports an end by stop signal or frame limit, after `MgGi__SetNewCfgVendor`.
void MgGi__SetNewCfgPlugin();
/// Reports that the camera has started to capture.
void MgGi__ResetTermSigProc();
/// Reports that grabbing has ended.
void MgGi__SetTermSigProc();
/// Reports a fetch without a usable image.
/// \param width configured, in pixels
/// \param height configured, in pixels
/// \param temperature of the camera in degrees Celsius, -321: unknown
void MgGi__HaltUpdate(uint32_t width, uint32_t height, float temperature);
/// Reports a good image.
/// \param width of the image in pixels
/// \param height of the image in pixels
/// \param temperature of the camera in degrees Celsius, -321: unknown
void MgGi__HaltStop(uint32_t width, uint32_t height, float temperature);
/// \param state always 4: frames are arriving
void MgUtl__UpdateGrabState(int32_t state);
/// \param period active frame period in microseconds
void MgGi__SetCurrFpsUs(uint32_t period);
/// Announces the next frame.
/// \param nextTimestamp its expected timestamp, in microseconds on the host's time base
/// \param latencyAdjustment in microseconds
/// \param secondAdjustment in microseconds
void MgGi__CommTriggerAll(uint64_t nextTimestamp, uint32_t latencyAdjustment, uint32_t secondAdjustment);
/// \param later end of the interval
/// \param earlier start of the interval
/// \return `later` minus `earlier`, with `tv_usec` from 0 to 999999
timeval MgUtl__TimeValDiff(timeval const* later, timeval const* earlier);

/// @}
/// \name Histogram-equalised LUT
/// @{

/// Counts the frame's pixel values.
/// \param frame its first pixel
/// \param width in pixels
/// \param height in pixels
/// \param rowLength distance from line to line in pixels
/// \param bits significant bits of a pixel
/// \param cdf receives 2^bits cumulative counts
/// \return ignored
int MgGi__CalcLutDynam(void const* frame, uint32_t width, uint32_t height, uint32_t rowLength, uint32_t bits,
                       uint32_t* cdf);
/// Derives a LUT from cumulative counts.
/// \param lutBits the LUT has 2^lutBits entries
/// \param cdf counts of `MgGi__CalcLutDynam`
/// \param valueBits bits of each entry
/// \param lut receives the entries
/// \return ignored
int MgGi__GetLutDynam(uint32_t lutBits, uint32_t const* cdf, uint32_t valueBits, uint16_t* lut);

/// @}

}  // extern "C"
#pragma GCC visibility pop
