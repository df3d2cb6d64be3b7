// SPDX-License-Identifier: MIT
/// \file
/// Cost of rotating and converting a frame of 1280 x 1024 pixels. The reference is copying it with memcpy.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "jai_kernel/pixel_conversion.hpp"
#include "jai_kernel/rotation.hpp"

namespace {

using namespace Vorn::Support::MediaGrabber::Jai;

constexpr uint32_t width = 1280;
constexpr uint32_t height = 1024;
struct named_format {
    char const* name;  ///< of the PFNC
    format_code code;
};
constexpr named_format formats[] = {{"Mono8", format_code::Mono8},
                                    {"Mono12Packed", format_code::Mono12Packed},
                                    {"Mono12", format_code::Mono12},
                                    {"BayerRG8", format_code::BayerRG8}};

std::vector<uint8_t> noisy_frame(pixel_format const& format) {
    std::vector<uint8_t> frame(format.frameBytes(width, height));
    uint32_t noise = 1;
    for (auto& byte : frame) {
        noise = noise * 1'664'525 + 1'013'904'223;
        byte = static_cast<uint8_t>(noise >> 24);
    }
    return frame;
}

void count_pixels(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * width * height);
}

void copy(benchmark::State& state, pixel_format const* format) {
    auto const source = noisy_frame(*format);
    auto target = source;
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), source.size());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    count_pixels(state);
}

void rotate(benchmark::State& state, pixel_format const* format) {
    auto frame = noisy_frame(*format);
    for (auto _ : state) {
        Rotation__TurnBy180(*format, frame, width, height);
        benchmark::ClobberMemory();
    }
    count_pixels(state);
}

void convert(benchmark::State& state, pixel_format const* from, pixel_format const* to) {
    auto const source = noisy_frame(*from);
    std::vector<uint8_t> target(to->frameBytes(width, height));
    for (auto _ : state) {
        PixelConversion__Convert(*from, *to, source, target, width, height);
        benchmark::ClobberMemory();
    }
    count_pixels(state);
}

void register_all() {
    for (auto const& [from_name, code] : formats) {
        auto const* const format = PixelFormat__Find(code);
        std::string const name = from_name;
        benchmark::RegisterBenchmark(("memcpy/" + name).c_str(), copy, format)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("rotate/" + name).c_str(), rotate, format)->Unit(benchmark::kMillisecond);
        for (auto const& [to_name, target] : formats) {
            auto const* const to = PixelFormat__Find(target);
            if (code != target && PixelConversion__IsPossible(*format, *to)) {
                benchmark::RegisterBenchmark(("convert/" + name + "/" + to_name).c_str(), convert, format, to)
                    ->Unit(benchmark::kMillisecond);
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    register_all();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
