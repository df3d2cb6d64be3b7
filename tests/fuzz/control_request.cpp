// SPDX-License-Identifier: MIT
/// \file
/// Requests to the control socket, and answers that `mediagrabber set` reads from it.
///
/// Input: the line.

#include "config/settings.hpp"
#include "control/control_message.hpp"
#include "fuzz_input.hpp"

namespace {

using namespace mediagrabber;

bool same(change_request const& one, change_request const& other) {
    return one.timeout_s == other.timeout_s && one.signal == other.signal && one.keys == other.keys &&
           one.asks_status == other.asks_status &&
           std::ranges::equal(one.settings, other.settings, [](setting const& a, setting const& b) {
               return a.path == b.path && a.value == b.value;
           });
}

/// Applies a request as a running mediagrabber does. A refused request must change nothing.
void apply(std::vector<setting> const& settings) {
    configuration values;
    values.gain.automatic = auto_mode::off;
    values.exposure.automatic = auto_mode::off;
    values.tone.enable = true;
    configuration const before = values;
    try {
        apply_settings(settings, values);
    } catch (setting_refused const&) {
        bool const partly_applied =
            settings.size() > 1 && !(changed_keys(before, values, change_effect::live_update).empty() &&
                                     changed_keys(before, values, change_effect::reconfiguration).empty());
        require(!partly_applied, "a refused request changes nothing");
        return;
    }
    require(needed_for(settings) <= change_effect::reconfiguration, "an applied request needs no restart");
    require(changed_keys(before, values, change_effect::restart).empty() &&
                changed_keys(before, values, change_effect::next_start).empty(),
            "an applied request changes no other values");
}

void answer(std::string const& line) {
    change_request request;
    try {
        request = read_request(line);
    } catch (setting_refused const& refused) {
        auto const received =
            read_answer(written(change_answer{.status = refused.status(), .lines = {refused.what()}}));
        require(received.status == refused.status() && received.lines.size() == 1,
                "an error answer is received unchanged");
        return;
    }
    int const subjects = (request.settings.empty() ? 0 : 1) + (request.signal.empty() ? 0 : 1) +
                         (request.keys.empty() ? 0 : 1) + (request.asks_status ? 1 : 0);
    require(subjects == 1, "a request has settings, a signal, keys or asks for the status");
    require(request.timeout_s > 0.0 && request.timeout_s <= max_timeout_s, "a request has a valid timeout");
    require(same(request, read_request(written(request))), "a request is received unchanged");
    apply(request.settings);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    std::string const line = input.text();
    answer(line);
    try {
        read_answer(line);
    } catch (std::runtime_error const&) {
        return 0;
    }
    return 0;
}
