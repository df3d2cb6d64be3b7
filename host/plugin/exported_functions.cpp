// SPDX-License-Identifier: MIT
/// \file
/// The host functions. Each returns a value of, or forwards to, the host_context of the process. They do
/// not throw: the functions that they call catch all exceptions.

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <new>
#include <set>
#include <span>
#include <string>

#include "lut/equalised_lut.hpp"
#include "mg_host_api.hpp"
#include "plugin/host_context.hpp"

using namespace mediagrabber;
using mg_host_api::param_number;
using mg_host_api::value_of;

namespace {

// The return values of the getters for "not configured".
constexpr std::int32_t no_pixels = -1;
constexpr float no_rate = -1.0F;
constexpr float no_exposure = -1.0F;
constexpr float no_gain = -100.0F;
constexpr float no_brightness = -1.0F;
constexpr float no_gamma = -1.0F;

constexpr std::uint32_t negotiated_packet_size = 65'535;  ///< every value above 9000 requests negotiation
constexpr std::int32_t half_turn = 2;
constexpr int accepted = 0;
constexpr int refused = -1;

host_context& context() {
    return host_context::current();
}

configuration const& settings() {
    return context().settings();
}

/// A copy of a text that stays until the process ends: the plug-in may keep its address. There is one copy for each
/// distinct text, so reloads of the same text need no more memory.
char const* interned_text(std::string const& text) {
    static std::set<std::string> texts;  // used by the plug-in's thread only
    return texts.insert(text).first->c_str();
}

io_line const* line_at(std::uint32_t index) {
    auto const& lines = settings().lines;
    return index < lines.size() ? &lines[index] : nullptr;
}

equalisation_limits active_equalisation() {
    constexpr double percent = 100.0;
    auto const& values = settings();
    return {.contrast = values.tone.contrast_limit,
            .black_share = values.tone.percentiles.low / percent,
            .white_share = values.tone.percentiles.high / percent};
}

template <typename type>
type value_behind(void const* value) {
    type copy;
    std::memcpy(&copy, value, sizeof copy);
    return copy;
}

}  // namespace

// ---- Configuration: which camera ----------------------------------------------------------------

char const* MgGiMainCtx__GetModelStr() {
    auto const& model = settings().camera.model;
    return model ? interned_text(*model) : nullptr;
}

char const* MgGiMainCtx__GetIdStr() {
    auto const& serial = settings().camera.serial;
    return serial ? interned_text(*serial) : nullptr;
}

std::uint32_t MgGiMainCtx__GetActiveCamMask() {
    return settings().camera.effective_mask();
}

// ---- Configuration: geometry, format, rate, transport -------------------------------------------

std::int32_t MgGiMainCtx__GetWidth() {
    return settings().image.width.value_or(no_pixels);
}

std::int32_t MgGiMainCtx__GetHeight() {
    return settings().image.height.value_or(no_pixels);
}

std::int32_t MgGiMainCtx__GetOffsetX() {
    return settings().image.offset_x.value_or(no_pixels);
}

std::int32_t MgGiMainCtx__GetOffsetY() {
    return settings().image.offset_y.value_or(no_pixels);
}

std::uint8_t MgGiMainCtx__GetFormat() {
    return value_of(context().format());
}

void MgGiMainCtx__SetFormat(std::uint8_t format) {
    context().override_format(format_code{format});
}

std::uint8_t MgGiMainCtx__GetCformat() {
    return value_of(settings().image.convert_to);
}

std::int32_t MgGiMainCtx__GetRotate() {
    // 1 means "not rotated"; 0, "unchanged", would keep a rotation that a reload removes.
    return settings().image.rotation_deg == 180 ? half_turn : 1;
}

std::uint32_t MgGiMainCtx__GetDatachunk() {
    return settings().transport.packet_size_bytes.value_or(negotiated_packet_size);
}

float MgGiMainCtx__GetFps() {
    return settings().timing.frame_rate_hz.value_or(no_rate);
}

std::int32_t MgGiMainCtx__GetTsadjns() {
    return settings().timing.clock_correction_ppb;
}

// ---- Configuration: exposure and gain -----------------------------------------------------------

float MgGiMainCtx__GetExptMan() {
    return settings().exposure.time_us.value_or(no_exposure);
}

float MgGiMainCtx__GetGainMan() {
    return settings().gain.db.value_or(no_gain);
}

float MgGiMainCtx__GetAtbright() {
    return settings().automatic.brightness.value_or(no_brightness);
}

float MgGiMainCtx__GetGainlimsLow() {
    auto const& pair = settings().gain.limits_db;
    return pair ? pair->low : no_gain;
}

float MgGiMainCtx__GetGainlimsHigh() {
    auto const& pair = settings().gain.limits_db;
    return pair ? pair->high : no_gain;
}

float MgGiMainCtx__GetEtlimsLow() {
    auto const& pair = settings().exposure.limits_us;
    return pair ? pair->low : no_exposure;
}

float MgGiMainCtx__GetEtlimsHigh() {
    auto const& pair = settings().exposure.limits_us;
    return pair ? pair->high : no_exposure;
}

std::int32_t MgGiMainCtx__GetSweepProf() {
    return settings().automatic.area ? 1 : 0;
}

std::int32_t MgGiMainCtx__GetSweepGainMod() {
    return static_cast<std::int32_t>(settings().gain.automatic);
}

std::int32_t MgGiMainCtx__GetSweepEtimeMod() {
    return static_cast<std::int32_t>(settings().exposure.automatic);
}

std::int32_t MgGiMainCtx__GetSweepLutMod() {
    context().tone().pass_begins(settings().tone);
    return settings().tone.enable ? 1 : 0;
}

float MgGiMainCtx__GetGamma() {
    return context().tone().gamma(settings().tone).value_or(no_gamma);
}

// ---- Configuration: I/O lines and LUT -----------------------------------------------------------

std::uint32_t MgGiMainCtx__GetIoboxNum() {
    return static_cast<std::uint32_t>(settings().lines.size());
}

std::uint32_t MgGiMainCtx__GetIoboxPin(std::uint32_t index) {
    auto const* const line = line_at(index);
    return line == nullptr ? 0 : line->pin;
}

std::uint32_t MgGiMainCtx__GetIoboxSrc(std::uint32_t index) {
    auto const* const line = line_at(index);
    return line == nullptr ? 0 : static_cast<std::uint32_t>(line->source);
}

std::uint32_t MgGiMainCtx__GetIoboxInv(std::uint32_t index) {
    auto const* const line = line_at(index);
    return line == nullptr ? 0 : (line->inverted ? 2 : 1);
}

std::uint16_t MgGiMainCtx__GetLutArrCount() {
    auto const* const table = context().tone().table(settings().tone);
    return table == nullptr ? std::uint16_t{0} : static_cast<std::uint16_t>(table->size());
}

/// The plug-in reads the size only of a LUT that it loads.
std::uint16_t MgGiMainCtx__GetLutBitSize() {
    context().tone().table_loaded();
    return context().tone().table(settings().tone) == nullptr ? 0 : lut_value_bits;
}

std::uint16_t const* MgGiMainCtx__GetLutDataU16() {
    auto const* const table = context().tone().table(settings().tone);
    context().tone().table_read(settings().tone);
    return table == nullptr ? nullptr : table->data();
}

// ---- Configuration: buffers and run length ------------------------------------------------------

/// The plug-in never exports the first good frame of a run, so one frame more is requested.
std::uint32_t MgGiMainCtx__GetFnum() {
    return context().receiver().limited() ? static_cast<std::uint32_t>(context().receiver().remaining() + 1) : 0;
}

std::uint32_t MgGiMainCtx__GetBnum() {
    return settings().memory.buffers;
}

void MgGiMainCtx__SetBnum(std::uint32_t count) {
    context().receiver().set_buffer_count(count);
}

// ---- Frame memory -------------------------------------------------------------------------------

void MgGiMem__Init(std::uint32_t frameSize, std::uint32_t /*zero*/, std::uint32_t frameSizeAgain) {
    context().receiver().set_up_memory(std::max(frameSize, frameSizeAgain));
}

void MgGiMem__SetActFsize(std::uint32_t bytes) {
    context().receiver().set_frame_size(bytes);
}

int MgGiMem__IsFactoryUsed() {
    return 1;
}

void* MgGiMem__GetBufPtr(std::uint32_t index) {
    return context().receiver().buffer(index);
}

void MgGiMemInst__Init(std::uint32_t instance, std::uint32_t size, std::uint32_t /*zero*/) {
    context().receiver().set_up_instance(instance, size);
}

void MgGiMemInst__SetActFsize(std::uint32_t /*instance*/, std::uint32_t bytes) {
    context().receiver().set_frame_size(bytes);
}

int MgGiMemInst__Trigger(std::uint32_t instance, std::uint32_t /*zero*/, std::uint64_t timestamp, void const* frame,
                         std::uint8_t /*flag*/) {
    return context().receiver().trigger(instance, timestamp, frame) ? accepted : refused;
}

// ---- Values and export --------------------------------------------------------------------------

void MgSc__SetParamVal(std::uint32_t number, void const* value, ...) {
    auto& receiver = context().receiver();
    auto& next = receiver.next_frame();
    switch (param_number{number}) {
        case param_number::width:
            receiver.set_width(value_behind<std::uint32_t>(value));
            break;
        case param_number::height:
            receiver.set_height(value_behind<std::uint32_t>(value));
            break;
        case param_number::stride:
            receiver.set_stride(value_behind<std::uint32_t>(value));
            break;
        case param_number::format_name:
            // The third argument, the significant bits, also follows from the format.
            receiver.publish_format(static_cast<char const*>(value));
            context().format_published();
            break;
        case param_number::gain_db:
            next.gain_db = value_behind<float>(value);
            break;
        case param_number::exposure_us:
            next.exposure_us = value_behind<float>(value);
            break;
        case param_number::camera_ticks:
            next.ticks = value_behind<std::uint64_t>(value);
            break;
        case param_number::exposure_counter:
            next.counter = value_behind<std::uint32_t>(value);
            break;
        case param_number::timestamp_us:
            break;  // also comes with MgSc__ProcExport
    }
}

void MgSc__InstSetParamVal(std::uint32_t instance, std::uint32_t number, void const* value) {
    if (param_number{number} == param_number::format_name) {
        context().receiver().publish_codec(instance, static_cast<char const*>(value));
    }
}

/// Raises a stop with the last frame, because a run that began with another frame limit would not end.
void MgSc__ProcExport(std::uint64_t /*timestamp*/) {
    auto& receiver = context().receiver();
    receiver.export_triggered();
    if (receiver.complete()) {
        context().signals().raise(signal_code::stop);
    }
}

// ---- Control ------------------------------------------------------------------------------------

std::int32_t MgUtl__CheckSignal() {
    return value_of(context().poll());
}

int MgGi__DoReconfig(std::uint32_t* exitRequested) {
    auto const result = context().activate_configuration();
    if (exitRequested != nullptr) {
        *exitRequested = result == configuration_store::result::needs_restart ? 1 : 0;
    }
    bool const active =
        result == configuration_store::result::active || result == configuration_store::result::needs_restart;
    return active ? accepted : refused;
}

void MgGi__SetSignalAction(std::int32_t signalCode) {
    context().run_ends_for(signal_code{signalCode});
}

int MgGi__CheckDynConfig(void*, void*, void*, void*) {
    return context().activate_live_update() ? 1 : 0;
}

void MgGi__SetNewCfgVendor() {
    ++context().progress().announced_settings;
}

void MgGi__SetNewCfgPlugin() {
    ++context().progress().announced_settings;
}

void MgGi__ResetTermSigProc() {
    context().progress().capturing = true;
}

void MgGi__SetTermSigProc() {
    auto& progress = context().progress();
    progress.capturing = false;
    progress.last_frame = grab_progress::clock::now();
}

void MgGi__HaltUpdate(std::uint32_t /*width*/, std::uint32_t /*height*/, float /*temperature*/) {
    ++context().progress().empty_fetches;
}

void MgGi__HaltStop(std::uint32_t width, std::uint32_t height, float temperature) {
    context().frame_arrived();
    context().receiver().begin_frame(width, height, temperature);
}

void MgUtl__UpdateGrabState(std::int32_t state) {
    context().progress().state = state;
}

void MgGi__SetCurrFpsUs(std::uint32_t period) {
    context().progress().period_us = period;
    context().delivery().rate_reported(period);
}

void MgGi__CommTriggerAll(std::uint64_t nextTimestamp, std::uint32_t /*latencyAdjustment*/,
                          std::uint32_t /*secondAdjustment*/) {
    context().announce(nextTimestamp);
}

/// The microseconds of the difference are 0 to 999999, also where the difference is negative.
timeval MgUtl__TimeValDiff(timeval const* later, timeval const* earlier) {
    timeval difference{};
    timersub(later, earlier, &difference);
    return difference;
}

// ---- Histogram-equalised LUT --------------------------------------------------------------------

int MgGi__CalcLutDynam(void const* frame, std::uint32_t width, std::uint32_t height, std::uint32_t rowLength,
                       std::uint32_t bits, std::uint32_t* cdf) {
    auto const* const format = context().receiver().camera_format();
    if (frame == nullptr || cdf == nullptr || format == nullptr || bits != format->significant_bits ||
        rowLength < width) {
        return refused;
    }
    count_values({.pixels = static_cast<std::byte const*>(frame),
                  .width = width,
                  .height = height,
                  .row_length = rowLength,
                  .format = format},
                 {cdf, std::size_t{1} << bits});
    context().last_histogram = {.cumulative = cdf, .bits = bits};
    return accepted;
}

int MgGi__GetLutDynam(std::uint32_t lutBits, std::uint32_t const* cdf, std::uint32_t valueBits, std::uint16_t* lut) {
    constexpr std::uint32_t max_bits = 16;
    auto const& histogram = context().last_histogram;
    if (cdf == nullptr || lut == nullptr || cdf != histogram.cumulative || lutBits == 0 || lutBits > max_bits ||
        valueBits == 0 || valueBits > max_bits) {
        return refused;
    }
    try {
        std::span const table(lut, std::size_t{1} << lutBits);
        equalise({cdf, std::size_t{1} << histogram.bits}, active_equalisation(), valueBits, table);
        context().lut_calculated(table, lutBits, valueBits);
        return accepted;
    } catch (std::bad_alloc const&) {
        return refused;
    }
}
