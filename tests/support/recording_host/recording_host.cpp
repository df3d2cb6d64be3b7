// SPDX-License-Identifier: MIT
#include "recording_host.hpp"

#include <mg_host_api.hpp>

#include <cstdarg>
#include <cstring>
#include <memory>

using recording::host;
using support::journal;
using support::outside_plugin;

namespace recording {

namespace {

constexpr size_t slot_bytes = 4096 * 1024;
constexpr size_t slots = 8;

/// Flat frame memory. Only pages that a test writes to occupy memory.
uint8_t* frame_memory() {
    static auto* const memory = static_cast<uint8_t*>(std::aligned_alloc(4096, slot_bytes * slots));
    return memory;
}

}  // namespace

host_state& host() {
    static host_state state;
    return state;
}

system_log& the_system_log() {
    static system_log log;
    return log;
}

steered_clock& clock() {
    static steered_clock the_clock;
    return the_clock;
}

std::optional<double> host_state::last_value(uint32_t number) const {
    std::optional<double> found;
    for (auto const& value : values) {
        if (value.number == number) {
            found = value.value;
        }
    }
    return found;
}

void reset() {
    host() = {};
    the_system_log() = {};
    clock() = {};
    journal().clear();
    journal().enable(true);
}

}  // namespace recording

namespace {

template <typename type>
type take(std::deque<type>& answers) {
    if (answers.empty()) {
        return {};
    }
    type const answer = answers.front();
    answers.pop_front();
    return answer;
}

recording::io_line line(uint32_t index) {
    return index < host().io_lines.size() ? host().io_lines[index] : recording::io_line{};
}

void record_value(uint32_t number, double value) {
    journal().add("MgSc__SetParamVal(%u, %.10g)", number, value);
    if (host().keep_records) {
        host().values.push_back({.number = number, .value = value, .format = {}, .bits = 0});
    }
}

template <typename type>
double read_as(void const* value) {
    type typed;
    std::memcpy(&typed, value, sizeof typed);
    return static_cast<double>(typed);
}

}  // namespace

extern "C" {

char const* MgGiMainCtx__GetModelStr() {
    return host().model ? host().model->c_str() : nullptr;
}
char const* MgGiMainCtx__GetIdStr() {
    return host().id ? host().id->c_str() : nullptr;
}
uint32_t MgGiMainCtx__GetActiveCamMask() {
    return host().active_cam_mask;
}
int32_t MgGiMainCtx__GetWidth() {
    return host().width;
}
int32_t MgGiMainCtx__GetHeight() {
    return host().height;
}
int32_t MgGiMainCtx__GetOffsetX() {
    return host().offset_x;
}
int32_t MgGiMainCtx__GetOffsetY() {
    return host().offset_y;
}
uint8_t MgGiMainCtx__GetFormat() {
    return host().format;
}
void MgGiMainCtx__SetFormat(uint8_t format) {
    journal().add("MgGiMainCtx__SetFormat(%u)", unsigned{format});
    host().format = format;
}
uint8_t MgGiMainCtx__GetCformat() {
    return host().cformat;
}
int32_t MgGiMainCtx__GetRotate() {
    return host().rotate;
}
uint32_t MgGiMainCtx__GetDatachunk() {
    return host().datachunk;
}
float MgGiMainCtx__GetFps() {
    return host().fps;
}
int32_t MgGiMainCtx__GetTsadjns() {
    return host().tsadjns;
}
float MgGiMainCtx__GetExptMan() {
    return host().expt_man;
}
float MgGiMainCtx__GetGainMan() {
    return host().gain_man;
}
float MgGiMainCtx__GetAtbright() {
    return host().atbright;
}
float MgGiMainCtx__GetGainlimsLow() {
    return host().gainlims_low;
}
float MgGiMainCtx__GetGainlimsHigh() {
    return host().gainlims_high;
}
float MgGiMainCtx__GetEtlimsLow() {
    return host().etlims_low;
}
float MgGiMainCtx__GetEtlimsHigh() {
    return host().etlims_high;
}
int32_t MgGiMainCtx__GetSweepProf() {
    return host().sweep_prof;
}
int32_t MgGiMainCtx__GetSweepGainMod() {
    return host().sweep_gain_mod;
}
int32_t MgGiMainCtx__GetSweepEtimeMod() {
    return host().sweep_etime_mod;
}
int32_t MgGiMainCtx__GetSweepLutMod() {
    return host().sweep_lut_mod;
}
float MgGiMainCtx__GetGamma() {
    return host().gamma;
}
uint32_t MgGiMainCtx__GetIoboxNum() {
    return host().iobox_num;
}
uint32_t MgGiMainCtx__GetIoboxPin(uint32_t index) {
    journal().add("MgGiMainCtx__GetIoboxPin(%u)", index);
    return line(index).pin;
}
uint32_t MgGiMainCtx__GetIoboxSrc(uint32_t index) {
    return line(index).source;
}
uint32_t MgGiMainCtx__GetIoboxInv(uint32_t index) {
    return line(index).inverter;
}
uint16_t MgGiMainCtx__GetLutArrCount() {
    return host().lut_count.value_or(static_cast<uint16_t>(host().lut.size()));
}
uint16_t MgGiMainCtx__GetLutBitSize() {
    return host().lut_bits;
}
uint16_t const* MgGiMainCtx__GetLutDataU16() {
    return host().lut.empty() ? nullptr : host().lut.data();
}
uint32_t MgGiMainCtx__GetFnum() {
    journal().add("MgGiMainCtx__GetFnum()");
    return host().fnum;
}
uint32_t MgGiMainCtx__GetBnum() {
    journal().add("MgGiMainCtx__GetBnum()");
    return host().bnum;
}
void MgGiMainCtx__SetBnum(uint32_t count) {
    journal().add("MgGiMainCtx__SetBnum(%u)", count);
    host().bnum_set = count;
}

void MgGiMem__Init(uint32_t frame_size, uint32_t zero, uint32_t frame_size_again) {
    journal().add("MgGiMem__Init(%u, %u, %u)", frame_size, zero, frame_size_again);
}
void MgGiMem__SetActFsize(uint32_t bytes) {
    journal().add("MgGiMem__SetActFsize(%u)", bytes);
}
int MgGiMem__IsFactoryUsed() {
    return host().factory_used;
}
void* MgGiMem__GetBufPtr(uint32_t index) {
    if (host().buffer_addresses) {
        return index < host().buffer_addresses->size() ? (*host().buffer_addresses)[index] : nullptr;
    }
    return index < recording::slots ? recording::frame_memory() + index * recording::slot_bytes : nullptr;
}
void MgGiMemInst__Init(uint32_t instance, uint32_t size, uint32_t zero) {
    journal().add("MgGiMemInst__Init(%u, %u, %u)", instance, size, zero);
}
void MgGiMemInst__SetActFsize(uint32_t instance, uint32_t bytes) {
    journal().add("MgGiMemInst__SetActFsize(%u, %u)", instance, bytes);
}
int MgGiMemInst__Trigger(uint32_t instance, uint32_t zero, uint64_t timestamp, void const* frame, uint8_t flag) {
    outside_plugin const scope;
    journal().add("MgGiMemInst__Trigger(%u, %u, %lu, %u)", instance, zero, timestamp, unsigned{flag});
    recording::triggered const record{.instance = instance, .timestamp = timestamp, .frame = frame, .flag = flag};
    if (host().keep_records) {
        host().frames.push_back(record);
    }
    if (host().on_trigger) {
        host().on_trigger(record);
    }
    return take(host().trigger_results);
}

void MgSc__SetParamVal(uint32_t number, void const* value, ...) {
    outside_plugin const scope;
    if (host().on_publish) {
        host().on_publish(number);
    }
    using mg_host_api::param_number;
    switch (static_cast<param_number>(number)) {
        case param_number::format_name: {
            va_list args;
            va_start(args, value);
            uint32_t const bits = va_arg(args, uint32_t);
            va_end(args);
            auto const* const name = static_cast<char const*>(value);
            journal().add("MgSc__SetParamVal(4, %s, %u)", name, bits);
            host().values.push_back({.number = 4, .value = 0.0, .format = name, .bits = bits});
            return;
        }
        case param_number::gain_db:
        case param_number::exposure_us:
            record_value(number, read_as<float>(value));
            return;
        case param_number::camera_ticks:
        case param_number::timestamp_us:
            record_value(number, read_as<uint64_t>(value));
            return;
        case param_number::width:
        case param_number::height:
        case param_number::stride:
        case param_number::exposure_counter:
            record_value(number, read_as<uint32_t>(value));
            return;
    }
    journal().add("MgSc__SetParamVal(%u, unknown)", number);
}
void MgSc__InstSetParamVal(uint32_t instance, uint32_t number, void const* value) {
    journal().add("MgSc__InstSetParamVal(%u, %u, %s)", instance, number, static_cast<char const*>(value));
}
void MgSc__ProcExport(uint64_t timestamp) {
    outside_plugin const scope;
    journal().add("MgSc__ProcExport(%lu)", timestamp);
    if (host().keep_records) {
        host().exports.push_back(timestamp);
    }
}

int32_t MgUtl__CheckSignal() {
    outside_plugin const scope;
    journal().add("MgUtl__CheckSignal()");
    return host().next_signal ? host().next_signal() : take(host().signals);
}
int MgGi__DoReconfig(uint32_t* exit_requested) {
    journal().add("MgGi__DoReconfig(%u)", *exit_requested);
    if (host().on_reconfig) {
        host().on_reconfig();
    }
    *exit_requested = host().reconfig_exit;
    return host().reconfig_result;
}
void MgGi__SetSignalAction(int32_t code) {
    journal().add("MgGi__SetSignalAction(%d)", code);
}
int MgGi__CheckDynConfig(void* a, void* b, void* c, void* d) {
    outside_plugin const scope;
    journal().add("MgGi__CheckDynConfig(%p, %p, %p, %p)", a, b, c, d);
    return take(host().dyn_config);
}
void MgGi__SetNewCfgVendor() {
    journal().add("MgGi__SetNewCfgVendor()");
}
void MgGi__SetNewCfgPlugin() {
    journal().add("MgGi__SetNewCfgPlugin()");
}
void MgGi__ResetTermSigProc() {
    journal().add("MgGi__ResetTermSigProc()");
}
void MgGi__SetTermSigProc() {
    journal().add("MgGi__SetTermSigProc()");
}
void MgGi__HaltUpdate(uint32_t width, uint32_t height, float temperature) {
    outside_plugin const scope;
    journal().add("MgGi__HaltUpdate(%u, %u, %g)", width, height, double{temperature});
}
void MgGi__HaltStop(uint32_t width, uint32_t height, float temperature) {
    outside_plugin const scope;
    journal().add("MgGi__HaltStop(%u, %u, %g)", width, height, double{temperature});
}
void MgUtl__UpdateGrabState(int32_t state) {
    outside_plugin const scope;
    journal().add("MgUtl__UpdateGrabState(%d)", state);
}
void MgGi__SetCurrFpsUs(uint32_t period) {
    journal().add("MgGi__SetCurrFpsUs(%u)", period);
}
void MgGi__CommTriggerAll(uint64_t next, uint32_t latency_adjustment, uint32_t second_adjustment) {
    outside_plugin const scope;
    journal().add("MgGi__CommTriggerAll(%lu, %u, %u)", next, latency_adjustment, second_adjustment);
    if (host().keep_records) {
        host().announcements.push_back({next, latency_adjustment, second_adjustment});
    }
}
timeval MgUtl__TimeValDiff(timeval const* later, timeval const* earlier) {
    if (host().time_difference) {
        return host().time_difference(*later, *earlier);
    }
    timeval difference{};
    timersub(later, earlier, &difference);
    return difference;
}

int MgGi__CalcLutDynam(void const* frame, uint32_t width, uint32_t height, uint32_t row_length, uint32_t bits,
                       uint32_t* cdf) {
    journal().add("MgGi__CalcLutDynam(%s, %u, %u, %u, %u)", frame == nullptr ? "null" : "frame", width, height,
                  row_length, bits);
    if (host().calc_lut) {
        host().calc_lut(cdf, bits);
    }
    return 0;
}
int MgGi__GetLutDynam(uint32_t lut_bits, uint32_t const*, uint32_t value_bits, uint16_t* lut) {
    journal().add("MgGi__GetLutDynam(%u, %u)", lut_bits, value_bits);
    if (host().get_lut) {
        host().get_lut(lut, lut_bits);
    }
    return 0;
}

}  // extern "C"
