#pragma once
/// \file
/// A host that answers from a context and journals every call of the plug-in with its arguments. It also stands in for
/// the system log and, where a test steers it, for the clock.

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "journal.hpp"

namespace recording {

struct io_line {
    uint32_t pin = 0, source = 0, inverter = 0;
};

/// A value published by the plug-in, in the type that its number has.
struct published {
    uint32_t number;
    double value;        ///< of numbers other than 4
    std::string format;  ///< number 4
    uint32_t bits = 0;   ///< number 4
};

struct triggered {
    uint32_t instance;
    uint64_t timestamp;
    void const* frame;
    uint8_t flag;
};

struct announced {
    uint64_t timestamp;
    uint32_t latency_adjustment, second_adjustment;
};

/// What the host is configured to. The defaults are those of a host whose operator has set nothing.
struct host_state {
    std::optional<std::string> model = "GO-5100M-PGE", id;
    uint32_t active_cam_mask = 0;
    int32_t width = -1, height = -1, offset_x = -1, offset_y = -1;
    uint8_t format = 1, cformat = 0;
    int32_t rotate = 0;
    uint32_t datachunk = 1476;
    float fps = -1.0F;
    int32_t tsadjns = 0;
    float expt_man = -1.0F, gain_man = -100.0F, atbright = -1.0F;
    float gainlims_low = -100.0F, gainlims_high = -100.0F, etlims_low = -1.0F, etlims_high = -1.0F;
    int32_t sweep_prof = 0, sweep_gain_mod = 0, sweep_etime_mod = 0, sweep_lut_mod = 0;
    float gamma = -1.0F;
    uint32_t iobox_num = 0;  ///< may differ from the number of lines, to be asked for more
    std::vector<io_line> io_lines;
    std::vector<uint16_t> lut;
    uint16_t lut_bits = 12;
    std::optional<uint16_t> lut_count;  ///< else the size of `lut`
    uint32_t fnum = 0, bnum = 4;
    std::optional<uint32_t> bnum_set;

    int factory_used = 1;
    std::optional<std::vector<void*>> buffer_addresses;  ///< else one flat block
    std::deque<int> trigger_results;                     ///< then 0
    std::function<void(triggered const&)> on_trigger;
    std::function<void(uint32_t number)> on_publish;

    std::deque<int32_t> signals;  ///< one a poll, then 0
    std::function<int32_t()> next_signal;
    int reconfig_result = 0;
    uint32_t reconfig_exit = 0;
    std::function<void()> on_reconfig;
    std::deque<int> dyn_config;  ///< one a poll, then 0
    std::function<void(uint32_t* cdf, uint32_t bits)> calc_lut;
    std::function<void(uint16_t* lut, uint32_t lut_bits)> get_lut;

    // What came of it.
    std::vector<published> values;
    std::vector<triggered> frames;
    std::vector<uint64_t> exports;
    std::vector<announced> announcements;
    bool keep_records = true;  ///< off: nothing is recorded, so that nothing grows

    std::optional<double> last_value(uint32_t number) const;
};

host_state& host();

struct system_log_line {
    int priority;
    std::string text;
};

struct system_log {
    std::vector<system_log_line> lines;
    std::vector<std::string> idents;  ///< of each opening, as they read now
    std::vector<char const*> ident_pointers;
    int options = 0, facility = 0;
};
system_log& the_system_log();

/// The clock that the plug-in sees: the machine's, or one that a test moves.
struct steered_clock {
    bool steered = false;
    uint64_t microseconds = 0;  ///< since the epoch
    uint64_t step = 0;          ///< added after each reading
};
steered_clock& clock();

/// Back to an unconfigured host with an empty journal, an empty system log and the machine's clock.
void reset();

}  // namespace recording
