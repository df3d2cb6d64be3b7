// SPDX-License-Identifier: MIT
#include "control/gvcp_device.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "base/byte_order.hpp"
#include "bytes.hpp"
#include "device/bootstrap_registers.hpp"
#include "features/camera_features.hpp"
#include "genicam/feature_registers.hpp"

using namespace camsim;
using gvcp::status;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr endpoint application{0x7F000001, 40000};
constexpr endpoint other_application{0x7F000001, 40001};
constexpr ipv4_address occupied_address = 0x7F000007;
constexpr network_interface loopback_interface() {
    return {{}, 1, 0x7F000001, 0xFF000000};
}

/// A camera without sockets: state, registers and gvcp_device.
struct device_under_test {
    explicit device_under_test(camera_options const& options = {})
        : state(options, loopback_interface(), std::chrono::steady_clock::now()),
          features(place(camera_features(state))),
          device(state, registers, [this](ipv4_address to) {
              moved_to.push_back(to);
              return to != occupied_address;
          }) {
        add_bootstrap_registers(registers, state, {0x100000, 1000},
                                [this](std::uint32_t channel) { fired.push_back(channel); });
        add_feature_registers(registers, features, [this] { return state.acquiring || state.parameters_locked; });
    }

    gvcp_outcome send(std::vector<std::byte> const& datagram, endpoint const& sender = application) {
        return device.handle(datagram, sender, now);
    }
    /// \return the ACK to a command
    std::vector<std::byte> execute(gvcp::command command, std::vector<std::byte> const& payload,
                                   endpoint const& sender = application) {
        auto const number = static_cast<std::uint16_t>(command);
        auto const outcome = send(gvcp::encode_command({1, number, 0, 77}, payload), sender);
        return outcome.acks.empty() ? std::vector<std::byte>{} : outcome.acks.back().datagram;
    }
    status write(std::uint32_t address, std::uint32_t value, endpoint const& sender = application) {
        gvcp::register_write const one{address, value};
        auto const ack = execute(gvcp::command::writereg, gvcp::encode_writereg_payload(std::span(&one, 1)), sender);
        return static_cast<status>(load_be16(ack, 0));
    }
    std::uint32_t read(std::uint32_t address) {
        std::vector<std::byte> word(4);
        EXPECT_EQ(registers.read(address, word), status::success);
        return load_be32(word, 0);
    }
    std::uint32_t address_of(std::string const& name) const {
        for (placed_feature const& one : features) {
            if (one.declaration.name == name) {
                return one.address;
            }
        }
        throw std::logic_error("no feature " + name);
    }
    void take_control() { ASSERT_EQ(write(bootstrap::control_channel_privilege, 2), status::success); }

    camera_state state;
    std::vector<placed_feature> features;
    register_map registers;
    std::vector<ipv4_address> moved_to;
    gvcp_device device;
    std::vector<std::uint32_t> fired;
    gvcp_device::time_point now{};
};

status status_of(std::vector<std::byte> const& ack) {
    return static_cast<status>(load_be16(ack, 0));
}

}  // namespace

TEST(GvcpDevice, AnswersDiscoveryWithTheFirstRegisters) {
    camera_options options;
    options.model = "GO-5100M-PGE";
    options.serial = "A42";
    options.user_name = "left eye";
    options.mac = 0x000CDF010203;
    device_under_test camera(options);
    auto const outcome = camera.send(bytes({0x42, 0x01, 0x00, 0x02, 0x00, 0x00, 0xFF, 0xFF}), other_application);
    ASSERT_EQ(outcome.acks.size(), 1U);
    auto const& ack = outcome.acks[0].datagram;
    ASSERT_EQ(ack.size(), 8U + 248U);
    EXPECT_EQ(std::vector(ack.begin(), ack.begin() + 8), bytes({0x00, 0x00, 0x00, 0x03, 0x00, 0xF8, 0xFF, 0xFF}));
    auto const payload = std::span(ack).subspan(8);
    EXPECT_EQ(load_be32(payload, 0x00), 0x00020000U);  // GigE Vision 2.0
    EXPECT_EQ(load_be32(payload, 0x04) >> 31U, 1U);    // big endian
    EXPECT_EQ(load_be32(payload, 0x08), 0x0000000CU);  // MAC, high
    EXPECT_EQ(load_be32(payload, 0x0C), 0xDF010203U);  // MAC, low
    EXPECT_EQ(load_be32(payload, 0x24), 0x7F000001U);  // IP address
    EXPECT_EQ(load_be32(payload, 0x34), 0xFF000000U);  // subnet mask
    auto const text = [&](std::size_t at) { return std::string(reinterpret_cast<char const*>(&payload[at])); };
    EXPECT_EQ(text(0x48), "JAI Corporation");
    EXPECT_EQ(text(0x68), "GO-5100M-PGE");
    EXPECT_EQ(text(0xD8), "A42");
    EXPECT_EQ(text(0xE8), "left eye");
}

TEST(GvcpDevice, DeniesWritesWithoutControl) {
    device_under_test camera;
    EXPECT_EQ(camera.write(bootstrap::heartbeat_timeout, 1000), status::access_denied);
    camera.take_control();
    EXPECT_EQ(camera.write(bootstrap::heartbeat_timeout, 1000), status::success);
    EXPECT_EQ(camera.write(bootstrap::heartbeat_timeout, 2000, other_application), status::access_denied);
    EXPECT_EQ(camera.state.heartbeat_timeout, 1000ms);
}

TEST(GvcpDevice, IgnoresOtherDatagramsAndRejectsInvalidHeaders) {
    device_under_test camera;
    EXPECT_THAT(camera.send(bytes({0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01})).acks, IsEmpty());
    EXPECT_THAT(camera.send({}).acks, IsEmpty());
    auto const too_short = camera.send(bytes({0x42, 0x01, 0x00, 0x80, 0x00, 0x08, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00}));
    ASSERT_EQ(too_short.acks.size(), 1U);
    EXPECT_EQ(too_short.acks[0].datagram, bytes({0x80, 0x0E, 0x00, 0x81, 0x00, 0x00, 0x00, 0x01}));
    auto const no_id = camera.send(bytes({0x42, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(status_of(no_id.acks.at(0).datagram), status::invalid_header);
}

TEST(GvcpDevice, AcceptsOnlyDiscoveryAndForceipByBroadcast) {
    device_under_test camera;
    auto const by_broadcast = [&](std::vector<std::byte> const& datagram) {
        return camera.device.handle(datagram, application, camera.now, delivery::broadcast).acks.size();
    };
    EXPECT_EQ(by_broadcast(bytes({0x42, 0x01, 0x00, 0x02, 0, 0, 0, 1})), 1U);
    EXPECT_EQ(by_broadcast(bytes({0x42, 0x01, 0x00, 0x80, 0, 4, 0, 1, 0x00, 0x00, 0x0A, 0x00})), 0U);
}

TEST(GvcpDevice, SendsNoAckUnlessItIsRequired) {
    device_under_test camera;
    EXPECT_THAT(camera.send(bytes({0x42, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01})).acks, IsEmpty());
    EXPECT_THAT(camera.send(bytes({0x42, 0x00, 0x12, 0x34, 0x00, 0x00, 0x00, 0x01})).acks, IsEmpty());
}

TEST(GvcpDevice, ReturnsNotImplementedForUnknownCommands) {
    device_under_test camera;
    EXPECT_EQ(camera.send(bytes({0x42, 0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01})).acks.at(0).datagram,
              bytes({0x80, 0x01, 0x02, 0x01, 0x00, 0x00, 0x00, 0x01}));
}

TEST(GvcpDevice, ReadsSeveralRegistersWithOneCommand) {
    device_under_test camera;
    EXPECT_EQ(camera.execute(gvcp::command::readreg, bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x04})),
              bytes({0x00, 0x00, 0x00, 0x81, 0x00, 0x08, 0x00, 0x4D, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}));
}

TEST(GvcpDevice, ReturnsTheRegistersReadBeforeOneThatFails) {
    device_under_test camera;
    EXPECT_EQ(camera.execute(gvcp::command::readreg, bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x50, 0x00})),
              bytes({0x80, 0x03, 0x00, 0x81, 0x00, 0x04, 0x00, 0x4D, 0x00, 0x02, 0x00, 0x00}));
}

TEST(GvcpDevice, WritesRegistersUpToTheFirstErrorAndReturnsItsIndex) {
    device_under_test camera;
    camera.take_control();
    auto const ack = camera.execute(gvcp::command::writereg,
                                    bytes({0x00, 0x00, 0x09, 0x38, 0x00, 0x00, 0x03, 0xE8, 0x00, 0x00, 0x00, 0x00,
                                           0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x09, 0x38, 0x00, 0x00, 0x07, 0xD0}));
    EXPECT_EQ(ack, bytes({0x80, 0x04, 0x00, 0x83, 0x00, 0x04, 0x00, 0x4D, 0x00, 0x00, 0x00, 0x01}));
    EXPECT_EQ(camera.state.heartbeat_timeout, 1000ms);
}

TEST(GvcpDevice, ReadsMemoryWithinTheProtocolsLimits) {
    device_under_test camera;
    EXPECT_EQ(camera.execute(gvcp::command::readmem, bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04})),
              bytes({0x00, 0x00, 0x00, 0x85, 0x00, 0x08, 0x00, 0x4D, 0, 0, 0, 0, 0x00, 0x02, 0x00, 0x00}));
    auto const status_for = [&](unsigned high, unsigned low, unsigned count_high, unsigned count_low) {
        return status_of(camera.execute(gvcp::command::readmem, bytes({0, 0, high, low, 0, 0, count_high, count_low})));
    };
    EXPECT_EQ(status_for(0x02, 0x00, 0x02, 0x00), status::success);
    EXPECT_EQ(status_for(0x02, 0x00, 0x00, 0x00), status::invalid_parameter);
    EXPECT_EQ(status_for(0x02, 0x00, 0x02, 0x1C), status::invalid_parameter);
    EXPECT_EQ(status_for(0x02, 0x00, 0x00, 0x03), status::bad_alignment);
    EXPECT_EQ(status_for(0x50, 0x00, 0x00, 0x04), status::invalid_address);
}

TEST(GvcpDevice, WritesMemory) {
    device_under_test camera;
    camera.take_control();
    EXPECT_EQ(camera.execute(gvcp::command::writemem, bytes({0x00, 0x00, 0x00, 0xE8, 'l', 'e', 'f', 't', 0, 0, 0, 0})),
              bytes({0x00, 0x00, 0x00, 0x87, 0x00, 0x04, 0x00, 0x4D, 0x00, 0x00, 0x00, 0x08}));
    EXPECT_EQ(camera.state.memory->user_name, "left");
}

TEST(GvcpDevice, MovesToTheAddressOfForceip) {
    camera_options options;
    options.mac = 0x000CDF010203;
    device_under_test camera(options);
    std::vector<std::byte> payload(56);
    EXPECT_THAT(camera.execute(gvcp::command::forceip, payload), IsEmpty());  // MAC address of another device
    store_be16(payload, 2, 0x000C);
    store_be32(payload, 4, 0xDF010203);
    store_be32(payload, 36, 0xFFFF0000);
    store_be32(payload, 52, 0x7F0000FE);
    for (ipv4_address const present : {0U, 0x7F000001U}) {
        store_be32(payload, 20, present);
        EXPECT_EQ(status_of(camera.execute(gvcp::command::forceip, payload)), status::success);
    }
    store_be32(payload, 20, occupied_address);
    EXPECT_EQ(status_of(camera.execute(gvcp::command::forceip, payload)), status::invalid_parameter);
    EXPECT_EQ(camera.read(bootstrap::current_ip), 0x7F000001U);
    store_be32(payload, 20, 0x7F000005);
    EXPECT_EQ(status_of(camera.execute(gvcp::command::forceip, payload)), status::success);
    EXPECT_THAT(camera.moved_to, ElementsAre(occupied_address, 0x7F000005U));
    EXPECT_EQ(camera.read(bootstrap::current_ip), 0x7F000005U);
    EXPECT_EQ(camera.read(bootstrap::current_subnet_mask), 0xFFFF0000U);
    EXPECT_EQ(camera.read(bootstrap::current_gateway), 0x7F0000FEU);
}

TEST(GvcpDevice, DeniesForceipWhileAnApplicationHasControl) {
    camera_options options;
    options.mac = 0x000CDF010203;
    device_under_test camera(options);
    camera.take_control();
    std::vector<std::byte> payload(56);
    store_be16(payload, 2, 0x000C);
    store_be32(payload, 4, 0xDF010203);
    store_be32(payload, 20, 0x7F000005);
    EXPECT_EQ(status_of(camera.execute(gvcp::command::forceip, payload, other_application)), status::access_denied);
    EXPECT_THAT(camera.moved_to, IsEmpty());
}

TEST(GvcpDevice, EndsControlAfterTheHeartbeatTimeout) {
    device_under_test camera;
    camera.take_control();
    camera.write(bootstrap::heartbeat_timeout, 700);
    camera.write(bootstrap::stream_destination, 0x7F000001);
    camera.write(bootstrap::stream_host_port, 5000);
    ASSERT_EQ(camera.write(camera.address_of("AcquisitionStart"), 1), status::success);
    camera.device.check_heartbeat(camera.now + 699ms);
    EXPECT_TRUE(camera.state.acquiring);
    camera.device.check_heartbeat(camera.now + 700ms);
    EXPECT_FALSE(camera.state.control.primary());
    EXPECT_FALSE(camera.state.acquiring);
    EXPECT_EQ(camera.read(bootstrap::stream_host_port), 0U);
}

TEST(GvcpDevice, KeepsAnUnconditionalStreamOpenAfterLossOfControl) {
    device_under_test camera;
    camera.take_control();
    camera.write(bootstrap::stream_destination, 0x7F000001);
    camera.write(bootstrap::stream_host_port, 5000);
    camera.write(bootstrap::stream_configuration, bootstrap::unconditional_streaming);
    camera.write(camera.address_of("AcquisitionStart"), 1);
    camera.device.check_heartbeat(camera.now + 1h);
    EXPECT_FALSE(camera.state.control.primary());
    EXPECT_TRUE(camera.state.acquiring);
    EXPECT_EQ(camera.read(bootstrap::stream_host_port), 5000U);
}

namespace {

/// A camera that waits for an action with device key 1, group key 2 and group mask 4.
struct device_with_action : device_under_test {
    device_with_action() {
        take_control();
        write(bootstrap::action_device_key, 1);
        write(bootstrap::action_group_key, 2);
        write(bootstrap::action_group_mask, 4);
        state.trigger.settings.on = true;
        state.trigger.settings.source = trigger_source::action1;
        state.channels[0].destination = 0x7F000001;
        state.channels[0].host_port = 5000;
        state.trigger.arm(true);
    }
    std::vector<std::byte> act(std::uint32_t device, std::uint32_t group, std::uint32_t mask,
                               std::optional<std::uint64_t> time = std::nullopt) {
        std::vector<std::byte> payload(time ? 20 : 12);
        store_be32(payload, 0, device);
        store_be32(payload, 4, group);
        store_be32(payload, 8, mask);
        std::uint8_t flags = gvcp::flag_acknowledge_required;
        if (time) {
            store_be64(payload, 12, *time);
            flags |= gvcp::flag_scheduled;
        }
        auto const outcome = this->device.handle(gvcp::encode_command({flags, 0x0100, 0, 77}, payload),
                                                 other_application, now, delivery::broadcast);
        return outcome.acks.empty() ? std::vector<std::byte>{} : outcome.acks.back().datagram;
    }
};

status status_of_action(std::vector<std::byte> const& ack) {
    EXPECT_EQ(load_be16(ack, 2), 0x0101);
    return static_cast<status>(load_be16(ack, 0));
}

}  // namespace

TEST(GvcpAction, TriggersTheCamerasThatItsKeysSelect) {
    device_with_action camera;
    EXPECT_THAT(camera.act(9, 2, 4), IsEmpty());
    EXPECT_THAT(camera.act(1, 9, 4), IsEmpty());
    EXPECT_THAT(camera.act(1, 2, 3), IsEmpty());
    EXPECT_FALSE(camera.state.trigger.waiting());
    EXPECT_EQ(status_of_action(camera.act(1, 2, 6)), status::success);
    EXPECT_EQ(camera.state.trigger.waiting(), camera.now);
}

TEST(GvcpAction, IsNeverForACameraWithoutKeys) {
    device_with_action camera;
    camera.write(bootstrap::action_device_key, 0);
    EXPECT_THAT(camera.act(0, 2, 4), IsEmpty());
}

TEST(GvcpAction, NeedsAnApplicationWithControl) {
    device_with_action camera;
    camera.write(bootstrap::control_channel_privilege, 0);
    EXPECT_EQ(status_of_action(camera.act(1, 2, 4)), status::access_denied);
    EXPECT_FALSE(camera.state.trigger.waiting());
}

TEST(GvcpAction, CanBeScheduled) {
    device_with_action camera;
    std::uint64_t const ticks = camera.state.clock.ticks_at(camera.state.clock.at(camera.now));
    EXPECT_EQ(status_of_action(camera.act(1, 2, 4, ticks + 5'000'000)), status::success);
    auto const due = camera.device.next_action();
    ASSERT_TRUE(due);
    EXPECT_NEAR(static_cast<double>((*due - camera.now).count()), 5e6, 2.0);
    camera.device.run_actions(*due - 1ns);
    EXPECT_FALSE(camera.state.trigger.waiting());
    camera.device.run_actions(*due);
    EXPECT_EQ(camera.state.trigger.waiting(), due);
    EXPECT_FALSE(camera.device.next_action());
}

TEST(GvcpAction, ThatIsLateIsExecutedAtOnce) {
    device_with_action camera;
    std::uint64_t const ticks = camera.state.clock.ticks_at(camera.state.clock.at(camera.now));
    EXPECT_EQ(status_of_action(camera.act(1, 2, 4, ticks - 1)), status::action_late);
    EXPECT_TRUE(camera.state.trigger.waiting());
}

TEST(GvcpAction, IsRefusedIfTooManyOrTooFarAhead) {
    device_with_action camera;
    std::uint64_t const ticks = camera.state.clock.ticks_at(camera.state.clock.at(camera.now));
    EXPECT_EQ(status_of_action(camera.act(1, 2, 4, ticks + 86'401'000'000'000)), status::invalid_parameter);
    for (std::size_t count = 0; count < gvcp_device::max_scheduled_actions; ++count) {
        EXPECT_EQ(status_of_action(camera.act(1, 2, 4, ticks + 1'000'000 + count)), status::success);
    }
    EXPECT_EQ(status_of_action(camera.act(1, 2, 4, ticks + 2'000'000)), status::busy);
}

TEST(StreamConfiguration, EnablesExtendedChunkDataWhereSupported) {
    device_under_test camera;
    camera.take_control();
    EXPECT_EQ(camera.read(bootstrap::stream_capability),
              bootstrap::unconditional_streaming | bootstrap::extended_chunk_data);
    EXPECT_EQ(camera.read(bootstrap::stream_configuration), 0U);
    EXPECT_EQ(camera.write(bootstrap::stream_configuration, bootstrap::extended_chunk_data), status::success);
    EXPECT_EQ(camera.read(bootstrap::stream_configuration), bootstrap::extended_chunk_data);
    camera.write(camera.address_of("AcquisitionStart"), 1);
    EXPECT_EQ(camera.write(bootstrap::stream_configuration, 0), status::busy);

    camera_options options;
    options.chunk_payload = chunk_payload::deprecated;
    device_under_test old(options);
    old.take_control();
    EXPECT_EQ(old.read(bootstrap::stream_capability), bootstrap::unconditional_streaming);
    EXPECT_EQ(old.write(bootstrap::stream_configuration, bootstrap::extended_chunk_data), status::success);
    EXPECT_EQ(old.read(bootstrap::stream_configuration), 0U);
}

TEST(GvcpDevice, NeverEndsControlWhileTheHeartbeatIsDisabled) {
    device_under_test camera;
    camera.take_control();
    camera.write(bootstrap::gvcp_configuration, bootstrap::heartbeat_disable);
    camera.device.check_heartbeat(camera.now + 1h);
    EXPECT_TRUE(camera.state.control.primary());
    camera.write(bootstrap::control_channel_privilege, 0);
    EXPECT_EQ(camera.read(bootstrap::gvcp_configuration), 0U);
}

TEST(GvcpDevice, RaisesATooShortHeartbeatTimeout) {
    device_under_test camera;
    camera.take_control();
    camera.write(bootstrap::heartbeat_timeout, 10);
    EXPECT_EQ(camera.read(bootstrap::heartbeat_timeout), 500U);
}

TEST(GvcpDevice, SendsPendingAckForASlowWriteOnlyIfEnabled) {
    camera_options options;
    options.write_time = 250ms;
    device_under_test camera(options);
    camera.take_control();
    auto const heartbeat = bytes({0x42, 0x01, 0x00, 0x82, 0, 8, 0, 1, 0x00, 0x00, 0x09, 0x38, 0x00, 0x00, 0x03, 0xE8});
    auto outcome = camera.send(heartbeat);
    ASSERT_EQ(outcome.acks.size(), 1U);
    EXPECT_EQ(outcome.acks[0].delay, 250ms);
    camera.write(bootstrap::gvcp_configuration, bootstrap::pending_acknowledge_enable);
    outcome = camera.send(heartbeat);
    ASSERT_EQ(outcome.acks.size(), 2U);
    EXPECT_EQ(outcome.acks[0].datagram, bytes({0, 0, 0, 0x89, 0, 4, 0, 1, 0, 0, 0, 250}));
    EXPECT_EQ(outcome.acks[0].delay, 0ms);
    EXPECT_EQ(outcome.acks[1].delay, 250ms);
}

TEST(GvcpDevice, DirectsResentPacketsToTheStreamDestination) {
    device_under_test camera;
    camera.take_control();
    auto const request = bytes({0x42, 0x00, 0x00, 0x40, 0, 12, 0, 1, 0, 0, 0, 9, 0, 0, 0, 2, 0, 0, 0, 5});
    EXPECT_FALSE(camera.send(request).resend);  // the stream is not open
    camera.write(bootstrap::stream_destination, 0x7F000002);
    camera.write(bootstrap::stream_host_port, 5000);
    auto const outcome = camera.send(request);
    EXPECT_THAT(outcome.acks, IsEmpty());
    ASSERT_TRUE(outcome.resend);
    EXPECT_EQ(outcome.resend->request.block_id, 9U);
    EXPECT_EQ(outcome.resend->request.first_packet, 2U);
    EXPECT_EQ(outcome.resend->destination, (endpoint{0x7F000002, 5000}));
    EXPECT_FALSE(camera.send(request, other_application).resend);
    EXPECT_TRUE(camera.send(request, {0x7F000002, 6000}).resend);  // receiver of the stream
    auto const backwards = bytes({0x42, 0x00, 0x00, 0x40, 0, 12, 0, 1, 0, 0, 0, 9, 0, 0, 0, 6, 0, 0, 0, 5});
    EXPECT_FALSE(camera.send(backwards).resend);
}

TEST(GvcpDevice, FiresATestPacketWithoutStoringTheBit) {
    device_under_test camera;
    camera.take_control();
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 0xC0000000 | 4000), status::success);
    EXPECT_THAT(camera.fired, ElementsAre(0));
    EXPECT_EQ(camera.read(bootstrap::stream_packet_size), 0x40000000U | 4000U);
}

TEST(GvcpDevice, RejectsUnsupportedPacketSizes) {
    device_under_test camera;
    camera.take_control();
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 572), status::invalid_parameter);
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 16132), status::invalid_parameter);
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 1401), status::invalid_parameter);
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 576), status::success);
}

TEST(GvcpDevice, DoesNotChangeTheIdModeDuringAnAcquisition) {
    device_under_test camera;
    camera.take_control();
    camera.write(camera.address_of("AcquisitionStart"), 1);
    EXPECT_EQ(camera.write(bootstrap::gvsp_configuration, bootstrap::extended_ids_enable), status::busy);
    camera.write(camera.address_of("AcquisitionStop"), 1);
    EXPECT_EQ(camera.write(bootstrap::gvsp_configuration, bootstrap::extended_ids_enable), status::success);
    EXPECT_EQ(camera.state.ids, gvsp::id_mode::extended);
}

TEST(GvcpDevice, HasSeparateRegistersForEachStreamChannel) {
    camera_options options;
    options.stream_channels = 2;
    device_under_test camera(options);
    camera.take_control();
    EXPECT_EQ(camera.read(bootstrap::stream_channels), 2U);
    camera.write(bootstrap::stream_packet_size + 0x40, 8000);
    EXPECT_EQ(camera.read(bootstrap::stream_packet_size) & 0xFFFFU, 1500U);
    EXPECT_EQ(camera.read(bootstrap::stream_packet_size + 0x40) & 0xFFFFU, 8000U);
}

TEST(GvcpDevice, LatchesAndResetsTheTimestamp) {
    camera_options options;
    options.first_tick = 0x100000000;
    device_under_test camera(options);
    camera.take_control();
    EXPECT_EQ(camera.read(bootstrap::timestamp_value_high), 0U);
    camera.write(bootstrap::timestamp_control, bootstrap::timestamp_latch);
    EXPECT_EQ(camera.read(bootstrap::timestamp_value_high), 1U);
    camera.write(bootstrap::timestamp_control, bootstrap::timestamp_reset | bootstrap::timestamp_latch);
    EXPECT_EQ(camera.read(bootstrap::timestamp_value_high), 1U);  // latched, then reset
    camera.write(bootstrap::timestamp_control, bootstrap::timestamp_latch);
    EXPECT_EQ(camera.read(bootstrap::timestamp_value_high), 0U);
}

TEST(GvcpDevice, FollowsTheClockOfTheNetworkWhileIeee1588IsOn) {
    camera_options options;
    options.ptp = true;
    device_under_test camera(options);
    camera.take_control();
    auto const latched = [&] {
        camera.write(bootstrap::timestamp_control, bootstrap::timestamp_latch);
        return std::uint64_t{camera.read(bootstrap::timestamp_value_high)} << 32U |
               camera.read(bootstrap::timestamp_value_low);
    };
    auto const utc = [] {
        return static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch() / 1ns);
    };
    EXPECT_EQ(camera.read(bootstrap::ieee_1588_status), bootstrap::clock_disabled);
    EXPECT_LT(latched(), utc() / 2);
    camera.write(bootstrap::gvcp_configuration, bootstrap::ieee_1588_enable);
    EXPECT_EQ(camera.read(bootstrap::ieee_1588_status), bootstrap::clock_slave);
    auto const before = utc();
    auto const shown = latched();
    EXPECT_LE(before, shown + 1'000);  // rounding
    EXPECT_LE(shown, utc() + 1'000);
    camera.write(bootstrap::control_channel_privilege, 0);
    EXPECT_EQ(camera.read(bootstrap::gvcp_configuration), bootstrap::ieee_1588_enable) << "the application is gone";
    EXPECT_EQ(camera.read(bootstrap::ieee_1588_status), bootstrap::clock_slave);
    camera.take_control();
    camera.write(bootstrap::gvcp_configuration, 0);
    EXPECT_EQ(camera.read(bootstrap::ieee_1588_status), bootstrap::clock_disabled);
}

TEST(GvcpDevice, OffersIeee1588OnRequestOnly) {
    constexpr std::uint32_t capability = 0x0008'0000;
    device_under_test camera;
    camera.take_control();
    EXPECT_EQ(camera.read(bootstrap::gvcp_capability) & capability, 0U);
    camera.write(bootstrap::gvcp_configuration, bootstrap::ieee_1588_enable);
    EXPECT_EQ(camera.read(bootstrap::ieee_1588_status), bootstrap::clock_disabled);
    camera_options options;
    options.ptp = true;
    device_under_test other(options);
    EXPECT_EQ(other.read(bootstrap::gvcp_capability) & capability, capability);
}

RC_GTEST_PROP(GvcpDevice, SurvivesAnyBytesAndAnswersWithinTheProtocol, (std::vector<std::uint8_t> const& noise)) {
    device_under_test camera;
    camera.take_control();
    std::vector<std::byte> payload(noise.size() / 4 * 4);
    std::transform(noise.begin(), noise.begin() + static_cast<std::ptrdiff_t>(payload.size()), payload.begin(),
                   [](std::uint8_t value) { return static_cast<std::byte>(value); });
    auto const number = *rc::gen::element<std::uint16_t>(0x02, 0x04, 0x40, 0x80, 0x82, 0x84, 0x86, 0x88, 0xC0, 0x100);
    auto const flags = static_cast<std::uint8_t>(*rc::gen::element(0x01, 0x11));
    std::vector<std::byte> datagram = gvcp::encode_command({flags, number, 0, 9}, payload);
    datagram.resize(*rc::gen::element(datagram.size(), datagram.size() / 2));
    for (gvcp_ack const& ack : camera.send(datagram).acks) {
        RC_ASSERT(ack.datagram.size() >= gvcp::header_size);
        RC_ASSERT(ack.datagram.size() <= gvcp::max_datagram_size);
        RC_ASSERT(load_be16(ack.datagram, 4) == ack.datagram.size() - gvcp::header_size);
    }
}
