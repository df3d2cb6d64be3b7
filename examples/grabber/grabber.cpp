// SPDX-License-Identifier: MIT
/// \file
/// A minimal grabber: receives frames from one camera with the settings that the camera has.
///
///     grabber ADDRESS FRAMES [PACKET_SIZE]
///     grabber watch ADDRESS FRAMES
///
/// With `watch`, another application controls the camera and has it send to a multicast group. This program joins the
/// group and only reads the camera's registers.
///
/// Prints a line for each complete frame: the camera's ticks, the time at which the program received the frame in
/// nanoseconds of UTC, and the payload size in bytes; with `watch` also a checksum of the image (FNV-1a, 32 bits).
/// Exit status: 0 all frames arrived, 1 not all of them.

#include <PvBuffer.h>
#include <PvDeviceGEV.h>
#include <PvImage.h>
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
        std::fprintf(stderr, "grabber: %s: %s: %s\n", what, result.GetCodeString().GetAscii(),
                     result.GetDescription().GetAscii());
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

uint32_t checksum(PvImage& image, PvPixelType format) {
    std::size_t const bits = std::size_t{image.GetWidth()} * image.GetHeight() * PvImage::GetPixelSize(format);
    uint8_t const* const pixels = image.GetDataPointer();
    uint32_t hash = 2166136261U;
    for (std::size_t i = 0; i < bits / 8; ++i) {
        hash = (hash ^ pixels[i]) * 16777619U;
    }
    return hash;
}

}  // namespace

int main(int argc, char** argv) {
    bool const watch = argc == 4 && argv[1] == std::string("watch");
    if (argc != 3 && argc != 4) {
        std::fprintf(stderr, "usage: grabber ADDRESS FRAMES [PACKET_SIZE]\n       grabber watch ADDRESS FRAMES\n");
        return EXIT_FAILURE;
    }
    char const* const address = argv[watch ? 2 : 1];
    unsigned long const wanted = std::strtoul(argv[watch ? 3 : 2], nullptr, 10);
    PvString const id = find(address);
    PvResult result;
    std::unique_ptr<PvDevice, deleter> const device(
        PvDevice::CreateAndConnect(id, &result, watch ? PvAccessReadOnly : PvAccessControl));
    require(result, address);
    std::unique_ptr<PvStream, deleter> const stream(PvStream::CreateAndOpen(id, &result));
    require(result, "cannot open the stream");
    if (argc == 4 && !watch) {  // otherwise StreamEnable negotiates the size
        auto& gev = dynamic_cast<PvDeviceGEV&>(*device);
        require(gev.SetPacketSize(static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10))), "packet size");
    }

    uint32_t const payload = device->GetPayloadSize();
    int64_t format = 0;
    require(device->GetParameters()->GetEnumValue("PixelFormat", format), "PixelFormat");
    std::vector<std::byte> memory(std::size_t{buffer_count} * payload);
    std::deque<PvBuffer> buffers;  // a PvBuffer cannot be moved
    for (unsigned i = 0; i < buffer_count; ++i) {
        PvBuffer& buffer = buffers.emplace_back(PvPayloadTypeImage);
        require(buffer.Attach(memory.data() + std::size_t{i} * payload, payload), "cannot attach a buffer");
        require(stream->QueueBuffer(&buffer), "cannot queue a buffer");
    }
    require(device->StreamEnable(), "cannot enable the stream");
    if (!watch) {
        require(device->GetParameters()->ExecuteCommand("AcquisitionStart"), "cannot start the acquisition");
    }

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
            std::printf("%llu %lld %u", static_cast<unsigned long long>(buffer->GetTimestamp()),
                        static_cast<long long>(now.count()), payload);
            if (watch) {
                std::printf(" %08x", checksum(*buffer->GetImage(), static_cast<PvPixelType>(format)));
            }
            std::printf("\n");
            ++frames;
        }
        require(stream->QueueBuffer(buffer), "cannot queue a buffer");
    }

    if (!watch) {
        device->GetParameters()->ExecuteCommand("AcquisitionStop");
    }
    device->StreamDisable();
    stream->AbortQueuedBuffers();
    return frames == wanted ? EXIT_SUCCESS : EXIT_FAILURE;
}
