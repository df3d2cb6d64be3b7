// SPDX-License-Identifier: MIT
#include "stream/packet_outlet.hpp"

#include <algorithm>

namespace camsim {

std::size_t packet_outlet::send(endpoint const& destination, packet_run const& run, stream_block const& block) {
    if (!faults_.any()) {
        return socket_.send(destination, run);
    }
    std::size_t rejected = 0;
    for (stream_faults::datagram& packet : faults_.filter(run, block)) {
        iovec piece{packet.data(), packet.size()};
        rejected += 1 - socket_.send(destination, {std::span(&piece, 1), 1, packet.size()});
    }
    return run.packet_count() - std::min(rejected, run.packet_count());
}

}  // namespace camsim
