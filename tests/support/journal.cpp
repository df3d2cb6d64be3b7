// SPDX-License-Identifier: MIT
#include "journal.hpp"

#include <algorithm>
#include <cstdarg>

namespace support {

namespace {
thread_local int depth_outside = 0;
}

outside_plugin::outside_plugin() {
    ++depth_outside;
}
outside_plugin::~outside_plugin() {
    --depth_outside;
}
bool outside_plugin::here() {
    return depth_outside > 0;
}

void call_journal::add(char const* format, ...) {
    if (!enabled_) {
        return;
    }
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    calls_.emplace_back(text);
    threads_.insert(std::this_thread::get_id());
}

std::vector<std::string> call_journal::starting(std::vector<std::string> const& prefixes) const {
    std::vector<std::string> found;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found), [&](std::string const& call) {
        return std::any_of(prefixes.begin(), prefixes.end(),
                           [&](std::string const& prefix) { return call.starts_with(prefix); });
    });
    return found;
}

call_journal& journal() {
    static call_journal the_journal;
    return the_journal;
}

}  // namespace support
