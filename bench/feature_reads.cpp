// SPDX-License-Identifier: MIT
/// \file
/// feature_reads ADDRESS COUNT: the cost of the feature accesses that the plug-in makes for each frame, beside that of
/// bare system calls.
///
/// Each access is made COUNT times through `PvGenParameterArray`. Its commands were captured before, on the wire. They
/// are then sent COUNT times over a plain connected socket, each followed by one receive call. Prints a line of JSON
/// for each feature: commands and bytes on the wire, and for both ways the CPU time of the process and the latency, in
/// microseconds. Needs CAP_NET_RAW in its network namespace.
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <PvDevice.h>
#include <PvGenParameterArray.h>
#include <PvSystem.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

using bytes = std::vector<std::byte>;

constexpr std::uint16_t gvcp_port = 3956;
constexpr std::size_t max_datagram = 1500;
constexpr int captures = 5;  // the heartbeat can fall into one of them, two seconds apart
constexpr timeval answer_timeout{.tv_sec = 1, .tv_usec = 0};

struct deleter {
    void operator()(PvDevice* device) const { PvDevice::Free(device); }
};

/// A file descriptor that is closed at the end.
class socket_handle {
public:
    socket_handle(int family, int type, int protocol) : number_(::socket(family, type | SOCK_CLOEXEC, protocol)) {
        if (number_ < 0) {
            throw std::system_error(errno, std::generic_category(), "cannot open a socket");
        }
    }
    socket_handle(socket_handle const&) = delete;
    socket_handle& operator=(socket_handle const&) = delete;
    ~socket_handle() { ::close(number_); }
    int get() const { return number_; }

private:
    int number_;
};

double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// CPU time per call, and percentiles of the latency, in microseconds.
struct cost {
    double cpu_us = 0, p50_us = 0, p99_us = 0;
};

cost measure(int count, std::function<void()> const& call) {
    std::vector<double> latencies;
    latencies.reserve(static_cast<std::size_t>(count));
    double const begin = seconds(CLOCK_PROCESS_CPUTIME_ID);
    for (int i = 0; i < count; ++i) {
        double const start = seconds(CLOCK_MONOTONIC);
        call();
        latencies.push_back((seconds(CLOCK_MONOTONIC) - start) * 1e6);
    }
    double const used = seconds(CLOCK_PROCESS_CPUTIME_ID) - begin;
    std::ranges::sort(latencies);
    return {used * 1e6 / count, latencies[latencies.size() / 2], latencies[latencies.size() * 99 / 100]};
}

/// Captures the commands that this host sends to the camera.
class command_capture {
public:
    explicit command_capture(in_addr camera) : camera_(camera), socket_(AF_PACKET, SOCK_DGRAM, htons(ETH_P_ALL)) {}

    void discard() { take(); }

    /// \return the commands since the last call, in order
    std::vector<bytes> take() {
        std::vector<bytes> commands;
        std::array<std::byte, max_datagram> packet{};
        sockaddr_ll from{};
        socklen_t length = sizeof(from);
        ssize_t size = 0;
        while ((size = ::recvfrom(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT,
                                  reinterpret_cast<sockaddr*>(&from), &length)) >= 0) {
            // Loopback shows each packet twice: when it leaves and when it arrives.
            if (from.sll_pkttype == PACKET_OUTGOING) {
                add(std::span<std::byte const>(packet).first(static_cast<std::size_t>(size)), commands);
            }
            length = sizeof(from);
        }
        return commands;
    }

private:
    void add(std::span<std::byte const> packet, std::vector<bytes>& commands) const {
        iphdr ip{};
        udphdr udp{};
        if (packet.size() < sizeof(ip) + sizeof(udp)) {
            return;
        }
        std::copy_n(packet.data(), sizeof(ip), reinterpret_cast<std::byte*>(&ip));
        std::size_t const header = std::size_t{ip.ihl} * 4;
        if (ip.protocol != IPPROTO_UDP || ip.daddr != camera_.s_addr || packet.size() < header + sizeof(udp)) {
            return;
        }
        std::copy_n(packet.data() + header, sizeof(udp), reinterpret_cast<std::byte*>(&udp));
        if (udp.dest == htons(gvcp_port)) {
            auto const payload = packet.subspan(header + sizeof(udp));
            commands.emplace_back(payload.begin(), payload.end());
        }
    }

    in_addr camera_;
    socket_handle socket_;
};

/// Sends commands with a request ID of their own and receives their acknowledges.
class bare_client {
public:
    explicit bare_client(in_addr camera) : socket_(AF_INET, SOCK_DGRAM, 0) {
        sockaddr_in const address{
            .sin_family = AF_INET, .sin_port = htons(gvcp_port), .sin_addr = camera, .sin_zero = {}};
        if (::connect(socket_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof(address)) != 0 ||
            ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &answer_timeout, sizeof(answer_timeout)) != 0) {
            throw std::system_error(errno, std::generic_category(), "cannot connect the bare socket");
        }
    }

    void transact(bytes& command) {
        id_ = id_ == 0xFFFF ? 1 : id_ + 1;               // 0 is invalid
        command[6] = static_cast<std::byte>(id_ >> 8U);  // GVCP: the request ID is in bytes 6 and 7
        command[7] = static_cast<std::byte>(id_);
        if (::send(socket_.get(), command.data(), command.size(), 0) < 0 ||
            ::recv(socket_.get(), answer_.data(), answer_.size(), 0) < 8) {
            throw std::system_error(errno, std::generic_category(), "no ACK from the camera");
        }
        // A status other than success would be cheaper than the access that is measured.
        if (answer_[0] != std::byte{0} || answer_[1] != std::byte{0} || answer_[6] != command[6] ||
            answer_[7] != command[7]) {
            throw std::runtime_error("the camera refuses a captured command");
        }
    }

private:
    socket_handle socket_;
    std::uint16_t id_ = 0x7000;
    std::array<std::byte, max_datagram> answer_{};
};

struct access {
    char const* name;
    std::function<PvResult(PvGenParameterArray&)> make;
};

PvResult read_float(PvGenParameterArray& features, char const* name) {
    double value = 0;
    return features.GetFloatValue(name, value);
}

/// What the plug-in's loop does for each frame.
std::vector<access> accesses() {
    return {
        {"GevTimestampValue",
         [](PvGenParameterArray& features) {
             int64_t value = 0;
             return features.GetIntegerValue("GevTimestampValue", value);
         }},
        {"DeviceTemperature", [](auto& features) { return read_float(features, "DeviceTemperature"); }},
        {"GainSelector", [](auto& features) { return features.SetEnumValue("GainSelector", PvString("AnalogAll")); }},
        {"Gain", [](auto& features) { return read_float(features, "Gain"); }},
        {"ExposureTime", [](auto& features) { return read_float(features, "ExposureTime"); }}};
}

struct finding {
    std::string name;
    std::vector<bytes> commands;
    cost layer, bare;
};

PvString find(std::string const& address) {
    PvSystem system;
    system.Find();
    for (uint32_t i = 0; i < system.GetInterfaceCount(); ++i) {
        for (uint32_t k = 0; k < system.GetInterface(i)->GetDeviceCount(); ++k) {
            PvDeviceInfo const& camera = *system.GetInterface(i)->GetDeviceInfo(k);
            if (std::string(camera.GetDisplayID().GetAscii()).find("[" + address + "]") != std::string::npos) {
                return camera.GetConnectionID();
            }
        }
    }
    throw std::runtime_error("no camera at " + address);
}

/// Captures and measures the accesses through the layer.
std::vector<finding> through_the_layer(std::string const& address, in_addr camera, int count) {
    PvResult result;
    std::unique_ptr<PvDevice, deleter> const device(PvDevice::CreateAndConnect(find(address), &result));
    if (!result.IsOK()) {
        throw std::runtime_error(std::string("cannot connect: ") + result.GetCodeString().GetAscii());
    }
    PvGenParameterArray& features = *device->GetParameters();
    std::vector<finding> found;
    for (access const& one : accesses()) {
        auto const make = [&] {
            if (PvResult const failure = one.make(features); !failure.IsOK()) {
                throw std::runtime_error(std::string(one.name) + ": " + failure.GetCodeString().GetAscii());
            }
        };
        make();  // the first access looks the feature up
        command_capture capture(camera);
        std::vector<bytes> commands;
        for (int i = 0; i < captures; ++i) {
            capture.discard();
            make();
            auto taken = capture.take();
            if (i == 0 || taken.size() < commands.size()) {
                commands = std::move(taken);
            }
        }
        found.push_back({one.name, std::move(commands), {}, {}});
    }
    for (std::size_t i = 0; i < found.size(); ++i) {
        access const one = accesses()[i];
        found[i].layer = measure(count, [&] { static_cast<void>(one.make(features)); });
    }
    return found;
}

/// Measures the captured commands over a plain socket, which takes control because some of them write.
void over_a_bare_socket(in_addr camera, int count, std::vector<finding>& found) {
    bare_client client(camera);
    // WRITEREG_CMD: control channel privilege (0x0A00) = control access, and 0 to release it
    auto const privilege = [](std::uint8_t value) {
        bytes command;
        for (unsigned const byte : {0x42U, 0x01U, 0x00U, 0x82U, 0x00U, 0x08U, 0x00U, 0x00U, 0x00U, 0x00U, 0x0AU, 0x00U,
                                    0x00U, 0x00U, 0x00U, unsigned{value}}) {
            command.push_back(static_cast<std::byte>(byte));
        }
        return command;
    };
    bytes take = privilege(2), release = privilege(0);
    client.transact(take);
    for (finding& one : found) {
        one.bare = measure(count, [&] {
            for (bytes& command : one.commands) {
                client.transact(command);
            }
        });
    }
    client.transact(release);
}

void print(finding const& one) {
    std::size_t size = 0;
    for (bytes const& command : one.commands) {
        size += command.size();
    }
    std::printf(
        "{\"feature\": \"%s\", \"commands\": %zu, \"bytes\": %zu, \"layer\": [%.3f, %.3f, %.3f], "
        "\"bare\": [%.3f, %.3f, %.3f]}\n",
        one.name.c_str(), one.commands.size(), size, one.layer.cpu_us, one.layer.p50_us, one.layer.p99_us,
        one.bare.cpu_us, one.bare.p50_us, one.bare.p99_us);
}

}  // namespace

int main(int argc, char** argv) {
    in_addr camera{};
    if (argc != 3 || inet_pton(AF_INET, argv[1], &camera) != 1) {
        std::fprintf(stderr, "usage: feature_reads ADDRESS COUNT\n");
        return EXIT_FAILURE;
    }
    try {
        int const count = std::max(1, std::atoi(argv[2]));
        auto found = through_the_layer(argv[1], camera, count);
        over_a_bare_socket(camera, count, found);
        std::ranges::for_each(found, print);
        return EXIT_SUCCESS;
    } catch (std::exception const& error) {
        std::fprintf(stderr, "feature_reads: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
