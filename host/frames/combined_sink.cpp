// SPDX-License-Identifier: MIT
#include "frames/combined_sink.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace mediagrabber {

std::size_t combined_sink::write(frame_view const& frame) {
    std::size_t bytes = 0;
    std::string errors;
    for (auto const& [name, sink] : sinks_) {
        try {
            bytes += sink->write(frame);
        } catch (std::exception const& error) {
            errors += fmt::format("{}{}: {}", errors.empty() ? "" : "; ", name, error.what());
        }
    }
    if (!errors.empty()) {
        throw std::runtime_error(errors);
    }
    return bytes;
}

bool combined_sink::needs_pixels() const {
    return std::ranges::any_of(sinks_, [](named_sink const& one) { return one.sink->needs_pixels(); });
}

}  // namespace mediagrabber
