// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "base/byte_order.hpp"
#include "control/access_faults.hpp"
#include "control/ack_faults.hpp"
#include "control/gvcp_device.hpp"
#include "device/bootstrap_registers.hpp"
#include "features/camera_features.hpp"
#include "genicam/feature_registers.hpp"

using namespace camsim;
using namespace std::chrono_literals;
using gvcp::status;
using testing::ElementsAre;

namespace {

constexpr endpoint application{0x7F000001, 40000};
constexpr endpoint other{0x7F000001, 40001};
constexpr std::uint16_t command_id = 77;

/// A control channel without sockets, with faults.
struct faulty_camera {
    faulty_camera() {
        add_bootstrap_registers(registers, state, {0x100000, 1000}, [](std::uint32_t) {});
        add_feature_registers(registers, features, [] { return false; });
    }

    void start(fault_kind kind, std::map<std::string_view, fault_value> const& values = {}) {
        fault one = default_fault(kind);
        for (auto const& [name, value] : values) {
            ASSERT_TRUE(one.values.contains(name)) << name;
            one.values[name] = value;
        }
        active.add(++faults_added, one);
    }
    std::vector<gvcp_ack> send(gvcp::command command, std::vector<std::byte> const& payload,
                               endpoint const& sender = application) {
        auto const datagram = gvcp::encode_command({1, static_cast<std::uint16_t>(command), 0, command_id}, payload);
        return acks.filter(device.handle(datagram, sender, {}).acks);
    }
    std::vector<gvcp_ack> read(std::uint32_t address) {
        return send(gvcp::command::readreg, gvcp::encode_readreg_payload(std::vector{address}));
    }
    std::vector<gvcp_ack> write(std::uint32_t address, std::uint32_t value, endpoint const& sender = application) {
        gvcp::register_write const one{address, value};
        return send(gvcp::command::writereg, gvcp::encode_writereg_payload(std::span(&one, 1)), sender);
    }
    std::vector<gvcp_ack> take_control(endpoint const& sender = application) {
        return write(bootstrap::control_channel_privilege, 2, sender);
    }
    std::uint32_t address_of(std::string const& name) const {
        return std::ranges::find(features, name, [](placed_feature const& one) { return one.declaration.name; })
            ->address;
    }

    camera_state state{{}, {{}, 1, 0x7F000001, 0xFF000000}, std::chrono::steady_clock::now()};
    std::vector<placed_feature> features = place(camera_features(state));
    register_map registers;
    active_faults active{1};
    ack_faults acks{active};
    access_faults accesses{active, features};
    gvcp_device device{state, registers, [](ipv4_address) { return false; }, &accesses};
    std::uint32_t faults_added = 0;
};

status status_of(std::vector<gvcp_ack> const& acks) {
    EXPECT_EQ(acks.size(), 1U);
    return acks.empty() ? status::not_implemented : static_cast<status>(load_be16(acks[0].datagram, 0));
}

std::uint16_t id_of(gvcp_ack const& ack) {
    return gvcp::decode_acknowledge_header(ack.datagram)->acknowledge_id;
}

}  // namespace

TEST(AckFaults, ChangeNothingUnlessActive) {
    faulty_camera camera;
    auto const acks = camera.read(bootstrap::version);
    ASSERT_EQ(acks.size(), 1U);
    EXPECT_EQ(acks[0].delay, 0ms);
    EXPECT_EQ(id_of(acks[0]), command_id);
    EXPECT_EQ(load_be32(acks[0].datagram, 8), 0x00020000U);
}

TEST(AckFaults, ImplementEachKindOfTheControlDomain) {
    for (fault_definition const& definition : fault_table()) {
        if (definition.domain == fault_domain::control) {
            faulty_camera camera;
            fault one = default_fault(definition.kind);
            if (one.values.contains("probability")) {
                one.values["probability"] = 1.0;
            }
            camera.start(definition.kind, one.values);
            camera.read(bootstrap::version);
            EXPECT_EQ(camera.active.list()[0].hits, 1U) << definition.name;
        }
    }
}

TEST(AckFaults, IgnoreFaultsOfOtherDomains) {
    faulty_camera camera;
    for (fault_definition const& definition : fault_table()) {
        if (definition.domain != fault_domain::control && definition.domain != fault_domain::access) {
            camera.start(definition.kind);
        }
    }
    EXPECT_EQ(camera.read(bootstrap::version).size(), 1U);
    for (active_fault const& one : camera.active.list()) {
        EXPECT_EQ(one.hits, 0U);
    }
}

TEST(AckFaults, DelayAcks) {
    faulty_camera camera;
    camera.start(fault_kind::ack_delay, {{"delay_ms", 250.0}});
    camera.start(fault_kind::ack_delay, {{"delay_ms", 50.0}});
    EXPECT_EQ(camera.read(bootstrap::version).at(0).delay, 300ms);
}

TEST(AckFaults, DropAcksWithTheirProbabilityWhileCommandsAreExecuted) {
    faulty_camera camera;
    camera.take_control();
    camera.start(fault_kind::ack_loss, {{"probability", 0.25}});
    unsigned lost = 0;
    for (std::uint32_t value = 1000; value < 2000; ++value) {
        lost += camera.write(bootstrap::heartbeat_timeout, value).empty() ? 1U : 0U;
        EXPECT_EQ(camera.state.heartbeat_timeout, std::chrono::milliseconds(value));
    }
    EXPECT_NEAR(lost, 250, 50);
    EXPECT_EQ(camera.active.list()[0].hits, lost);
}

TEST(AckFaults, DuplicateAcks) {
    faulty_camera camera;
    camera.start(fault_kind::ack_duplication, {{"probability", 1.0}});
    auto const acks = camera.read(bootstrap::version);
    ASSERT_EQ(acks.size(), 2U);
    EXPECT_EQ(acks[0].datagram, acks[1].datagram);
}

TEST(AckFaults, ReplaceAnAckByAnErrorWithoutPayload) {
    faulty_camera camera;
    camera.start(fault_kind::ack_error, {{"probability", 1.0}, {"status", double{0x8007}}});
    auto const acks = camera.read(bootstrap::version);
    EXPECT_EQ(status_of(acks), status::busy);
    EXPECT_EQ(acks[0].datagram.size(), gvcp::header_size);
    auto const header = gvcp::decode_acknowledge_header(acks[0].datagram);
    EXPECT_EQ(header->number, 0x0081);
    EXPECT_EQ(header->acknowledge_id, command_id);
}

TEST(AckFaults, ChangeTheRequestId) {
    faulty_camera camera;
    camera.start(fault_kind::ack_wrong_id, {{"probability", 1.0}});
    auto const acks = camera.read(bootstrap::version);
    ASSERT_EQ(acks.size(), 1U);
    EXPECT_NE(id_of(acks[0]), command_id);
    EXPECT_EQ(load_be32(acks[0].datagram, 8), 0x00020000U);
}

TEST(AckFaults, AffectTheSelectedCommands) {
    auto const lost = [](std::string const& commands) {
        faulty_camera camera;
        camera.take_control();
        camera.start(fault_kind::ack_loss, {{"probability", 1.0}, {"commands", commands}});
        return std::vector<bool>{camera.send(gvcp::command::discovery, {}).empty(),
                                 camera.read(bootstrap::version).empty(),
                                 camera.write(bootstrap::heartbeat_timeout, 1000).empty()};
    };
    EXPECT_THAT(lost("all"), ElementsAre(true, true, true));
    EXPECT_THAT(lost("discovery"), ElementsAre(true, false, false));
    EXPECT_THAT(lost("reads"), ElementsAre(false, true, false));
    EXPECT_THAT(lost("writes"), ElementsAre(false, false, true));
}

TEST(AccessFaults, DenyControlExceptToThePrimaryApplication) {
    faulty_camera camera;
    camera.start(fault_kind::control_denied);
    EXPECT_EQ(status_of(camera.take_control()), status::access_denied);
    EXPECT_FALSE(camera.state.control.primary());
    camera.active.remove(1);
    EXPECT_EQ(status_of(camera.take_control()), status::success);
    camera.start(fault_kind::control_denied);
    EXPECT_EQ(status_of(camera.take_control()), status::success);
    EXPECT_EQ(status_of(camera.write(bootstrap::heartbeat_timeout, 1500)), status::success);
    EXPECT_EQ(status_of(camera.take_control(other)), status::access_denied);
}

TEST(AccessFaults, MakeReadsOfAFeatureFail) {
    faulty_camera camera;
    std::uint32_t const temperature = camera.address_of("DeviceTemperature");
    EXPECT_EQ(status_of(camera.read(temperature)), status::success);
    camera.start(fault_kind::read_failure);
    EXPECT_EQ(status_of(camera.read(temperature)), static_cast<status>(0x8FFF));
    std::vector<std::byte> range(8);
    store_be32(range, 0, temperature);
    store_be32(range, 4, 8);
    EXPECT_EQ(status_of(camera.send(gvcp::command::readmem, range)), static_cast<status>(0x8FFF));
    EXPECT_EQ(status_of(camera.read(camera.address_of("Width"))), status::success);
    EXPECT_EQ(camera.active.list()[0].hits, 2U);
}

TEST(AccessFaults, MakeWritesOfOneFeatureFail) {
    faulty_camera camera;
    camera.take_control();
    camera.start(fault_kind::write_refusal, {{"feature", std::string("Width")}, {"status", double{0x8007}}});
    EXPECT_EQ(status_of(camera.write(camera.address_of("Width"), 320)), status::busy);
    EXPECT_NE(camera.state.image.area.width, 320U);
    EXPECT_EQ(status_of(camera.write(camera.address_of("Height"), 100)), status::success);
}

TEST(AccessFaults, MakeWritesOfAllFeaturesOutsideBootstrapRegistersFail) {
    faulty_camera camera;
    camera.take_control();
    camera.start(fault_kind::write_refusal);
    EXPECT_EQ(status_of(camera.write(camera.address_of("Width"), 320)), status::write_protect);
    EXPECT_EQ(status_of(camera.write(camera.address_of("AcquisitionStart"), 1)), status::write_protect);
    EXPECT_EQ(status_of(camera.write(bootstrap::heartbeat_timeout, 1500)), status::success);
    EXPECT_EQ(status_of(camera.write(bootstrap::control_channel_privilege, 0)), status::success);
}
