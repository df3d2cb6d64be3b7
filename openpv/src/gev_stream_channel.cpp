#include "gev_stream_channel.hpp"

#include <string>

#include "aravis_handle.hpp"
#include "aravis_result.hpp"
#include "description_check.hpp"
#include "gvcp_message.hpp"
#include "value_limits.hpp"

namespace openpv {
namespace {

// Bootstrap registers of stream channel 0; those of the next channel lie `channel_stride` bytes further.
constexpr uint32_t channel_stride = 0x40;
constexpr uint32_t scp = 0x0D00;   ///< host port in the low 16 bits; the network interface above stays as it is
constexpr uint32_t scps = 0x0D04;  ///< packet size in the low 16 bits, and the flags below
constexpr uint32_t scda = 0x0D18;  ///< destination address

constexpr uint32_t fire_test_packet_flag = 0x80000000;
constexpr uint32_t do_not_fragment_flag = 0x40000000;
constexpr uint32_t low_half = 0x0000FFFF;

/// Selects a stream channel, and remembers which one was selected before.
class selected_channel {
public:
    selected_channel(ArvGcInteger* selector, uint32_t channel, GError** error) : selector_(selector) {
        before_ = arv_gc_integer_get_value(selector_, error);
        if (*error == nullptr && before_ != channel) {
            arv_gc_integer_set_value(selector_, channel, error);
            moved_ = *error == nullptr;
        }
    }
    selected_channel(selected_channel const&) = delete;
    selected_channel& operator=(selected_channel const&) = delete;

    void restore(GError** error) {
        if (moved_) {
            arv_gc_integer_set_value(selector_, before_, error);
        }
    }

private:
    ArvGcInteger* selector_;
    int64_t before_ = 0;
    bool moved_ = false;
};

ArvGcInteger* find_integer(ArvDevice& device, char const* name) {
    ArvGcFeatureNode* const node = find_usable_feature(device, name);
    return node != nullptr && ARV_IS_GC_INTEGER(node) ? ARV_GC_INTEGER(node) : nullptr;
}

}  // namespace

PvResult gev_stream_channel::check_exists() {
    error_slot error;
    uint32_t count = 0;
    if (arv_device_read_register(&device_, gvcp::reg::stream_channel_count, &count, error.out()) == FALSE) {
        return to_result("The number of stream channels cannot be read", error.get());
    }
    if (channel_ >= count) {
        return {PvResult::Code::INVALID_PARAMETER, ("There is no stream channel " + std::to_string(channel_) +
                                                    ": the camera has " + std::to_string(count) + ".")
                                                       .c_str()};
    }
    return {};
}

PvResult gev_stream_channel::read_register(char const* what, uint32_t offset, uint32_t& value) {
    error_slot error;
    arv_device_read_register(&device_, offset + channel_stride * channel_, &value, error.out());
    return to_result(what, error.get());
}

PvResult gev_stream_channel::write_register(char const* what, uint32_t offset, uint32_t value) {
    error_slot error;
    arv_device_write_register(&device_, offset + channel_stride * channel_, value, error.out());
    return to_result(what, error.get());
}

PvResult gev_stream_channel::get_packet_size(uint32_t& bytes) {
    uint32_t value = 0;
    PvResult const result = read_register("The packet size cannot be read", scps, value);
    bytes = value & low_half;
    return result;
}

template <class function>
PvResult gev_stream_channel::with_packet_size_feature(char const* what, bool& found, function&& operation) {
    ArvGcInteger* const size = find_integer(device_, "GevSCPSPacketSize");
    ArvGcInteger* const selector = find_integer(device_, "GevStreamChannelSelector");
    found = size != nullptr && (selector != nullptr || channel_ == 0);
    if (!found) {
        return {};
    }
    error_slot error;
    auto const operate = [&] {
        PvResult const result = operation(size, error.out());
        return result.IsOK() ? to_result(what, error.get()) : result;
    };
    if (selector == nullptr) {
        return operate();
    }
    selected_channel selected(selector, channel_, error.out());
    if (error.get() != nullptr) {
        return to_result(what, error.get());
    }
    PvResult const done = operate();
    selected.restore(error.out());
    return done.IsOK() ? to_result(what, error.get()) : done;
}

PvResult gev_stream_channel::get_packet_size_limits(packet_size_limits& limits) {
    PvGenParameter::impl::integer_limits described;
    bool found = false;
    PvResult const result = with_packet_size_feature(
        "The limits of the packet size cannot be read", found, [&described](ArvGcInteger* size, GError** error) {
            described.minimum = arv_gc_integer_get_min(size, error);
            described.maximum = *error == nullptr ? arv_gc_integer_get_max(size, error) : 0;
            described.increment = *error == nullptr ? arv_gc_integer_get_inc(size, error) : 1;
            return PvResult();
        });
    // A description without limits gives those of the 64-bit type.
    if (found && result.IsOK() && described.minimum > 0 && described.maximum <= low_half && described.increment > 0 &&
        described.minimum <= described.maximum) {
        limits = {static_cast<uint32_t>(described.minimum), static_cast<uint32_t>(described.maximum),
                  static_cast<uint32_t>(described.increment)};
    }
    return result;
}

PvResult gev_stream_channel::check_packet_size_unlocked() {
    bool found = false;
    return with_packet_size_feature(
        "The packet size's lock cannot be read", found, [](ArvGcInteger* size, GError** error) -> PvResult {
            if (arv_gc_feature_node_is_locked(ARV_GC_FEATURE_NODE(size), error) != FALSE) {
                return {PvResult::Code::NOT_SUPPORTED, "The packet size cannot be set: it is locked while streaming."};
            }
            return {};
        });
}

PvResult gev_stream_channel::set_packet_size(uint32_t bytes) {
    packet_size_limits limits;
    PvResult result = get_packet_size_limits(limits);
    if (result.IsOK()) {
        result = check_limits("The packet size", static_cast<int64_t>(bytes),
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
    result =
        with_packet_size_feature("The packet size cannot be set", found, [bytes](ArvGcInteger* size, GError** error) {
            arv_gc_integer_set_value(size, bytes, error);
            return PvResult();
        });
    if (found || !result.IsOK()) {
        return result;
    }
    uint32_t value = 0;
    result = read_register("The packet size cannot be read", scps, value);
    return result.IsOK() ? write_register("The packet size cannot be set", scps, (value & do_not_fragment_flag) | bytes)
                         : result;
}

PvResult gev_stream_channel::get_destination(udp_endpoint& destination) {
    uint32_t port = 0;
    uint32_t address = 0;
    PvResult result = read_register("The stream's port cannot be read", scp, port);
    if (result.IsOK()) {
        result = read_register("The stream's destination cannot be read", scda, address);
    }
    destination = {{address}, static_cast<uint16_t>(port & low_half)};
    return result;
}

PvResult gev_stream_channel::set_destination(udp_endpoint destination) {
    uint32_t port = 0;
    PvResult result = read_register("The stream's port cannot be read", scp, port);
    if (result.IsOK()) {
        result = write_register("The stream's destination cannot be set", scda, destination.address.value);
    }
    if (result.IsOK()) {
        result = write_register("The stream's port cannot be set", scp, (port & ~low_half) | destination.port);
    }
    return result;
}

PvResult gev_stream_channel::fire_test_packet(uint32_t bytes) {
    PvResult const fired =
        write_register("A test packet cannot be sent", scps, fire_test_packet_flag | do_not_fragment_flag | bytes);
    // A camera that keeps the flag would send another one at the next change.
    PvResult const put_back = write_register("A test packet cannot be sent", scps, do_not_fragment_flag | bytes);
    return fired.IsOK() ? put_back : fired;
}

}  // namespace openpv
