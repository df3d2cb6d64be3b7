// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Cameras for tests, and common operations on them.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <PvBuffer.h>
#include <PvDeviceGEV.h>
#include <PvDeviceInfo.h>
#include <PvStreamGEV.h>
#include <PvString.h>
#include <PvSystem.h>

#include "test_process.hpp"

/// Longer than any operation that succeeds.
constexpr std::chrono::seconds patience{20};

/// \return whether `condition` became true in time
bool wait_until(std::function<bool()> const& condition, std::chrono::milliseconds time = patience);

/// Starts a camera and waits until it responds. \return null, with a test failure, if it does not
std::unique_ptr<test_process> start_camsim(std::string const& address = "127.0.0.1",
                                           std::vector<std::string> const& options = {});
/// A cable from the host's interface `cable`, 10.1.0.1, to camsim, 10.1.0.2, in a network namespace of its own.
class cable_to_camsim {
public:
    /// \param packet_bytes MTU of the cable
    explicit cable_to_camsim(unsigned packet_bytes);
    cable_to_camsim(cable_to_camsim const&) = delete;
    cable_to_camsim& operator=(cable_to_camsim const&) = delete;
    ~cable_to_camsim();

    void pull();  ///< disconnects it from the host
    void plug();

private:
    std::unique_ptr<test_process> camera_;
};

std::unique_ptr<test_process> start_aravis_camera(std::vector<std::string> const& options = {});

/// All devices that a search finds, in the order of interfaces and devices. Valid as long as `system`.
std::vector<PvDeviceInfo const*> find_devices(PvSystem& system);
/// The connection ID of the only camera; empty, with a test failure, unless there is exactly one.
PvString find_only_camera();

struct device_free {
    void operator()(PvDevice* device) const { PvDevice::Free(device); }
};
using device_handle = std::unique_ptr<PvDevice, device_free>;

struct stream_free {
    void operator()(PvStream* stream) const { PvStream::Free(stream); }
};
using stream_handle = std::unique_ptr<PvStream, stream_free>;

/// Connects or opens. A failure is a test failure and returns null.
device_handle connect(PvString const& id);
stream_handle open_stream(PvString const& id);

/// Buffers with memory of their own.
class buffer_set {
public:
    buffer_set(std::size_t count, uint32_t bytes);
    void queue(PvStream& stream);
    std::vector<std::vector<uint8_t>> memory;  // outlives the buffers, which a stream may be filling
    std::vector<std::unique_ptr<PvBuffer>> buffers;
};

PvResult start_acquisition(PvDevice& device);
PvResult stop_acquisition(PvDevice& device);

/// For EXPECT_TRUE and ASSERT_TRUE; prints the description of a result that is not OK.
testing::AssertionResult ok(PvResult const& result);
/// Whether a result has a code; prints the names.
testing::AssertionResult has_code(PvResult const& result, uint32_t code);
