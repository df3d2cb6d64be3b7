#pragma once

#include <span>
#include <string>
#include <vector>

#include "report/recording_facts.hpp"
#include "report/recording_reader.hpp"

namespace mediagrabber {

struct thumbnail {
    double at_s = 0;          ///< after the first frame
    std::uint64_t frame = 0;  ///< its number
    small_picture picture;
    std::string missing;  ///< why there is no picture; empty: there is one
};

/// A page of HTML about a recording that needs nothing beside itself: figures, charts and pictures are inside.
/// \param title as text, not as HTML
std::string report_page(std::string const& title, recording_facts const& facts, std::span<journal_entry const> frames,
                        std::span<thumbnail const> thumbnails);

}  // namespace mediagrabber
