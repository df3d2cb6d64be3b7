// SPDX-License-Identifier: MIT
/// \file
/// A minimal grabber: receives frames from one camera with the settings that the camera has.
///
///     grabber ADDRESS FRAMES [PACKET_SIZE]
///
/// Prints a line for each complete frame: the camera's ticks, the time at which the program received the frame in
/// nanoseconds of UTC, and the payload size in bytes. Exit status: 0 all frames arrived, 1 not all of them.

#include <PvBuffer.h>
#include <PvDeviceGEV.h>
#include <PvStream.h>
#include <PvSystem.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr unsigned buffer_count = 16;        // the stream fills the others while this program uses one
constexpr uint32_t frame_timeout_ms = 5000;  // longer than an exposure

struct deleter {
    void operator()(PvDevice* device) const { PvDevice::Free(device); }
    void operator()(PvStream* stream) const { PvStream::Free(stream); }
};

/// Ends the program with a message unless `result` is a success.
void require(PvResult const& result, char const* what) {
    if (!result.IsOK()) {
        std::fprintf(stderr, "grabber: %s: %s\n", what, result.GetCodeString().GetAscii());
        std::exit(EXIT_FAILURE);
    }
}

/// \return the connection ID of the camera with this IP address; empty if the search does not find it
PvString find(std::string const& address) {
    PvSystem system;
    require(system.Find(), "the search failed");
    for (uint32_t i = 0; i < system.GetInterfaceCount(); ++i) {
        for (uint32_t k = 0; k < system.GetInterface(i)->GetDeviceCount(); ++k) {
            PvDeviceInfo const& camera = *system.GetInterface(i)->GetDeviceInfo(k);
            std::string const text = camera.GetDisplayID().GetAscii();
            if (text.find("[" + address + "]") != std::string::npos) {
                return camera.GetConnectionID();
            }
        }
    }
    return {};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 && argc != 4) {
        std::fprintf(stderr, "usage: grabber ADDRESS FRAMES [PACKET_SIZE]\n");
        return EXIT_FAILURE;
    }
    PvString const id = find(argv[1]);
    PvResult result;
    std::unique_ptr<PvDevice, deleter> const device(PvDevice::CreateAndConnect(id, &result));
    require(result, argv[1]);
    std::unique_ptr<PvStream, deleter> const stream(PvStream::CreateAndOpen(id, &result));
    require(result, "cannot open the stream");
    if (argc == 4) {  // otherwise StreamEnable negotiates the size
        auto& gev = dynamic_cast<PvDeviceGEV&>(*device);
        require(gev.SetPacketSize(static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10))), "packet size");
    }

    uint32_t const payload = device->GetPayloadSize();
    std::vector<std::byte> memory(std::size_t{buffer_count} * payload);
    std::deque<PvBuffer> buffers;  // a PvBuffer cannot be moved
    for (unsigned i = 0; i < buffer_count; ++i) {
        PvBuffer& buffer = buffers.emplace_back(PvPayloadTypeImage);
        require(buffer.Attach(memory.data() + std::size_t{i} * payload, payload), "cannot attach a buffer");
        require(stream->QueueBuffer(&buffer), "cannot queue a buffer");
    }
    require(device->StreamEnable(), "cannot enable the stream");
    require(device->GetParameters()->ExecuteCommand("AcquisitionStart"), "cannot start the acquisition");

    unsigned long const wanted = std::strtoul(argv[2], nullptr, 10);
    unsigned long frames = 0;
    while (frames < wanted) {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        result = stream->RetrieveBuffer(&buffer, &operation, frame_timeout_ms);
        if (!result.IsOK()) {
            std::fprintf(stderr, "grabber: no frame: %s\n", result.GetCodeString().GetAscii());
            break;
        }
        if (operation.IsOK()) {  // otherwise packets of the frame are missing
            std::chrono::nanoseconds const now = std::chrono::system_clock::now().time_since_epoch();
            std::printf("%llu %lld %u\n", static_cast<unsigned long long>(buffer->GetTimestamp()),
                        static_cast<long long>(now.count()), payload);
            ++frames;
        }
        require(stream->QueueBuffer(buffer), "cannot queue a buffer");
    }

    device->GetParameters()->ExecuteCommand("AcquisitionStop");
    device->StreamDisable();
    stream->AbortQueuedBuffers();
    return frames == wanted ? EXIT_SUCCESS : EXIT_FAILURE;
}
