/// \file
/// A camera's description of itself, read and used through the layer's parameters, and its registers, which answer as
/// the input says. There is no network: what is described is a device of Aravis's that lives in the input.
///
/// Input: eight bytes that the camera's memory is filled with; then the description.

#include <array>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <arv.h>
#include <PvGenParameterArray.h>

#include "camera_features.hpp"
#include "camera_link.hpp"
#include "description_check.hpp"
#include "fuzz_input.hpp"
#include "gev_stream_channel.hpp"

namespace {

constexpr uint64_t memory_bytes = 0x10000;
constexpr std::size_t most_features = 48;

/// What the camera is made of.
struct input_of_camera {
    std::array<uint8_t, 8> pattern{};
    std::string description;
    std::map<uint64_t, uint8_t> written;
};
input_of_camera camera;

struct described_device {
    ArvDevice parent;
    ArvGc* genicam;
};
struct described_device_class {
    ArvDeviceClass parent;
};

gboolean read_memory(ArvDevice* /*device*/, guint64 address, guint32 size, void* buffer, GError** error) {
    if (address >= memory_bytes || size > memory_bytes - address) {
        g_set_error_literal(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_ADDRESS,
                            "no such address");
        return FALSE;
    }
    for (guint32 i = 0; i < size; ++i) {
        auto const known = camera.written.find(address + i);
        static_cast<uint8_t*>(buffer)[i] =
            known != camera.written.end() ? known->second : camera.pattern[(address + i) % camera.pattern.size()];
    }
    return TRUE;
}

gboolean write_memory(ArvDevice* /*device*/, guint64 address, guint32 size, void* buffer, GError** error) {
    if (address >= memory_bytes || size > memory_bytes - address) {
        g_set_error_literal(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_PROTOCOL_ERROR_WRITE_PROTECT, "read-only");
        return FALSE;
    }
    for (guint32 i = 0; i < size; ++i) {
        camera.written[address + i] = static_cast<uint8_t*>(buffer)[i];
    }
    return TRUE;
}

gboolean read_register(ArvDevice* device, guint64 address, guint32* value, GError** error) {
    guint32 raw = 0;
    gboolean const done = read_memory(device, address, sizeof raw, &raw, error);
    *value = GUINT32_FROM_BE(raw);
    return done;
}

gboolean write_register(ArvDevice* device, guint64 address, guint32 value, GError** error) {
    guint32 raw = GUINT32_TO_BE(value);
    return write_memory(device, address, sizeof raw, &raw, error);
}

ArvGc* get_genicam(ArvDevice* device) {
    return reinterpret_cast<described_device*>(device)->genicam;
}

char const* get_genicam_xml(ArvDevice* /*device*/, size_t* size) {
    *size = camera.description.size();
    return camera.description.c_str();
}

GObjectClass* parent_of_described_device = nullptr;

void finalize(GObject* object) {
    g_clear_object(&reinterpret_cast<described_device*>(object)->genicam);
    parent_of_described_device->finalize(object);
}

void initialise_class(void* made, void* /*data*/) {
    auto* const device = static_cast<ArvDeviceClass*>(made);
    parent_of_described_device = static_cast<GObjectClass*>(g_type_class_peek_parent(made));
    device->parent_class.finalize = finalize;
    device->get_genicam = get_genicam;
    device->get_genicam_xml = get_genicam_xml;
    device->read_memory = read_memory;
    device->write_memory = write_memory;
    device->read_register = read_register;
    device->write_register = write_register;
}

GType described_device_type() {
    static GType const type =
        g_type_register_static_simple(ARV_TYPE_DEVICE, "DescribedDevice", sizeof(described_device_class),
                                      initialise_class, sizeof(described_device), nullptr, G_TYPE_FLAG_NONE);
    return type;
}

openpv::object_handle<ArvDevice> open_described_device() {
    openpv::object_handle<ArvDevice> device(ARV_DEVICE(g_object_new(described_device_type(), nullptr)));
    ArvGc* const genicam = arv_gc_new(device.get(), camera.description.data(), camera.description.size());
    reinterpret_cast<described_device*>(device.get())->genicam = genicam;
    if (genicam == nullptr) {
        return nullptr;  // as Aravis does when it cannot read what the camera says of itself
    }
    arv_device_set_register_cache_policy(device.get(), ARV_REGISTER_CACHE_POLICY_ENABLE);
    return device;
}

}  // namespace

namespace openpv {

// The session that a link opens is one with the described device.
std::unique_ptr<camera_session> camera_session::open(connection_id const& /*id*/, std::function<void()> /*lost*/,
                                                     PvResult& result) {
    auto device = open_described_device();
    if (device == nullptr) {
        result = not_connected("There is no description");
        return nullptr;
    }
    if (auto const why = find_endless_reference(*arv_device_get_genicam(device.get()))) {
        result = not_connected(*why);
        return nullptr;
    }
    return std::unique_ptr<camera_session>(new camera_session(std::move(device)));
}
camera_session::~camera_session() = default;
PvResult camera_session::not_connected(std::string const& what) {
    return {PvResult::Code::NOT_CONNECTED, what.c_str()};
}

}  // namespace openpv

namespace {

/// The names that a description gives to its nodes.
std::vector<std::string> names_in(std::string_view description) {
    constexpr std::string_view mark = "Name=\"";
    std::vector<std::string> names{"GevSCPSPacketSize", "GevTimestampValue", "PayloadSize", "NoSuchFeature"};
    for (std::size_t at = description.find(mark); at != description.npos && names.size() < most_features;
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
        bool const there = feature.GetEntryByIndex(i, &entry).IsOK();
        require(!there || entry != nullptr, "an entry that is there can be looked at");
        if (there && entry->GetName(name).IsOK() && entry->GetValue(value).IsOK()) {
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

/// What is asked of a camera's packet size, whatever it describes.
void use_stream_channel(openpv::camera_link& link) {
    auto const used = link.access("The stream channel cannot be used", [](ArvDevice& device) {
        openpv::gev_stream_channel channel(device, 0);
        openpv::packet_size_limits limits;
        check_explained(channel.get_packet_size_limits(limits));
        require(limits.minimum <= limits.maximum && limits.increment != 0, "limits can be searched");
        check_explained(openpv::find_largest_passing(limits, [](uint32_t bytes) { return bytes <= 1500; })
                            ? channel.set_packet_size(1500)
                            : PvResult());
        return channel.check_packet_size_unlocked();
    });
    check_explained(used);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // Aravis complains of wrong descriptions; that is what these are.
    g_log_set_default_handler([](char const*, GLogLevelFlags, char const*, void*) {}, nullptr);
    return 0;
}

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
