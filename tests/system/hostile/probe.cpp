// SPDX-License-Identifier: MIT
/// \file
/// An application on the Pv classes, for tests with hostile cameras.
///
///   hostile_probe search              prints the number of cameras, then each one's display ID
///   hostile_probe read FEATURE...     connects to the first camera, and prints the value or the error of each feature
///   hostile_probe stream              connects, opens a stream, starts it, prints its port, and waits for standard
///   input
///                                     to end
///
/// Results are lines of standard output, errors too. The exit status is 0 unless the arguments are wrong.

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <PvDeviceGEV.h>
#include <PvDeviceInfo.h>
#include <PvGenBoolean.h>
#include <PvGenEnum.h>
#include <PvGenFloat.h>
#include <PvGenInteger.h>
#include <PvGenString.h>
#include <PvInterface.h>
#include <PvStreamGEV.h>
#include <PvSystem.h>

namespace {

using clock = std::chrono::steady_clock;

struct device_free {
    void operator()(PvDevice* device) const { PvDevice::Free(device); }
};
struct stream_free {
    void operator()(PvStream* stream) const { PvStream::Free(stream); }
};

void print_result(char const* what, PvResult const& result, clock::time_point start) {
    auto const time = std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - start).count();
    std::printf("%s: %s in %lld ms %s\n", what, result.GetCodeString().GetAscii(), static_cast<long long>(time),
                result.GetDescription().GetAscii());
    std::fflush(stdout);
}

std::vector<PvDeviceInfo const*> search(PvSystem& system) {
    auto const start = clock::now();
    print_result("search", system.Find(), start);
    std::vector<PvDeviceInfo const*> found;
    for (uint32_t i = 0; i < system.GetInterfaceCount(); ++i) {
        PvInterface const& interface = *system.GetInterface(i);
        for (uint32_t k = 0; k < interface.GetDeviceCount(); ++k) {
            found.push_back(interface.GetDeviceInfo(k));
        }
    }
    return found;
}

void print_cameras() {
    PvSystem system;
    auto const cameras = search(system);
    std::printf("cameras: %zu\n", cameras.size());
    for (PvDeviceInfo const* const each : cameras) {
        std::printf("camera: %s\n", each->GetDisplayID().GetAscii());
    }
}

std::unique_ptr<PvDevice, device_free> connect(PvString& id) {
    PvSystem system;
    auto const cameras = search(system);
    if (cameras.empty()) {
        return nullptr;
    }
    id = cameras.front()->GetConnectionID();
    auto const start = clock::now();
    PvResult result;
    std::unique_ptr<PvDevice, device_free> device(PvDevice::CreateAndConnect(id, &result));
    print_result("connect", result, start);
    return device;
}

std::string text_of(PvGenParameter& feature, PvResult& result) {
    int64_t integer = 0;
    double number = 0;
    bool flag = false;
    PvString text;
    if (auto* const as_integer = dynamic_cast<PvGenInteger*>(&feature)) {
        result = as_integer->GetValue(integer);
        return std::to_string(integer);
    }
    if (auto* const as_float = dynamic_cast<PvGenFloat*>(&feature)) {
        result = as_float->GetValue(number);
        return std::to_string(number);
    }
    if (auto* const as_boolean = dynamic_cast<PvGenBoolean*>(&feature)) {
        result = as_boolean->GetValue(flag);
        return flag ? "true" : "false";
    }
    if (auto* const as_enumeration = dynamic_cast<PvGenEnum*>(&feature)) {
        result = as_enumeration->GetValue(text);
    } else if (auto* const as_string = dynamic_cast<PvGenString*>(&feature)) {
        result = as_string->GetValue(text);
    } else {
        result = PvResult(PvResult::Code::NOT_SUPPORTED);
    }
    return text.GetAscii();
}

void read_feature(PvDevice& device, char const* name) {
    auto const start = clock::now();
    PvGenParameter* const feature = device.GetParameters()->Get(name);
    PvResult result(PvResult::Code::NOT_FOUND);
    std::string const value = feature != nullptr ? text_of(*feature, result) : "";
    print_result(name, result, start);
    if (result.IsOK()) {
        std::printf("%s = %s\n", name, value.c_str());
    }
    std::fflush(stdout);
}

void read_features(std::vector<char const*> const& names) {
    PvString id;
    auto const device = connect(id);
    for (char const* const each : names) {
        if (device != nullptr) {
            read_feature(*device, each);
        }
    }
}

void open_stream() {
    PvString id;
    auto const device = connect(id);
    if (device == nullptr) {
        return;
    }
    auto const start = clock::now();
    PvResult result;
    std::unique_ptr<PvStream, stream_free> const stream(PvStream::CreateAndOpen(id, &result));
    if (result.IsOK()) {
        dynamic_cast<PvDeviceGEV&>(*device).SetPacketSize(1400);
        result = device->StreamEnable();
    }
    print_result("stream", result, start);
    if (result.IsOK()) {
        std::printf("port: %u\n", static_cast<unsigned>(dynamic_cast<PvStreamGEV&>(*stream).GetLocalPort()));
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string_view const mode = argc > 1 ? argv[1] : "";
    if (mode == "search") {
        print_cameras();
    } else if (mode == "read") {
        read_features({argv + 2, argv + argc});
    } else if (mode == "stream") {
        open_stream();
    } else {
        std::fprintf(stderr, "usage: hostile_probe search | read FEATURE... | stream\n");
        return 2;
    }
    return 0;
}
