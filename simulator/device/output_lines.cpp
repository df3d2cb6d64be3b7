// SPDX-License-Identifier: MIT
#include "device/output_lines.hpp"

namespace camsim {

bool output_lines::signal(line_source source) const {
    switch (source) {
        case line_source::low:
            return false;
        case line_source::high:
            return true;
        case line_source::exposure_active:
            return exposures > 0;
        case line_source::frame_active:
            return frames > 0;
        case line_source::user_output0:
            return user_outputs[0];
        case line_source::user_output1:
            return user_outputs[1];
    }
    return false;
}

bool output_lines::level(std::size_t line) const {
    return signal(lines[line].source) != lines[line].inverted;
}

}  // namespace camsim
