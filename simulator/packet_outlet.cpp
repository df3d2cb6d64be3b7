#include "packet_outlet.hpp"

#include <algorithm>

namespace camsim {

/// \param block that the packets belong to
/// \return packets of the run, less those that the kernel refused: what a fault takes has been sent
std::size_t packet_outlet::send(endpoint const& destination, packet_run const& run, stream_block const& block) {
    if (!faults_.any()) {
        return socket_.send(destination, run);
    }
    std::size_t refused = 0;
    for (stream_faults::datagram& packet : faults_.filter(run, block)) {
        iovec piece{packet.data(), packet.size()};
        refused += 1 - socket_.send(destination, {std::span(&piece, 1), 1, packet.size()});
    }
    return run.packet_count() - std::min(refused, run.packet_count());
}

}  // namespace camsim
