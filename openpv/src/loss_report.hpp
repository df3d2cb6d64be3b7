#pragma once
/// \file
/// What a user has to be told of lost packets. The layer has no log of its own: these are lines on standard error.

#include <cstddef>
#include <cstdint>
#include <string>

#include "gvsp_assembler.hpp"
#include "ipv4_address.hpp"

namespace openpv {

/// Says that a socket has room for too little, and which setting to raise to what; once for each need that is greater
/// than the ones before.
void warn_of_small_room(ipv4_address camera, std::size_t granted_bytes, std::size_t needed_bytes);

/// What was lost between a camera and its buffers, and where.
/// \param kernel_drops packets that reached this host and found no room in the socket
/// \return empty when nothing was lost
std::string describe_losses(assembler_counters const& counted, uint64_t kernel_drops);

/// Writes the description, when there is one.
void report_losses(ipv4_address camera, assembler_counters const& counted, uint64_t kernel_drops);

}  // namespace openpv
