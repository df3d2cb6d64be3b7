// SPDX-License-Identifier: MIT
#include "test_camera.hpp"

#include <cstddef>
#include <thread>

#include "gvcp/gvcp_channel.hpp"
#include "net/ipv4_address.hpp"
#include "private_network.hpp"

namespace {

constexpr openpv::gvcp_channel::patience one_quick_attempt{std::chrono::milliseconds(50), 1,
                                                           std::chrono::milliseconds(50)};

bool wait_for_camera(std::string const& host, std::string const& camera) {
    auto channel = openpv::gvcp_channel::open(*openpv::parse_ipv4(host), *openpv::parse_ipv4(camera));
    bool const answers = channel && wait_until([&channel] {
                             uint32_t version = 0;
                             return channel->read_register(0, version, one_quick_attempt).ok();
                         });
    EXPECT_TRUE(answers) << "no camera answers on " << camera;
    return answers;
}

std::unique_ptr<test_process> start_camera(std::vector<std::string> const& command, std::string const& address) {
    auto camera = std::make_unique<test_process>(command);
    return wait_for_camera(address, address) ? std::move(camera) : nullptr;
}

}  // namespace

bool wait_until(std::function<bool()> const& condition, std::chrono::milliseconds time) {
    auto const deadline = std::chrono::steady_clock::now() + time;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::unique_ptr<test_process> start_camsim(std::string const& address, std::vector<std::string> const& options) {
    std::vector<std::string> command{CAMSIM_PROGRAM, "--address", address, "--sensor", "640x480"};
    command.insert(command.end(), options.begin(), options.end());
    return start_camera(command, address);
}

cable_to_camsim::cable_to_camsim(unsigned packet_bytes) {
    auto const size = std::to_string(packet_bytes);
    EXPECT_TRUE(run_command("ip link add cable mtu " + size + " type veth peer name camera mtu " + size));
    EXPECT_TRUE(run_command("ip addr add 10.1.0.1/24 dev cable && ip link set cable up"));
    camera_ = std::make_unique<test_process>(std::vector<std::string>{
        "unshare", "-n", "sh", "-c",
        "until ip addr add 10.1.0.2/24 dev camera 2>/dev/null; do sleep 0.01; done; ip link set camera up;"
        "exec " CAMSIM_PROGRAM " --address 10.1.0.2 --sensor 640x480"});
    // Until the process has its namespace, this moves the cable's end nowhere.
    EXPECT_TRUE(wait_until([this] {
        run_command("ip link set camera netns " + std::to_string(camera_->id()) + " 2>/dev/null");
        return !run_command("ip link show camera >/dev/null 2>&1");
    }));
    EXPECT_TRUE(wait_for_camera("10.1.0.1", "10.1.0.2"));
}

cable_to_camsim::~cable_to_camsim() {
    EXPECT_TRUE(run_command("ip link del cable"));
}

void cable_to_camsim::pull() {
    EXPECT_TRUE(run_command("ip link set cable down"));
}
void cable_to_camsim::plug() {
    EXPECT_TRUE(run_command("ip link set cable up"));
}

std::unique_ptr<test_process> start_aravis_camera(std::vector<std::string> const& options) {
    std::vector<std::string> command{"arv-fake-gv-camera-0.8", "-i", "127.0.0.1"};
    command.insert(command.end(), options.begin(), options.end());
    return start_camera(command, "127.0.0.1");
}

std::vector<PvDeviceInfo const*> find_devices(PvSystem& system) {
    EXPECT_TRUE(ok(system.Find()));
    std::vector<PvDeviceInfo const*> devices;
    for (uint32_t i = 0; i < system.GetInterfaceCount(); ++i) {
        PvInterface const& interface = *system.GetInterface(i);
        for (uint32_t k = 0; k < interface.GetDeviceCount(); ++k) {
            devices.push_back(interface.GetDeviceInfo(k));
        }
    }
    return devices;
}

PvString find_only_camera() {
    PvSystem system;
    auto const devices = find_devices(system);
    EXPECT_EQ(devices.size(), 1U);
    return devices.size() == 1 ? devices.front()->GetConnectionID() : PvString();
}

device_handle connect(PvString const& id) {
    PvResult result(PvResult::Code::GENERIC_ERROR);
    device_handle device(PvDevice::CreateAndConnect(id, &result));
    EXPECT_TRUE(ok(result));
    EXPECT_NE(device, nullptr);
    return device;
}

stream_handle open_stream(PvString const& id) {
    PvResult result(PvResult::Code::GENERIC_ERROR);
    stream_handle stream(PvStream::CreateAndOpen(id, &result));
    EXPECT_TRUE(ok(result));
    EXPECT_NE(stream, nullptr);
    return stream;
}

buffer_set::buffer_set(std::size_t count, uint32_t bytes) {
    for (std::size_t i = 0; i < count; ++i) {
        memory.emplace_back(bytes, uint8_t{0xA5});
        buffers.push_back(std::make_unique<PvBuffer>(PvPayloadTypeImage));
        EXPECT_TRUE(ok(buffers.back()->Attach(memory.back().data(), bytes)));
    }
}

void buffer_set::queue(PvStream& stream) {
    for (auto const& buffer : buffers) {
        EXPECT_TRUE(ok(stream.QueueBuffer(buffer.get())));
    }
}

PvResult start_acquisition(PvDevice& device) {
    PvResult const enabled = device.StreamEnable();
    return enabled.IsOK() ? device.GetParameters()->ExecuteCommand("AcquisitionStart") : enabled;
}

PvResult stop_acquisition(PvDevice& device) {
    PvResult const stopped = device.GetParameters()->ExecuteCommand("AcquisitionStop");
    PvResult const disabled = device.StreamDisable();
    return stopped.IsOK() ? disabled : stopped;
}

testing::AssertionResult ok(PvResult const& result) {
    return has_code(result, PvResult::Code::OK);
}

testing::AssertionResult has_code(PvResult const& result, uint32_t code) {
    if (result.GetCode() == code) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << result.GetCodeString().GetAscii() << " instead of "
                                       << PvResult(code).GetCodeString().GetAscii() << ": "
                                       << result.GetDescription().GetAscii();
}
