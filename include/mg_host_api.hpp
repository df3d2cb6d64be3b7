#pragma once
/// \file
/// The functions that a media-grabber host exports and the plug-in calls, and the symbols that the plug-in exports.
///
/// All of them have C linkage. A host exports every function below (link it with `-rdynamic`); the plug-in leaves them
/// undefined and finds them in the process that loads it. They are called from the thread that called `MgLibProc` and
/// from no other. Times are in microseconds, sizes in bytes, image geometry in pixels, frame rates in frames per
/// second, unless a name or a comment says otherwise.

#include <sys/time.h>

#include <cstdint>

#pragma GCC visibility push(default)
extern "C" {

// ---- What the plug-in exports -------------------------------------------------------------------

/// One grabbing run: finds the configured camera, grabs until told to stop, restores the camera.
/// \return 0 after an orderly end, 2 no device found, 3 target device not found, -1 host buffers unusable,
///         -2 camera configuration failed, -5 camera could not be opened, -10 sustained frame loss or an exception
int32_t MgLibProc();
/// \return the plug-in's version, "0.37.28-" and the 40 hexadecimal digits of the source revision
char const* MgLibGetVer();
/// Program entry point of the shared object: prints the version and ends the process.
void LibEntry();

extern uint32_t gMgLogIdLib;     ///< instance number, part of the system log's ident
extern uint32_t gMgLogLevelLib;  ///< 0 nothing, 1 errors, 2 and warnings, 3 and info, 4 and debug
extern uint32_t gMgLogModeLib;   ///< bit mask of sinks: 1 standard output, 2 system log

// ---- Configuration: which camera ----------------------------------------------------------------

char const* MgGiMainCtx__GetModelStr();    ///< model name to look for, or null
char const* MgGiMainCtx__GetIdStr();       ///< serial number to look for; null or empty: any
uint32_t MgGiMainCtx__GetActiveCamMask();  ///< bit i selects the camera at list index i (modulo 32)

// ---- Configuration: geometry, format, rate, transport -------------------------------------------

int32_t MgGiMainCtx__GetWidth();              ///< pixels, -1 not configured
int32_t MgGiMainCtx__GetHeight();             ///< pixels, -1 not configured
int32_t MgGiMainCtx__GetOffsetX();            ///< pixels, -1 not configured
int32_t MgGiMainCtx__GetOffsetY();            ///< pixels, -1 not configured
uint8_t MgGiMainCtx__GetFormat();             ///< 1 Mono8, 2 Mono12Packed, 3 Mono12, 9 BayerRG8
void MgGiMainCtx__SetFormat(uint8_t format);  ///< overrides the format until `MgLibProc` returns
uint8_t MgGiMainCtx__GetCformat();     ///< format to convert frames to, coded as `MgGiMainCtx__GetFormat`; 0 none
int32_t MgGiMainCtx__GetRotate();      ///< 0 leave as it is, 2 turn frames by 180 degrees, else do not turn
uint32_t MgGiMainCtx__GetDatachunk();  ///< GigE Vision packet size; above 9000 it is negotiated with the camera
float MgGiMainCtx__GetFps();           ///< frames per second, -1 not configured
int32_t MgGiMainCtx__GetTsadjns();     ///< camera clock correction in ns/s; 0: frames are stamped with host time

// ---- Configuration: exposure and gain -----------------------------------------------------------

float MgGiMainCtx__GetExptMan();      ///< manual exposure time in microseconds, -1 not configured
float MgGiMainCtx__GetGainMan();      ///< manual gain in dB, -100 not configured
float MgGiMainCtx__GetAtbright();     ///< target brightness of the automatic functions as a fraction, -1 not configured
float MgGiMainCtx__GetGainlimsLow();  ///< lower limit of the automatic gain in dB, -100: neither limit is configured
float MgGiMainCtx__GetGainlimsHigh();  ///< upper limit of the automatic gain in dB
float MgGiMainCtx__GetEtlimsLow();     ///< lower limit of the automatic exposure in us, -1: neither limit is configured
float MgGiMainCtx__GetEtlimsHigh();    ///< upper limit of the automatic exposure in us
int32_t MgGiMainCtx__GetSweepProf();   ///< 1: measure brightness in the camera's own area
int32_t MgGiMainCtx__GetSweepGainMod();   ///< 1 manual gain, 2 automatic gain, else untouched
int32_t MgGiMainCtx__GetSweepEtimeMod();  ///< 1 manual exposure, 2 automatic exposure, else untouched
int32_t MgGiMainCtx__GetSweepLutMod();    ///< 1: look-up table and gamma are configured, else untouched
float MgGiMainCtx__GetGamma();            ///< gamma, -1 not configured, 1 switches gamma off

// ---- Configuration: I/O lines and look-up table -------------------------------------------------

uint32_t MgGiMainCtx__GetIoboxNum();                ///< number of configured lines
uint32_t MgGiMainCtx__GetIoboxPin(uint32_t index);  ///< pin number, 5 "Out1", 6 "Out2"
uint32_t MgGiMainCtx__GetIoboxSrc(uint32_t index);  ///< 1 low, 2 or 3 exposure active
uint32_t MgGiMainCtx__GetIoboxInv(uint32_t index);  ///< 1 not inverted, 2 inverted
uint16_t MgGiMainCtx__GetLutArrCount();             ///< entries of the look-up table
uint16_t MgGiMainCtx__GetLutBitSize();              ///< bits of each entry
/// \return the look-up table's entries, null when none is configured. The address of an array is never used again for
///         other data: the plug-in tells a new table by its address.
uint16_t const* MgGiMainCtx__GetLutDataU16();

// ---- Configuration: buffers and run length ------------------------------------------------------

uint32_t MgGiMainCtx__GetFnum();            ///< good frames after which the run ends, 0 no limit
uint32_t MgGiMainCtx__GetBnum();            ///< frame buffers wanted
void MgGiMainCtx__SetBnum(uint32_t count);  ///< frame buffers in use

// ---- Frame memory -------------------------------------------------------------------------------

void MgGiMem__Init(uint32_t frameSize, uint32_t zero, uint32_t frameSizeAgain);  ///< sets up plain frame memory
void MgGiMem__SetActFsize(uint32_t bytes);                                       ///< actual frame size
int MgGiMem__IsFactoryUsed();              ///< non-zero: the camera writes into the host's buffers
void* MgGiMem__GetBufPtr(uint32_t index);  ///< host buffer; the buffers are equally spaced
void MgGiMemInst__Init(uint32_t instance, uint32_t size, uint32_t zero);  ///< sets up memory instance 0 or 1
void MgGiMemInst__SetActFsize(uint32_t instance, uint32_t bytes);         ///< actual frame size of an instance
/// Hands one frame to the host. `frame` points to the first pixel, `timestamp` is on the host's time base in us.
/// \return 0 when the host has taken the frame
int MgGiMemInst__Trigger(uint32_t instance, uint32_t zero, uint64_t timestamp, void const* frame, uint8_t flag);

// ---- Values and export --------------------------------------------------------------------------

/// Publishes a value of the run or of the coming frame. `value` points to it; its type follows from the number:
/// | number | value | type |
/// |---|---|---|
/// | 1, 2 | width, height in pixels | uint32_t |
/// | 4 | name of the pixel format ("MONO8T" ...), the text itself; a third argument: significant bits | char, uint32_t
/// | | 6 | gain in dB | float | | 7 | exposure time in us | float | | 8 | bytes a line | uint32_t | | 9 | camera
/// timestamp in ticks | uint64_t | | 10 | exposure start counter | uint32_t | | 12 | frame timestamp in us | uint64_t |
void MgSc__SetParamVal(uint32_t number, void const* value, ...);
void MgSc__InstSetParamVal(uint32_t instance, uint32_t number, void const* value);  ///< number 4: the codec's name
void MgSc__ProcExport(uint64_t timestamp);  ///< exports the frame just triggered

// ---- Control ------------------------------------------------------------------------------------

/// \return the pending signal: 0 none, 1 and 5 stop, 2 reload, 3 user signal 1, 4 user signal 2
int32_t MgUtl__CheckSignal();
/// Loads the new configuration. `exitRequested` receives non-zero when grabbing can't go on with it.
/// \return 0 when the new configuration is in force
int MgGi__DoReconfig(uint32_t* exitRequested);
void MgGi__SetSignalAction(int32_t signalCode);        ///< how a signal was handled: the run ends for it
int MgGi__CheckDynConfig(void*, void*, void*, void*);  ///< non-zero: settings changed that apply while grabbing
void MgGi__SetNewCfgVendor();
void MgGi__SetNewCfgPlugin();
void MgGi__ResetTermSigProc();                                              ///< the camera has begun to capture
void MgGi__SetTermSigProc();                                                ///< grabbing has ended
void MgGi__HaltUpdate(uint32_t width, uint32_t height, float temperature);  ///< a fetch gave no usable image
void MgGi__HaltStop(uint32_t width, uint32_t height, float temperature);    ///< a good image arrived; degrees Celsius
void MgUtl__UpdateGrabState(int32_t state);                                 ///< 4: frames are arriving
void MgGi__SetCurrFpsUs(uint32_t period);                                   ///< frame period in force
/// Announces the timestamp expected for the next frame, with the latency and second adjustment in us.
void MgGi__CommTriggerAll(uint64_t nextTimestamp, uint32_t latencyAdjustment, uint32_t secondAdjustment);
timeval MgUtl__TimeValDiff(timeval const* later, timeval const* earlier);  ///< later minus earlier

// ---- Look-up table calculated from the picture --------------------------------------------------

/// Counts the frame's pixel values into `cdf`, 2^bits cumulative counts. `rowLength` is in pixels.
int MgGi__CalcLutDynam(void const* frame, uint32_t width, uint32_t height, uint32_t rowLength, uint32_t bits,
                       uint32_t* cdf);
/// Derives from `cdf` a table of 2^lutBits entries of `valueBits` bits each.
int MgGi__GetLutDynam(uint32_t lutBits, uint32_t const* cdf, uint32_t valueBits, uint16_t* lut);

}  // extern "C"
#pragma GCC visibility pop
