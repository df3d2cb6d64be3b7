// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// A test host: it exports every host function, returns the values of a context that the test fills, and journals each
/// call of the plug-in with its arguments. It also replaces the system log and, if a test sets it, the clock.
///
/// The state is global, because host functions are. Call `reset` at the start of each test.

#include <sys/time.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "journal.hpp"

namespace recording {

/// An I/O line, in the host's numbers.
struct io_line {
    uint32_t pin = 0, source = 0, inverter = 0;
};

/// A value that the plug-in has published.
struct published {
    uint32_t number;
    double value;        ///< for numbers other than 4
    std::string format;  ///< for number 4
    uint32_t bits = 0;   ///< for number 4
};

/// A frame that the plug-in has handed over.
struct triggered {
    uint32_t instance;
    uint64_t timestamp;
    void const* frame;
    uint8_t flag;
};

/// An announcement of the next frame.
struct announced {
    uint64_t timestamp;
    uint32_t latency_adjustment, second_adjustment;
};

/// The host's configuration and behaviour, and what it has recorded. The defaults are those of an unconfigured host.
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
    uint32_t iobox_num = 0;  ///< may exceed the size of `io_lines`
    std::vector<io_line> io_lines;
    std::vector<uint16_t> lut;
    uint16_t lut_bits = 12;
    std::optional<uint16_t> lut_count;  ///< absent: the size of `lut`
    uint32_t fnum = 0, bnum = 4;
    std::optional<uint32_t> bnum_set;

    int factory_used = 1;
    std::optional<std::vector<void*>> buffer_addresses;  ///< absent: one flat block
    std::deque<int> trigger_results;                     ///< one per trigger, then 0
    std::function<void(triggered const&)> on_trigger;
    std::function<void(uint32_t number)> on_publish;
    std::function<timeval(timeval const& later, timeval const& earlier)> time_difference;  ///< absent: `timersub`

    std::deque<int32_t> signals;           ///< one per poll, then 0
    std::function<int32_t()> next_signal;  ///< replaces `signals`
    int reconfig_result = 0;
    uint32_t reconfig_exit = 0;
    std::function<void()> on_reconfig;
    std::deque<int> dyn_config;  ///< one per poll, then 0
    std::function<void(uint32_t* cdf, uint32_t bits)> calc_lut;
    std::function<void(uint16_t* lut, uint32_t lut_bits)> get_lut;

    // Records.
    std::vector<published> values;
    std::vector<triggered> frames;
    std::vector<uint64_t> exports;
    std::vector<announced> announcements;
    bool keep_records = true;  ///< false: record nothing, so that memory does not grow

    /// \return last value published under `number`, if any
    std::optional<double> last_value(uint32_t number) const;
};

/// \return the state of the one host
host_state& host();

/// A line that the plug-in wrote to the system log.
struct system_log_line {
    int priority;
    std::string text;
};

/// Records of the system log.
struct system_log {
    std::vector<system_log_line> lines;
    std::vector<std::string> idents;          ///< of each opening, as it was then
    std::vector<char const*> ident_pointers;  ///< of each opening; the text behind them may change
    int options = 0, facility = 0;
};
system_log& the_system_log();

/// The clock of the plug-in: the machine's, or one that a test sets.
struct steered_clock {
    bool steered = false;
    uint64_t microseconds = 0;  ///< since the epoch
    uint64_t step = 0;          ///< microseconds added after each reading
};
steered_clock& clock();

/// Restores an unconfigured host with an empty journal, an empty system log and the machine's clock.
void reset();

}  // namespace recording
