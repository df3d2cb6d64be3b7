#include "receive_pace.hpp"

#include <algorithm>

namespace openpv {
namespace {

using std::chrono::microseconds;
using seconds = std::chrono::duration<double>;

constexpr std::size_t least_bytes = 32768;  ///< a pace is seen in no less,
constexpr microseconds least_time{200};     ///< nor in a shorter time
constexpr double share_of_rest = 0.75;      ///< so that the end of a block that speeds up is not slept through
constexpr double share_of_room = 0.25;      ///< packets need more room than their bytes, and sleepers wake late
constexpr microseconds longest{2000};       ///< as long as packets may overtake each other
constexpr microseconds shortest{150};       ///< a shorter sleep costs more than it saves

}  // namespace

microseconds gathering_time(block_transfer const& block, std::size_t room, std::chrono::steady_clock::time_point now) {
    auto const elapsed = now - block.began;
    if (block.bytes < least_bytes || block.bytes >= block.expected || elapsed < least_time) {
        return microseconds{0};
    }
    double const bytes_per_second = static_cast<double>(block.bytes) / seconds(elapsed).count();
    double const rest = static_cast<double>(block.expected - block.bytes) * share_of_rest;
    seconds const wanted(std::min(rest, static_cast<double>(room) * share_of_room) / bytes_per_second);
    seconds const allowed = std::min<seconds>(wanted, longest);
    return allowed < shortest ? microseconds{0} : std::chrono::round<microseconds>(allowed);
}

}  // namespace openpv
