// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// A camera SDK that follows a test's script: features with values, limits and failures, streams of blocks with
/// results, timestamps and chunks. It journals each call.
///
/// It enforces nothing by itself: limits are reported but not checked, and an enumeration refuses only entries that it
/// does not have. The state is global; call `reset` at the start of each test.

#include <PvResult.h>
#include <PvTypes.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "journal.hpp"

namespace scripted {

using code = uint32_t;
inline constexpr code ok = PvResult::Code::OK;
inline constexpr code refused = PvResult::Code::GENERIC_ERROR;

/// One feature of a camera, or one setting of its connection.
struct feature {
    PvGenType type{};
    int64_t integer = 0;  ///< value of an integer or enumeration
    double real = 0.0;
    bool flag = false;
    std::string text;

    int64_t min = 0, max = 0, increment = 1;
    double real_min = 0.0, real_max = 0.0;
    std::vector<std::pair<std::string, int64_t>> entries;

    // Result of each operation.
    code type_result = ok, read = ok, write = ok, execute = ok;
    code min_result = ok, max_result = ok, increment_result = ok;
    code entries_result = ok, entry_result = ok;
    std::function<void(feature&)> before_read;   ///< may change the value or the result
    std::function<void(feature&)> before_write;  ///< may change the result; sees the old value

    feature& refuse_read(code result = refused) { return read = result, *this; }
    feature& refuse_write(code result = refused) { return write = result, *this; }
    std::optional<int64_t> entry_value(std::string const& name) const;
    std::string entry_name() const;  ///< of the current value
};

feature integer(int64_t value, int64_t min = 0, int64_t max = INT32_MAX, int64_t increment = 1);
feature real(double value, double min = 0.0, double max = 1e9);
feature boolean(bool value);
feature text(std::string value);
feature command();
/// The entries have the values 0, 1, ...; `current` is the current entry.
feature enumeration(std::string const& current, std::vector<std::string> const& entries);
feature enumeration(int64_t current, std::vector<std::pair<std::string, int64_t>> entries);

struct chunk {
    uint32_t id;
    std::vector<uint8_t> data;
    bool hidden = false;    ///< listed, but without data
    bool nameless = false;  ///< listed, but its ID can't be read
};

/// Outcome of one fetch.
struct block {
    code call = ok;       ///< result of the call; a buffer is returned only if it is OK
    code operation = ok;  ///< result of the block
    PvPayloadType payload = PvPayloadTypeImage;
    uint32_t width = 640, height = 480;
    uint64_t timestamp = 0;  ///< ticks
    std::vector<chunk> chunks{};
    bool without_image = false;
    bool without_buffer = false;     ///< the call is OK and returns no buffer
    std::function<void()> before{};  ///< runs when the block is fetched
};

/// A camera with its features, its connection and its stream.
struct device {
    PvDeviceInfoType type = PvDeviceInfoTypeGEV;
    std::string vendor = "JAI Corporation", model = "GO-5100M-PGE", version = "1.0", serial = "U700001";
    std::string display_id = "GO-5100M-PGE [10.0.0.7]", connection_id = "10.0.0.7";

    std::map<std::string, feature> features;
    std::map<std::string, feature> communication;
    bool has_features = true;       ///< false: GetParameters returns null
    bool has_communication = true;  ///< false: GetCommunicationParameters returns null
    bool is_gev = true;             ///< false: the device is a plain PvDevice
    bool stream_is_gev = true;

    code connect = ok, open_stream = ok, reconnect = ok, disconnect = ok;
    bool half_connected = false;  ///< a failing `connect` or `open_stream` returns an object nevertheless
    std::function<void()> on_disconnect{};
    bool connected = true;  ///< result of IsConnected
    code enable = ok, disable = ok, negotiate = ok, destination = ok;
    std::function<code(uint32_t size, uint32_t channel)> set_packet_size = [](uint32_t, uint32_t) { return ok; };
    uint32_t payload_size = 0;

    // The stream.
    std::string local_address = "10.0.0.1";
    uint16_t local_port = 50000;
    uint32_t queue_maximum = 512;
    code queue = ok, abort = ok;             ///< a refused operation has no effect
    std::deque<block> blocks;                ///< fetched in order
    std::function<block(uint32_t)> endless;  ///< makes block n after `blocks` is empty; absent: fetches time out

    feature& operator[](std::string const& name) { return features[name]; }
};

/// One interface of the host and its devices.
struct network_interface {
    std::string display_id = "eth0";
    std::deque<device> devices;
};

/// The script and counters of live objects.
struct sdk_state {
    std::deque<network_interface> interfaces;
    code find = ok;
    std::function<void()> on_find;
    std::function<void(char const*)> on_text;  ///< called with each text from which a `PvString` is made
    code attach = ok;
    uint32_t systems_alive = 0;
    uint32_t devices_alive = 0;
    uint32_t streams_alive = 0;

    device& camera() { return interfaces.at(0).devices.at(0); }
};

sdk_state& sdk();
/// Number of live `PvBuffer`s. Those of the plug-in's own factory outlive a test, so compare differences only.
extern int32_t buffers_alive;
/// Restores the initial state: one interface with one `ordinary_camera`, an empty journal.
void reset();
/// \return a camera with every feature that the plug-in uses, in its power-up state
device ordinary_camera();

}  // namespace scripted
