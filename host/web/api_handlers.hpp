// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The bodies of the page's requests and responses, JSON. Pure functions: routing and HTTP are web_server's.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "config/configuration.hpp"
#include "control/control_message.hpp"
#include "images/preview.hpp"
#include "plugin/tone_curve.hpp"
#include "status/frame_history.hpp"
#include "status/log_buffer.hpp"
#include "status/recording_status.hpp"

namespace mediagrabber {

/// GET /status.json
/// \param shown  the image whose histogram is included; may be null
std::string status_response(recording_status const& status, tone_curve::snapshot const& tone,
                            preview::image const* shown);

/// GET /history.json: the frames' times, summarised per second as minimum, mean and maximum. The last second may still
/// be incomplete, so a client requests it again, with the last frame of the second before in `after`.
/// \param records      oldest first; the first one may be there only for the interval to the next
/// \param after        frames up to this number are left out
/// \param max_seconds  limit of the result; the latest are returned
std::string history_response(std::vector<frame_record> const& records, std::uint64_t after, std::size_t max_seconds);

/// GET /log.json
std::string log_response(std::vector<log_buffer::line> const& lines);

/// POST /control/set: a request as on the control socket, limited to the keys that the page may change.
/// \throws setting_refused
change_request read_page_request(std::string const& body);

/// POST /control/lut, {"12_bits": true}. \throws setting_refused
bool read_lut_request(std::string const& body);
/// {} for requests without parameters. \throws setting_refused
void read_empty_request(std::string const& body);

}  // namespace mediagrabber
