// SPDX-License-Identifier: MIT
/// \file
/// Cost of the plug-in's own work for a frame: one iteration of the grabbing loop with a camera and a host that return
/// at once, the timestamp synchronisation alone, and a log call that is filtered. The reference is copying a frame.
#include <benchmark/benchmark.h>

#include <PvSystem.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "jai_camera/camera.hpp"
#include "jai_factory/buffer_factory.hpp"
#include "jai_kernel/cam_proc.hpp"
#include "jai_kernel/timestamp_sync.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"
#include "recording_host.hpp"
#include "scripted_sdk.hpp"

namespace {

using namespace Vorn::Support::MediaGrabber::Jai;

constexpr char _S_logTag[] = "BENCH";

/// Grabs `frames` frames with the scripted SDK and the recording host, which keep no records. The result includes their
/// cost, so it is an upper bound.
void grab(uint32_t frames) {
    scripted::reset();
    recording::reset();
    recording::host().keep_records = false;
    recording::host().fnum = frames;
    support::journal().enable(false);
    scripted::sdk().camera().endless = [](uint32_t n) {
        scripted::block block;
        block.timestamp = 1'000'000 + n * 10'000'000ULL;
        return block;
    };
    PvSystem system;
    system.Find();
    PvDeviceInfo const* const info = system.GetInterface(0)->GetDeviceInfo(0);
    camera device(info);
    device.deviceParams = device.device->GetParameters();
    buffer_factory factory;
    CCamProc kernel;
    if (kernel.ProcLoop(&device, info, &factory) != 0) {
        std::abort();
    }
}

void one_iteration_of_the_loop(benchmark::State& state) {
    constexpr uint32_t frames = 20'000;
    gMgLogLevelLib = 0;
    for (auto _ : state) {
        grab(frames);
    }
    state.SetItemsProcessed(state.iterations() * frames);
}
BENCHMARK(one_iteration_of_the_loop)->Unit(benchmark::kMillisecond);

/// The synchronisation alone, without camera, host and log.
void timestamps(benchmark::State& state) {
    timestamp_settings const settings{.latencyAdjustment = 0,
                                      .secondAdjustment = 0,
                                      .clockCorrection = -40'000,
                                      .tickFrequency = 1'000'000'000,
                                      .framePeriod = 10'000,
                                      .frameRate = 100.0F};
    timestamp_sync sync(settings.framePeriod);
    uint64_t frame = 1;
    sync.calibrate(settings, {1'700'000'000'000'000, 1'000'000}, 0, 0, 1'000'300'000);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            sync.stamp(settings, {1'700'000'000'000'000 + frame * 10'000, 1'000'000 + frame * 10'000}));
        benchmark::DoNotOptimize(sync.evaluatePace(settings));
        benchmark::DoNotOptimize(sync.announce(settings));
        ++frame;
    }
}
BENCHMARK(timestamps);

void filtered_log_call(benchmark::State& state) {
    gMgLogLevelLib = 1;
    uint32_t value = 0;
    for (auto _ : state) {
        MG_LOG_I("a value: %u", ++value);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(filtered_log_call);

/// The reference: copies a frame of 1 MB.
void memcpy_of_a_frame(benchmark::State& state) {
    std::vector<uint8_t> const source(1'048'576, 1);
    auto target = source;
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), source.size());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(memcpy_of_a_frame);

}  // namespace

BENCHMARK_MAIN();
