#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "configuration.hpp"
#include "control_message.hpp"
#include "live/frame_history.hpp"
#include "live/log_memory.hpp"
#include "live/recording_status.hpp"
#include "live/tone_curve.hpp"
#include "web/live_picture.hpp"

namespace mediagrabber {

// What the page is told, as JSON.

/// \param shown  the picture whose histogram is told; may be empty
std::string status_answer(recording_status const& status, tone_curve::snapshot const& tone,
                          live_picture::picture const* shown);

/// What charts need of frames: how much values vary in each second. The last stretch may still grow; who asks again
/// asks for what is behind the last frame of the one before.
/// \param records    oldest first; the first one may be there only for the interval to the next
/// \param after      frames up to this number are left out
/// \param most       stretches, of more the newest
std::string history_answer(std::vector<frame_record> const& records, std::uint64_t after, std::size_t most);

std::string log_answer(std::vector<log_memory::line> const& lines);

/// A line of JSON as the control socket has it, checked for what the page may ask.
/// \throws setting_refused
change_request read_page_request(std::string const& body);

/// {"12_bits": true}. \throws setting_refused
bool read_table_request(std::string const& body);
/// {}. \throws setting_refused
void read_empty_request(std::string const& body);

}  // namespace mediagrabber
