// SPDX-License-Identifier: MIT
/// \file
/// A camera's GenICam XML, used through openpv's parameters, with registers whose content is part of the input. The
/// registers are in memory, so the fuzzer needs no network.
///
/// Input: eight bytes, which are repeated through the camera's memory; then the XML.

#include <array>
#include <bit>
#include <cstddef>
#include <limits>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <endian.h>

#include <PvGenParameterArray.h>

#include "device/camera_link.hpp"
#include "device/node_map.hpp"
#include "fuzz_input.hpp"
#include "genicam/node_graph.hpp"
#include "gvcp/gvcp_message.hpp"
#include "stream/stream_channel.hpp"

namespace {

constexpr uint64_t memory_bytes = 0x10000;
constexpr std::size_t max_features = 48;

/// The camera that the input describes.
struct described_camera {
    std::array<uint8_t, 8> pattern{};
    std::string description;
    std::map<uint64_t, uint8_t> written;
};
described_camera camera;

/// The camera's memory.
class described_registers final : public openpv::register_port {
public:
    openpv::register_result read(uint64_t address, std::span<std::byte> into) override {
        if (!exists(address, into.size())) {
            return {openpv::register_outcome::refused, invalid_address, "the address does not exist"};
        }
        for (std::size_t i = 0; i < into.size(); ++i) {
            auto const known = camera.written.find(address + i);
            into[i] = static_cast<std::byte>(
                known != camera.written.end() ? known->second : camera.pattern[(address + i) % camera.pattern.size()]);
        }
        return {};
    }
    openpv::register_result write(uint64_t address, std::span<std::byte const> from) override {
        if (!exists(address, from.size())) {
            return {openpv::register_outcome::refused, write_protect, "read-only"};
        }
        for (std::size_t i = 0; i < from.size(); ++i) {
            camera.written[address + i] = std::to_integer<uint8_t>(from[i]);
        }
        return {};
    }
    openpv::register_result read_register(uint64_t address, uint32_t& value) override {
        std::array<std::byte, 4> raw{};
        auto const result = read(address, raw);
        if (result.ok()) {
            value = be32toh(std::bit_cast<uint32_t>(raw));
        }
        return result;
    }
    openpv::register_result write_register(uint64_t address, uint32_t value) override {
        return write(address, std::bit_cast<std::array<std::byte, 4>>(htobe32(value)));
    }

private:
    // GVCP status codes.
    static constexpr uint16_t invalid_address = 0x8003;
    static constexpr uint16_t write_protect = 0x8004;

    static bool exists(uint64_t address, std::size_t size) {
        return address < memory_bytes && size <= memory_bytes - address;
    }
};

}  // namespace

namespace openpv {

// Replaces the network session that a link opens with one to the described device.
std::unique_ptr<camera_session> camera_session::open(connection_id const& /*id*/, std::function<void()> /*lost*/,
                                                     PvResult& result, session_mode /*mode*/) {
    auto registers = std::make_unique<described_registers>();
    std::string error;
    auto features = node_graph::load(camera.description, *registers, error);
    if (features == nullptr) {
        result = not_connected(error);
        return nullptr;
    }
    return std::unique_ptr<camera_session>(new camera_session(std::move(registers), std::move(features), true));
}
camera_session::~camera_session() {
    if (controlled_) {
        registers_->write_register(gvcp::reg::control_channel_privilege, 0);
    }
}
PvResult camera_session::not_connected(std::string const& what) {
    return {PvResult::Code::NOT_CONNECTED, what.c_str()};
}

}  // namespace openpv

namespace {

/// The node names in the XML, and names that openpv itself uses.
std::vector<std::string> names_in(std::string_view description) {
    constexpr std::string_view mark = "Name=\"";
    std::vector<std::string> names{"GevSCPSPacketSize", "GevTimestampValue", "PayloadSize", "NoSuchFeature"};
    for (std::size_t at = description.find(mark); at != description.npos && names.size() < max_features;
         at = description.find(mark, at)) {
        at += mark.size();
        std::size_t const end = std::min(description.find('"', at), description.size());
        names.emplace_back(description.substr(at, end - at));
    }
    return names;
}

void check_explained(PvResult const& result) {
    require(result.IsOK() || result.GetDescription().GetLength() != 0, "a failure has a description");
}

void use(PvGenInteger& feature) {
    int64_t value = 0;
    int64_t low = 0;
    int64_t high = 0;
    int64_t step = 0;
    check_explained(feature.GetValue(value));
    check_explained(feature.GetMin(low));
    check_explained(feature.GetMax(high));
    check_explained(feature.GetIncrement(step));
    for (int64_t const each : {value, low, high, std::numeric_limits<int64_t>::min(), int64_t{-1}, int64_t{48}}) {
        check_explained(feature.SetValue(each));
    }
}

void use(PvGenFloat& feature) {
    double value = 0;
    double low = 0;
    double high = 0;
    check_explained(feature.GetValue(value));
    check_explained(feature.GetMin(low));
    check_explained(feature.GetMax(high));
    for (double const each : {value, low, high, std::numeric_limits<double>::quiet_NaN(), 1e300, 2.5}) {
        check_explained(feature.SetValue(each));
    }
}

void use(PvGenEnum& feature) {
    PvString name;
    int64_t value = 0;
    check_explained(feature.GetValue(name));
    check_explained(feature.GetValue(value));
    int64_t count = 0;
    check_explained(feature.GetEntriesCount(count));
    for (int64_t i = -1; i <= count; ++i) {
        PvGenEnumEntry const* entry = nullptr;
        bool const found = feature.GetEntryByIndex(i, &entry).IsOK();
        require(!found || entry != nullptr, "an entry that was found is not null");
        if (found && entry->GetName(name).IsOK() && entry->GetValue(value).IsOK()) {
            check_explained(feature.SetValue(name));
            check_explained(feature.SetValue(value));
        }
    }
    check_explained(feature.SetValue(PvString("NoSuchEntry")));
}

void use(PvGenBoolean& feature) {
    bool value = false;
    check_explained(feature.GetValue(value));
    check_explained(feature.SetValue(!value));
}

void use(PvGenString& feature) {
    PvString value;
    check_explained(feature.GetValue(value));
}

template <class kind>
void use_if(PvGenParameter* feature) {
    if (auto* const one = dynamic_cast<kind*>(feature)) {
        use(*one);
    }
}

void use_all(PvGenParameterArray& features) {
    for (std::string const& name : names_in(camera.description)) {
        PvGenParameter* const feature = features.Get(name.c_str());
        use_if<PvGenInteger>(feature);
        use_if<PvGenFloat>(feature);
        use_if<PvGenEnum>(feature);
        use_if<PvGenBoolean>(feature);
        use_if<PvGenString>(feature);
        if (auto* const command = dynamic_cast<PvGenCommand*>(feature)) {
            check_explained(command->Execute());
        }
    }
}

/// Searches and sets the packet size, for any XML.
void use_stream_channel(openpv::camera_link& link) {
    auto const used = link.access(
        "The stream channel cannot be used", [](openpv::register_port& registers, openpv::node_graph& features) {
            openpv::stream_channel channel(registers, features, 0);
            openpv::packet_size_limits limits;
            check_explained(channel.get_packet_size_limits(limits));
            require(limits.minimum <= limits.maximum && limits.increment != 0, "limits are valid for the search");
            check_explained(openpv::find_max_passing(limits, [](uint32_t bytes) { return bytes <= 1500; })
                                ? channel.set_packet_size(1500)
                                : PvResult());
            return channel.check_packet_size_unlocked();
        });
    check_explained(used);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    camera = {};
    std::ranges::copy(input.bytes(camera.pattern.size()), camera.pattern.begin());
    camera.description = input.text();
    auto const link = std::make_shared<openpv::camera_link>(openpv::connection_id{});
    if (link->connect_device().IsOK()) {
        auto const features = openpv::make_camera_parameters(link);
        use_all(*features);
        use_stream_channel(*link);
    }
    return 0;
}
