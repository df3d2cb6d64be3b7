// SPDX-License-Identifier: MIT
/// \file
/// A minimal host. It grabs 8-bit frames from the first camera that the plug-in finds, with the camera's own settings,
/// and writes each frame to a PGM file.
///
///     example_host PLUGIN FRAMES DIRECTORY
///
/// To write your own host, copy it and change what its functions return. Exit status: 0 all frames are written, 1 not
/// all of them, 2 wrong usage or the plug-in cannot be loaded.

#include <dlfcn.h>
#include <sys/mman.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "mg_host_api.hpp"

namespace {

using mg_host_api::format_code;
using mg_host_api::param_number;
using mg_host_api::signal_code;

constexpr uint32_t buffers = 8;  // the camera fills the others while the host uses one

struct {
    uint32_t frames_wanted = 0, frames_written = 0;
    std::filesystem::path directory;
    std::byte* memory = nullptr;
    std::size_t spacing = 0;  // bytes from one buffer to the next
    uint32_t width = 0, height = 0, stride = 0;
    uint64_t ticks = 0;           // camera timestamp of the frame
    void const* frame = nullptr;  // triggered last
} host;
volatile std::sig_atomic_t stop_requested = 0;

/// Provides equally spaced buffers of at least `bytes` bytes. Allocates new memory if the present buffers are too
/// small.
void make_buffers(std::size_t bytes) {
    constexpr std::size_t page = 4096;
    std::size_t const needed = (bytes + page - 1) / page * page;
    if (needed > host.spacing) {  // keep the old buffers: the camera may still write to them
        void* const got = mmap(nullptr, buffers * needed, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        host.memory = got == MAP_FAILED ? nullptr : static_cast<std::byte*>(got);
        host.spacing = needed;
    }
}

/// Writes the current frame. The frame is valid until `MgSc__ProcExport` returns; a host that needs it longer copies
/// it.
void write_frame(uint64_t timestamp) {
    auto const file = host.directory / ("frame-" + std::to_string(host.frames_written + 1) + ".pgm");
    std::ofstream out(file, std::ios::binary);
    out << "P5\n" << host.width << ' ' << host.height << "\n255\n";
    for (uint32_t y = 0; y < host.height; ++y) {
        out.write(static_cast<char const*>(host.frame) + std::size_t{y} * host.stride, host.width);
    }
    if (out.flush())
        ++host.frames_written;
    std::string const outcome = out ? "" : ": NOT WRITTEN";
    std::cout << file.filename().string() << " taken at " << timestamp << " us, ticks " << host.ticks << outcome
              << std::endl;
}

}  // namespace

// One line per function, as an overview.
// clang-format off
// Camera selection and settings: the first camera, with its own settings.
char const* MgGiMainCtx__GetModelStr() { return nullptr; }
char const* MgGiMainCtx__GetIdStr() { return nullptr; }
uint32_t MgGiMainCtx__GetActiveCamMask() { return 1; }
int32_t MgGiMainCtx__GetWidth() { return -1; }
int32_t MgGiMainCtx__GetHeight() { return -1; }
int32_t MgGiMainCtx__GetOffsetX() { return -1; }
int32_t MgGiMainCtx__GetOffsetY() { return -1; }
uint8_t MgGiMainCtx__GetFormat() { return value_of(format_code::Mono8); }
void MgGiMainCtx__SetFormat(uint8_t) {}
uint8_t MgGiMainCtx__GetCformat() { return 0; }
int32_t MgGiMainCtx__GetRotate() { return 0; }
uint32_t MgGiMainCtx__GetDatachunk() { return 65'535; }  // negotiate with the camera
float MgGiMainCtx__GetFps() { return -1; }
int32_t MgGiMainCtx__GetTsadjns() { return 0; }
float MgGiMainCtx__GetExptMan() { return -1; }
float MgGiMainCtx__GetGainMan() { return -100; }
float MgGiMainCtx__GetAtbright() { return -1; }
float MgGiMainCtx__GetGainlimsLow() { return -100; }
float MgGiMainCtx__GetGainlimsHigh() { return -100; }
float MgGiMainCtx__GetEtlimsLow() { return -1; }
float MgGiMainCtx__GetEtlimsHigh() { return -1; }
int32_t MgGiMainCtx__GetSweepProf() { return 0; }
int32_t MgGiMainCtx__GetSweepGainMod() { return 0; }
int32_t MgGiMainCtx__GetSweepEtimeMod() { return 0; }
int32_t MgGiMainCtx__GetSweepLutMod() { return 0; }
float MgGiMainCtx__GetGamma() { return -1; }
uint32_t MgGiMainCtx__GetIoboxNum() { return 0; }
uint32_t MgGiMainCtx__GetIoboxPin(uint32_t) { return 0; }
uint32_t MgGiMainCtx__GetIoboxSrc(uint32_t) { return 0; }
uint32_t MgGiMainCtx__GetIoboxInv(uint32_t) { return 0; }
uint16_t MgGiMainCtx__GetLutArrCount() { return 0; }
uint16_t MgGiMainCtx__GetLutBitSize() { return 0; }
uint16_t const* MgGiMainCtx__GetLutDataU16() { return nullptr; }

// Frames. The plug-in does not export the first good frame of a run, so request one more.
uint32_t MgGiMainCtx__GetFnum() { return host.frames_wanted + 1; }
uint32_t MgGiMainCtx__GetBnum() { return buffers; }
void MgGiMainCtx__SetBnum(uint32_t) {}
void MgGiMem__Init(uint32_t size, uint32_t, uint32_t again) { make_buffers(std::max(size, again)); }
void MgGiMem__SetActFsize(uint32_t) {}
int MgGiMem__IsFactoryUsed() { return 1; }
void* MgGiMem__GetBufPtr(uint32_t i) { return host.memory == nullptr ? nullptr : host.memory + i % buffers * host.spacing; }
void MgGiMemInst__Init(uint32_t, uint32_t, uint32_t) {}
void MgGiMemInst__SetActFsize(uint32_t, uint32_t) {}
int MgGiMemInst__Trigger(uint32_t, uint32_t, uint64_t, void const* frame, uint8_t) { host.frame = frame; return 0; }
void MgSc__SetParamVal(uint32_t number, void const* value, ...) {
    auto const parameter = static_cast<param_number>(number);
    if (parameter == param_number::width) host.width = *static_cast<uint32_t const*>(value);
    if (parameter == param_number::height) host.height = *static_cast<uint32_t const*>(value);
    if (parameter == param_number::stride) host.stride = *static_cast<uint32_t const*>(value);
    if (parameter == param_number::camera_ticks) host.ticks = *static_cast<uint64_t const*>(value);
}
void MgSc__InstSetParamVal(uint32_t, uint32_t, void const*) {}
void MgSc__ProcExport(uint64_t timestamp) { write_frame(timestamp); }

// Control. This host supports one signal: stop.
int32_t MgUtl__CheckSignal() { return value_of(stop_requested != 0 ? signal_code::stop : signal_code::none); }
int MgGi__DoReconfig(uint32_t* exitRequested) { *exitRequested = 0; return -1; }
void MgGi__SetSignalAction(int32_t) {}
int MgGi__CheckDynConfig(void*, void*, void*, void*) { return 0; }
void MgGi__SetNewCfgVendor() {}
void MgGi__SetNewCfgPlugin() {}
void MgGi__ResetTermSigProc() {}
void MgGi__SetTermSigProc() {}
// The plug-in handles signals only when a good frame arrives. Without frames, the host must end the process itself.
void MgGi__HaltUpdate(uint32_t, uint32_t, float) { if (stop_requested != 0) std::_Exit(1); }
void MgGi__HaltStop(uint32_t, uint32_t, float) {}
void MgUtl__UpdateGrabState(int32_t) {}
void MgGi__SetCurrFpsUs(uint32_t) {}
void MgGi__CommTriggerAll(uint64_t, uint32_t, uint32_t) {}
timeval MgUtl__TimeValDiff(timeval const* a, timeval const* b) { timeval d{}; timersub(a, b, &d); return d; }
int MgGi__CalcLutDynam(void const*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t*) { return -1; }
int MgGi__GetLutDynam(uint32_t, uint32_t const*, uint32_t, uint16_t*) { return -1; }
// clang-format on

int main(int argc, char** argv) {
    if (argc != 4 || (host.frames_wanted = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10))) == 0) {
        return std::fputs("usage: example_host PLUGIN FRAMES DIRECTORY\n", stderr), 2;
    }
    host.directory = argv[3];
    void* const plugin = dlopen(argv[1], RTLD_LAZY);
    auto const run = plugin != nullptr ? reinterpret_cast<int32_t (*)()>(dlsym(plugin, "MgLibProc")) : nullptr;
    if (run == nullptr)
        return std::fprintf(stderr, "%s\n", dlerror()), 2;
    std::signal(SIGINT, [](int) { stop_requested = 1; });
    int32_t const code = run();
    std::cout << host.frames_written << " frames written, exit code " << code << std::endl;
    return code == 0 && host.frames_written == host.frames_wanted ? 0 : 1;
}
