// SPDX-License-Identifier: MIT
#include "stream/stream_channel.hpp"

#include <string>

#include "genicam/register_window.hpp"
#include "genicam/value_limits.hpp"
#include "gvcp/gvcp_message.hpp"

namespace openpv {
namespace {

// GigE Vision bootstrap registers of stream channel 0. Those of the next channel are `channel_stride` bytes further.
constexpr std::uint32_t channel_stride = 0x40;
constexpr std::uint32_t scp = 0x0D00;   ///< host port in the low 16 bits; the network interface above is preserved
constexpr std::uint32_t scps = 0x0D04;  ///< packet size in the low 16 bits, flags below
constexpr std::uint32_t scda = 0x0D18;  ///< destination address

constexpr std::uint32_t fire_test_packet_flag = 0x80000000;
constexpr std::uint32_t do_not_fragment_flag = 0x40000000;
constexpr std::uint32_t low_half = 0x0000FFFF;

/// Selects a stream channel, and restores the previous selection on request.
class selected_channel {
public:
    selected_channel(node& selector, std::uint32_t channel, evaluation& state) : selector_(selector) {
        if (selector_.read(state, previous_) && previous_ != channel) {
            changed_ = selector_.write(state, std::int64_t{channel});
        }
    }
    selected_channel(selected_channel const&) = delete;
    selected_channel& operator=(selected_channel const&) = delete;

    void restore(evaluation& state) {
        if (changed_) {
            selector_.write(state, previous_);
        }
    }

private:
    node& selector_;
    std::int64_t previous_ = 0;
    bool changed_ = false;
};

node* find_integer(node_graph& features, char const* name) {
    node* const found = features.find_usable(name);
    return found != nullptr && found->type() == PvGenTypeInteger ? found : nullptr;
}

PvResult to_result(char const* what, evaluation const& state) {
    return state.code == PvResult::Code::OK ? PvResult() : to_failure(what, state);
}
PvResult to_result(char const* what, register_result const& result) {
    evaluation state;
    return result.ok() || fail_access(state, result) ? PvResult() : to_failure(what, state);
}

}  // namespace

PvResult stream_channel::check_exists() {
    std::uint32_t count = 0;
    auto const read = registers_.read_register(gvcp::reg::stream_channel_count, count);
    if (!read.ok()) {
        return to_result("The number of stream channels cannot be read", read);
    }
    if (channel_ >= count) {
        return {PvResult::Code::INVALID_PARAMETER, ("Stream channel " + std::to_string(channel_) +
                                                    " does not exist: the camera has " + std::to_string(count) + ".")
                                                       .c_str()};
    }
    return {};
}

PvResult stream_channel::read_register(char const* what, std::uint32_t offset, std::uint32_t& value) {
    return to_result(what, registers_.read_register(offset + channel_stride * channel_, value));
}

PvResult stream_channel::write_register(char const* what, std::uint32_t offset, std::uint32_t value) {
    return to_result(what, registers_.write_register(offset + channel_stride * channel_, value));
}

PvResult stream_channel::get_packet_size(std::uint32_t& bytes) {
    std::uint32_t value = 0;
    PvResult const result = read_register("The packet size cannot be read", scps, value);
    bytes = value & low_half;
    return result;
}

template <class function>
PvResult stream_channel::with_packet_size_feature(char const* what, bool& found, function&& operation) {
    node* const size = find_integer(features_, "GevSCPSPacketSize");
    node* const selector = find_integer(features_, "GevStreamChannelSelector");
    found = size != nullptr && (selector != nullptr || channel_ == 0);
    if (!found) {
        return {};
    }
    auto const operate = [&] {
        evaluation state;
        PvResult const result = operation(*size, state);
        return result.IsOK() ? to_result(what, state) : result;
    };
    if (selector == nullptr) {
        return operate();
    }
    evaluation selecting;
    selected_channel selected(*selector, channel_, selecting);
    if (selecting.code != PvResult::Code::OK) {
        return to_result(what, selecting);
    }
    PvResult const done = operate();
    selected.restore(selecting);
    return done.IsOK() ? to_result(what, selecting) : done;
}

PvResult stream_channel::get_packet_size_limits(packet_size_limits& limits) {
    PvGenParameter::impl::integer_limits described;
    bool found = false;
    PvResult const result = with_packet_size_feature("The limits of the packet size cannot be read", found,
                                                     [&described](node& size, evaluation& state) {
                                                         size.get_limits(state, described);
                                                         return PvResult();
                                                     });
    // If the GenICam XML gives no limits, these are the limits of the 64-bit type.
    if (found && result.IsOK() && described.minimum > 0 && described.maximum <= low_half && described.increment > 0 &&
        described.minimum <= described.maximum) {
        limits = {static_cast<std::uint32_t>(described.minimum), static_cast<std::uint32_t>(described.maximum),
                  static_cast<std::uint32_t>(described.increment)};
    }
    return result;
}

PvResult stream_channel::check_packet_size_unlocked() {
    bool found = false;
    return with_packet_size_feature(
        "The access mode of the packet size cannot be read", found, [](node& size, evaluation& state) -> PvResult {
            bool locked = false;
            if (size.is_locked(state, locked) && locked) {
                return {PvResult::Code::NOT_SUPPORTED,
                        "The packet size cannot be set: the camera locks it while streaming. Stop the stream first."};
            }
            return {};
        });
}

PvResult stream_channel::set_packet_size(std::uint32_t bytes) {
    packet_size_limits limits;
    PvResult result = get_packet_size_limits(limits);
    if (result.IsOK()) {
        result = check_limits("The packet size", static_cast<std::int64_t>(bytes),
                              {limits.minimum, limits.maximum, limits.increment});
    }
    if (!result.IsOK()) {
        return result;
    }
    result = check_packet_size_unlocked();
    if (!result.IsOK()) {
        return result;
    }
    bool found = false;
    result = with_packet_size_feature("The packet size cannot be set", found, [bytes](node& size, evaluation& state) {
        size.write(state, std::int64_t{bytes});
        return PvResult();
    });
    if (found || !result.IsOK()) {
        return result;
    }
    std::uint32_t value = 0;
    result = read_register("The packet size cannot be read", scps, value);
    return result.IsOK() ? write_register("The packet size cannot be set", scps, (value & do_not_fragment_flag) | bytes)
                         : result;
}

PvResult stream_channel::get_destination(udp_endpoint& destination) {
    std::uint32_t port = 0;
    std::uint32_t address = 0;
    PvResult result = read_register("The stream destination port cannot be read", scp, port);
    if (result.IsOK()) {
        result = read_register("The stream destination address cannot be read", scda, address);
    }
    destination = {{address}, static_cast<std::uint16_t>(port & low_half)};
    return result;
}

PvResult stream_channel::set_destination(udp_endpoint destination) {
    std::uint32_t port = 0;
    PvResult result = read_register("The stream destination port cannot be read", scp, port);
    if (result.IsOK()) {
        result = write_register("The stream destination address cannot be set", scda, destination.address.value);
    }
    if (result.IsOK()) {
        result =
            write_register("The stream destination port cannot be set", scp, (port & ~low_half) | destination.port);
    }
    return result;
}

PvResult stream_channel::fire_test_packet(std::uint32_t bytes) {
    PvResult const fired =
        write_register("A test packet cannot be sent", scps, fire_test_packet_flag | do_not_fragment_flag | bytes);
    // A camera that keeps the flag would send another packet at the next change.
    PvResult const restored = write_register("A test packet cannot be sent", scps, do_not_fragment_flag | bytes);
    return fired.IsOK() ? restored : fired;
}

}  // namespace openpv
