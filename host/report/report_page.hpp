// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <string>

#include "report/recording_facts.hpp"
#include "report/recording_reader.hpp"

namespace mediagrabber {

struct thumbnail {
    double at_s = 0;          ///< from the first frame
    std::uint64_t frame = 0;  ///< frame number
    small_image image;
    std::string error;  ///< why the image is missing; empty: it is not
};

/// Creates the report of a recording: one self-contained HTML file with figures, charts (SVG) and thumbnails (PNG). It
/// loads nothing and runs no script.
/// \param title  plain text
std::string report_page(std::string const& title, recording_facts const& facts, std::span<index_entry const> frames,
                        std::span<thumbnail const> thumbnails);

}  // namespace mediagrabber
