#include "combined_sink.hpp"

#include <algorithm>
#include <stdexcept>

namespace mediagrabber {

std::size_t combined_sink::keep(frame_view const& frame) {
    std::size_t bytes = 0;
    std::string complaints;
    for (auto const& [name, sink] : sinks_) {
        try {
            bytes += sink->keep(frame);
        } catch (std::exception const& error) {
            complaints += (complaints.empty() ? "" : "; ") + name + ": " + error.what();
        }
    }
    if (!complaints.empty()) {
        throw std::runtime_error(complaints);
    }
    return bytes;
}

bool combined_sink::needs_pixels() const {
    return std::ranges::any_of(sinks_, [](named_sink const& one) { return one.sink->needs_pixels(); });
}

}  // namespace mediagrabber
