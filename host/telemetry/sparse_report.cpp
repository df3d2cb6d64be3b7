#include "telemetry/sparse_report.hpp"

namespace mediagrabber {

std::optional<sparse_report::message> sparse_report::due(clock::time_point now) {
    if (!latest_ || latest_ == said_ || (said_ && now < next_)) {
        return std::nullopt;
    }
    said_ = latest_;
    next_ = now + interval_;
    return said_;
}

}  // namespace mediagrabber
