/// \file
/// Requests that come over the control socket, and answers that `mediagrabber set` reads there.
///
/// Input: the line.

#include "control_message.hpp"
#include "fuzz_input.hpp"
#include "settings.hpp"

namespace {

using namespace mediagrabber;

bool same(change_request const& one, change_request const& other) {
    return one.timeout_s == other.timeout_s &&
           std::ranges::equal(one.settings, other.settings, [](setting const& a, setting const& b) {
               return a.path == b.path && a.value == b.value;
           });
}

/// What a mediagrabber that is running does with a request; nothing of it when it refuses.
void apply(std::vector<setting> const& settings) {
    configuration values;
    values.gain_mode = control_mode::manual;
    values.exposure_mode = control_mode::manual;
    values.tone_enabled = true;
    configuration const before = values;
    try {
        apply_settings(settings, values);
    } catch (setting_refused const&) {
        bool const in_part =
            settings.size() > 1 && !(changed_keys(before, values, change_effect::small_change).empty() &&
                                     changed_keys(before, values, change_effect::reconfiguration).empty());
        require(!in_part, "what is refused changes nothing");
        return;
    }
    require(needed_for(settings) <= change_effect::reconfiguration, "what is applied can be applied while it runs");
    require(changed_keys(before, values, change_effect::new_run).empty() &&
                changed_keys(before, values, change_effect::next_start).empty(),
            "what is applied changes nothing else");
}

void answer(std::string const& line) {
    change_request request;
    try {
        request = read_request(line);
    } catch (setting_refused const& refused) {
        auto const told = read_answer(written(change_answer{.status = refused.status(), .lines = {refused.what()}}));
        require(told.status == refused.status() && told.lines.size() == 1, "a refusal arrives as it was sent");
        return;
    }
    require(!request.settings.empty() && request.timeout_s > 0.0 && request.timeout_s <= longest_timeout_s,
            "a request asks for something, within some time");
    require(same(request, read_request(written(request))), "a request arrives as it was sent");
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
