/// \file
/// The host functions: each answers for, or passes on to, the host_context of the process. No exception leaves them;
/// what they call either can't throw or has caught.

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <new>
#include <span>

#include "host_context.hpp"
#include "mg_host_api.hpp"
#include "tone_equalisation.hpp"

using namespace mediagrabber;

namespace {

// "Not configured", as the getters say it.
constexpr std::int32_t no_pixels = -1;
constexpr float no_rate = -1.0F;
constexpr float no_exposure = -1.0F;
constexpr float no_gain = -100.0F;
constexpr float no_brightness = -1.0F;
constexpr float no_gamma = -1.0F;

constexpr std::uint32_t negotiated_packet_size = 65'535;  ///< anything above 9000 means that it is negotiated
constexpr std::int32_t half_turn = 2;
constexpr int taken = 0;
constexpr int refused = -1;

host_context& context() {
    return host_context::current();
}

configuration const& settings() {
    return context().settings();
}

io_line const* line_at(std::uint32_t index) {
    auto const& lines = settings().lines;
    return index < lines.size() ? &lines[index] : nullptr;
}

equalisation_limits equalisation_in_force() {
    constexpr double percent = 100.0;
    auto const& values = settings();
    return {.contrast = values.contrast_limit,
            .black_share = values.percentiles.low / percent,
            .white_share = values.percentiles.high / percent};
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
    auto const& model = settings().model;
    return model ? model->c_str() : nullptr;
}

char const* MgGiMainCtx__GetIdStr() {
    auto const& serial = settings().serial;
    return serial ? serial->c_str() : nullptr;
}

std::uint32_t MgGiMainCtx__GetActiveCamMask() {
    return settings().effective_mask();
}

// ---- Configuration: geometry, format, rate, transport -------------------------------------------

std::int32_t MgGiMainCtx__GetWidth() {
    return settings().width.value_or(no_pixels);
}

std::int32_t MgGiMainCtx__GetHeight() {
    return settings().height.value_or(no_pixels);
}

std::int32_t MgGiMainCtx__GetOffsetX() {
    return settings().offset_x.value_or(no_pixels);
}

std::int32_t MgGiMainCtx__GetOffsetY() {
    return settings().offset_y.value_or(no_pixels);
}

std::uint8_t MgGiMainCtx__GetFormat() {
    return context().format();
}

void MgGiMainCtx__SetFormat(std::uint8_t format) {
    context().override_format(format);
}

std::uint8_t MgGiMainCtx__GetCformat() {
    return settings().convert_to;
}

std::int32_t MgGiMainCtx__GetRotate() {
    // 1 is neither "leave it as it is" nor a half turn: a rotation that a reload takes back ends.
    return settings().rotate == 180 ? half_turn : 1;
}

std::uint32_t MgGiMainCtx__GetDatachunk() {
    return settings().packet_size.value_or(negotiated_packet_size);
}

float MgGiMainCtx__GetFps() {
    return settings().frame_rate.value_or(no_rate);
}

std::int32_t MgGiMainCtx__GetTsadjns() {
    return settings().clock_correction;
}

// ---- Configuration: exposure and gain -----------------------------------------------------------

float MgGiMainCtx__GetExptMan() {
    return settings().exposure_time_us.value_or(no_exposure);
}

float MgGiMainCtx__GetGainMan() {
    return settings().gain_db.value_or(no_gain);
}

float MgGiMainCtx__GetAtbright() {
    return settings().brightness.value_or(no_brightness);
}

float MgGiMainCtx__GetGainlimsLow() {
    auto const& pair = settings().gain_limits_db;
    return pair ? pair->low : no_gain;
}

float MgGiMainCtx__GetGainlimsHigh() {
    auto const& pair = settings().gain_limits_db;
    return pair ? pair->high : no_gain;
}

float MgGiMainCtx__GetEtlimsLow() {
    auto const& pair = settings().exposure_limits_us;
    return pair ? pair->low : no_exposure;
}

float MgGiMainCtx__GetEtlimsHigh() {
    auto const& pair = settings().exposure_limits_us;
    return pair ? pair->high : no_exposure;
}

std::int32_t MgGiMainCtx__GetSweepProf() {
    return settings().auto_area ? 1 : 0;
}

std::int32_t MgGiMainCtx__GetSweepGainMod() {
    return static_cast<std::int32_t>(settings().gain_mode);
}

std::int32_t MgGiMainCtx__GetSweepEtimeMod() {
    return static_cast<std::int32_t>(settings().exposure_mode);
}

std::int32_t MgGiMainCtx__GetSweepLutMod() {
    return settings().tone_enabled ? 1 : 0;
}

float MgGiMainCtx__GetGamma() {
    return settings().gamma.value_or(no_gamma);
}

// ---- Configuration: I/O lines and look-up table -------------------------------------------------

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
    auto const* const table = settings().lut;
    return table == nullptr ? std::uint16_t{0} : static_cast<std::uint16_t>(table->size());
}

std::uint16_t MgGiMainCtx__GetLutBitSize() {
    return settings().lut == nullptr ? 0 : table_value_bits;
}

std::uint16_t const* MgGiMainCtx__GetLutDataU16() {
    auto const* const table = settings().lut;
    return table == nullptr ? nullptr : table->data();
}

// ---- Configuration: buffers and run length ------------------------------------------------------

/// The first good frame of a run is never exported, so one more is asked for than is wanted.
std::uint32_t MgGiMainCtx__GetFnum() {
    return context().intake().limited() ? static_cast<std::uint32_t>(context().intake().remaining() + 1) : 0;
}

std::uint32_t MgGiMainCtx__GetBnum() {
    return settings().buffers;
}

void MgGiMainCtx__SetBnum(std::uint32_t count) {
    context().intake().set_buffer_count(count);
}

// ---- Frame memory -------------------------------------------------------------------------------

void MgGiMem__Init(std::uint32_t frameSize, std::uint32_t /*zero*/, std::uint32_t frameSizeAgain) {
    context().intake().set_up_memory(std::max(frameSize, frameSizeAgain));
}

void MgGiMem__SetActFsize(std::uint32_t bytes) {
    context().intake().set_frame_size(bytes);
}

int MgGiMem__IsFactoryUsed() {
    return 1;
}

void* MgGiMem__GetBufPtr(std::uint32_t index) {
    return context().intake().buffer(index);
}

void MgGiMemInst__Init(std::uint32_t instance, std::uint32_t size, std::uint32_t /*zero*/) {
    context().intake().set_up_instance(instance, size);
}

void MgGiMemInst__SetActFsize(std::uint32_t /*instance*/, std::uint32_t bytes) {
    context().intake().set_frame_size(bytes);
}

int MgGiMemInst__Trigger(std::uint32_t instance, std::uint32_t /*zero*/, std::uint64_t timestamp, void const* frame,
                         std::uint8_t /*flag*/) {
    return context().intake().trigger(instance, timestamp, frame) ? taken : refused;
}

// ---- Values and export --------------------------------------------------------------------------

void MgSc__SetParamVal(std::uint32_t number, void const* value, ...) {
    auto& intake = context().intake();
    auto& coming = intake.coming_frame();
    switch (number) {
        case 1:
        case 2:
        case 8:
            intake.publish_geometry(number, value_behind<std::uint32_t>(value));
            break;
        case 4:
            // The significant bits that come as third argument follow from the format as well.
            intake.publish_format(static_cast<char const*>(value));
            break;
        case 6:
            coming.gain_db = value_behind<float>(value);
            break;
        case 7:
            coming.exposure_us = value_behind<float>(value);
            break;
        case 9:
            coming.ticks = value_behind<std::uint64_t>(value);
            break;
        case 10:
            coming.counter = value_behind<std::uint32_t>(value);
            break;
        default:
            // 12 is the timestamp that MgSc__ProcExport is called with; other numbers mean nothing to this host.
            break;
    }
}

void MgSc__InstSetParamVal(std::uint32_t instance, std::uint32_t number, void const* value) {
    constexpr std::uint32_t codec = 4;
    if (number == codec) {
        context().intake().publish_codec(instance, static_cast<char const*>(value));
    }
}

/// With the last frame asked for, a stop is raised: the run ends also where the plug-in was asked for another number.
void MgSc__ProcExport(std::uint64_t /*timestamp*/) {
    auto& intake = context().intake();
    intake.export_triggered();
    if (intake.complete()) {
        context().signals().raise(request::stop);
    }
}

// ---- Control ------------------------------------------------------------------------------------

std::int32_t MgUtl__CheckSignal() {
    return static_cast<std::int32_t>(context().poll());
}

int MgGi__DoReconfig(std::uint32_t* exitRequested) {
    auto const result = context().take_configuration();
    if (exitRequested != nullptr) {
        *exitRequested = result == configuration_store::result::needs_new_run ? 1 : 0;
    }
    bool const in_force =
        result == configuration_store::result::in_force || result == configuration_store::result::needs_new_run;
    return in_force ? taken : refused;
}

void MgGi__SetSignalAction(std::int32_t signalCode) {
    context().run_ends_for(signalCode);
}

int MgGi__CheckDynConfig(void*, void*, void*, void*) {
    return context().take_small_change() ? 1 : 0;
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
    context().intake().begin_frame(width, height, temperature);
}

void MgUtl__UpdateGrabState(std::int32_t state) {
    context().progress().state = state;
}

void MgGi__SetCurrFpsUs(std::uint32_t period) {
    context().progress().period_us = period;
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

// ---- Look-up table calculated from the picture --------------------------------------------------

int MgGi__CalcLutDynam(void const* frame, std::uint32_t width, std::uint32_t height, std::uint32_t rowLength,
                       std::uint32_t bits, std::uint32_t* cdf) {
    auto const* const format = context().intake().camera_format();
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
    context().last_counted = {.cumulative = cdf, .bits = bits};
    return taken;
}

int MgGi__GetLutDynam(std::uint32_t lutBits, std::uint32_t const* cdf, std::uint32_t valueBits, std::uint16_t* lut) {
    constexpr std::uint32_t most_bits = 16;
    auto const& counted = context().last_counted;
    if (cdf == nullptr || lut == nullptr || cdf != counted.cumulative || lutBits == 0 || lutBits > most_bits ||
        valueBits == 0 || valueBits > most_bits) {
        return refused;
    }
    try {
        std::span const table(lut, std::size_t{1} << lutBits);
        equalise({cdf, std::size_t{1} << counted.bits}, equalisation_in_force(), valueBits, table);
        context().tone().calculated(table, valueBits);
        return taken;
    } catch (std::bad_alloc const&) {
        return refused;
    }
}
