#include "gvcp_device.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "bootstrap_registers.hpp"
#include "byte_order.hpp"
#include "bytes.hpp"
#include "camera_features.hpp"
#include "feature_registers.hpp"

using namespace camsim;
using gvcp::status;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr endpoint application{0x7F000001, 40000};
constexpr endpoint stranger{0x7F000001, 40001};
constexpr network_interface loopback_interface() {
    return {{}, 1, 0x7F000001, 0xFF000000};
}

/// A camera without sockets: state, registers and the device's side of GVCP.
struct camera_on_the_bench {
    explicit camera_on_the_bench(camera_options const& options = {})
        : state(options, loopback_interface(), std::chrono::steady_clock::now()),
          features(place(camera_features(state))),
          device(state, registers) {
        add_bootstrap_registers(registers, state, {0x100000, 1000},
                                [this](std::uint32_t channel) { fired.push_back(channel); });
        add_feature_registers(registers, features, [this] { return state.acquiring || state.parameters_locked; });
    }

    gvcp_outcome send(std::vector<std::byte> const& datagram, endpoint const& sender = application) {
        return device.handle(datagram, sender, now);
    }
    /// The acknowledge to one command.
    std::vector<std::byte> ask(gvcp::command command, std::vector<std::byte> const& payload,
                               endpoint const& sender = application) {
        auto const number = static_cast<std::uint16_t>(command);
        auto const outcome = send(gvcp::encode_command({1, number, 0, 77}, payload), sender);
        return outcome.answers.empty() ? std::vector<std::byte>{} : outcome.answers.back().datagram;
    }
    status write(std::uint32_t address, std::uint32_t value, endpoint const& sender = application) {
        gvcp::register_write const one{address, value};
        auto const answer = ask(gvcp::command::writereg, gvcp::encode_writereg_payload(std::span(&one, 1)), sender);
        return static_cast<status>(load_be16(answer, 0));
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
    gvcp_device device;
    std::vector<std::uint32_t> fired;
    gvcp_device::time_point now{};
};

status status_of(std::vector<std::byte> const& answer) {
    return static_cast<status>(load_be16(answer, 0));
}

}  // namespace

TEST(GvcpDevice, AnswersDiscoveryWithItsFirstRegisters) {
    camera_options options;
    options.model = "GO-5100M-PGE";
    options.serial = "A42";
    options.user_name = "left eye";
    options.mac = 0x000CDF010203;
    camera_on_the_bench camera(options);
    auto const outcome = camera.send(bytes({0x42, 0x01, 0x00, 0x02, 0x00, 0x00, 0xFF, 0xFF}), stranger);
    ASSERT_EQ(outcome.answers.size(), 1U);
    auto const& answer = outcome.answers[0].datagram;
    ASSERT_EQ(answer.size(), 8U + 248U);
    EXPECT_EQ(std::vector(answer.begin(), answer.begin() + 8), bytes({0x00, 0x00, 0x00, 0x03, 0x00, 0xF8, 0xFF, 0xFF}));
    auto const payload = std::span(answer).subspan(8);
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

TEST(GvcpDevice, RefusesAWriteWithoutControlPrivilege) {
    camera_on_the_bench camera;
    EXPECT_EQ(camera.write(bootstrap::heartbeat_timeout, 1000), status::access_denied);
    camera.take_control();
    EXPECT_EQ(camera.write(bootstrap::heartbeat_timeout, 1000), status::success);
    EXPECT_EQ(camera.write(bootstrap::heartbeat_timeout, 2000, stranger), status::access_denied);
    EXPECT_EQ(camera.state.heartbeat_timeout, 1000ms);
}

TEST(GvcpDevice, DropsWhatIsNoCommandAndRefusesWhatHasNoProperHeader) {
    camera_on_the_bench camera;
    EXPECT_THAT(camera.send(bytes({0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01})).answers, IsEmpty());
    EXPECT_THAT(camera.send({}).answers, IsEmpty());
    auto const too_short = camera.send(bytes({0x42, 0x01, 0x00, 0x80, 0x00, 0x08, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00}));
    ASSERT_EQ(too_short.answers.size(), 1U);
    EXPECT_EQ(too_short.answers[0].datagram, bytes({0x80, 0x0E, 0x00, 0x81, 0x00, 0x00, 0x00, 0x01}));
    auto const no_id = camera.send(bytes({0x42, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(status_of(no_id.answers.at(0).datagram), status::invalid_header);
}

TEST(GvcpDevice, HearsNothingButDiscoveryAndAddressesByBroadcast) {
    camera_on_the_bench camera;
    auto const by_broadcast = [&](std::vector<std::byte> const& datagram) {
        return camera.device.handle(datagram, application, camera.now, delivery::broadcast).answers.size();
    };
    EXPECT_EQ(by_broadcast(bytes({0x42, 0x01, 0x00, 0x02, 0, 0, 0, 1})), 1U);
    EXPECT_EQ(by_broadcast(bytes({0x42, 0x01, 0x00, 0x80, 0, 4, 0, 1, 0x00, 0x00, 0x0A, 0x00})), 0U);
}

TEST(GvcpDevice, IsQuietWhenNoAcknowledgeIsAskedFor) {
    camera_on_the_bench camera;
    EXPECT_THAT(camera.send(bytes({0x42, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01})).answers, IsEmpty());
    EXPECT_THAT(camera.send(bytes({0x42, 0x00, 0x12, 0x34, 0x00, 0x00, 0x00, 0x01})).answers, IsEmpty());
}

TEST(GvcpDevice, DoesNotImplementWhatItDoesNotKnow) {
    camera_on_the_bench camera;
    EXPECT_EQ(camera.send(bytes({0x42, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01})).answers.at(0).datagram,
              bytes({0x80, 0x01, 0x01, 0x01, 0x00, 0x00, 0x00, 0x01}));
}

TEST(GvcpDevice, ReadsSeveralRegistersAtOnce) {
    camera_on_the_bench camera;
    EXPECT_EQ(camera.ask(gvcp::command::readreg, bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x04})),
              bytes({0x00, 0x00, 0x00, 0x81, 0x00, 0x08, 0x00, 0x4D, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}));
}

TEST(GvcpDevice, ReturnsTheRegistersReadBeforeOneThatFails) {
    camera_on_the_bench camera;
    EXPECT_EQ(camera.ask(gvcp::command::readreg, bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x50, 0x00})),
              bytes({0x80, 0x03, 0x00, 0x81, 0x00, 0x04, 0x00, 0x4D, 0x00, 0x02, 0x00, 0x00}));
}

TEST(GvcpDevice, WritesRegistersUpToTheFirstThatRefusesAndSaysWhich) {
    camera_on_the_bench camera;
    camera.take_control();
    auto const answer = camera.ask(gvcp::command::writereg,
                                   bytes({0x00, 0x00, 0x09, 0x38, 0x00, 0x00, 0x03, 0xE8, 0x00, 0x00, 0x00, 0x00,
                                          0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x09, 0x38, 0x00, 0x00, 0x07, 0xD0}));
    EXPECT_EQ(answer, bytes({0x80, 0x04, 0x00, 0x83, 0x00, 0x04, 0x00, 0x4D, 0x00, 0x00, 0x00, 0x01}));
    EXPECT_EQ(camera.state.heartbeat_timeout, 1000ms);
}

TEST(GvcpDevice, ReadsMemoryWithinTheProtocolsLimits) {
    camera_on_the_bench camera;
    EXPECT_EQ(camera.ask(gvcp::command::readmem, bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04})),
              bytes({0x00, 0x00, 0x00, 0x85, 0x00, 0x08, 0x00, 0x4D, 0, 0, 0, 0, 0x00, 0x02, 0x00, 0x00}));
    auto const status_for = [&](unsigned high, unsigned low, unsigned count_high, unsigned count_low) {
        return status_of(camera.ask(gvcp::command::readmem, bytes({0, 0, high, low, 0, 0, count_high, count_low})));
    };
    EXPECT_EQ(status_for(0x02, 0x00, 0x02, 0x00), status::success);
    EXPECT_EQ(status_for(0x02, 0x00, 0x00, 0x00), status::invalid_parameter);
    EXPECT_EQ(status_for(0x02, 0x00, 0x02, 0x1C), status::invalid_parameter);
    EXPECT_EQ(status_for(0x02, 0x00, 0x00, 0x03), status::bad_alignment);
    EXPECT_EQ(status_for(0x50, 0x00, 0x00, 0x04), status::invalid_address);
}

TEST(GvcpDevice, WritesMemory) {
    camera_on_the_bench camera;
    camera.take_control();
    EXPECT_EQ(camera.ask(gvcp::command::writemem, bytes({0x00, 0x00, 0x00, 0xE8, 'l', 'e', 'f', 't', 0, 0, 0, 0})),
              bytes({0x00, 0x00, 0x00, 0x87, 0x00, 0x04, 0x00, 0x4D, 0x00, 0x00, 0x00, 0x08}));
    EXPECT_EQ(camera.state.identity.user_name, "left");
}

TEST(GvcpDevice, KeepsTheAddressThatItsHostGaveIt) {
    camera_options options;
    options.mac = 0x000CDF010203;
    camera_on_the_bench camera(options);
    std::vector<std::byte> payload(56);
    EXPECT_THAT(camera.ask(gvcp::command::forceip, payload), IsEmpty());  // another device's MAC
    store_be16(payload, 2, 0x000C);
    store_be32(payload, 4, 0xDF010203);
    store_be32(payload, 20, 0x7F000001);
    EXPECT_EQ(status_of(camera.ask(gvcp::command::forceip, payload)), status::success);
    store_be32(payload, 20, 0x7F000005);
    EXPECT_EQ(status_of(camera.ask(gvcp::command::forceip, payload)), status::invalid_parameter);
    camera.take_control();
    EXPECT_EQ(status_of(camera.ask(gvcp::command::forceip, payload, stranger)), status::access_denied);
}

TEST(GvcpDevice, TakesControlAwayAfterTheHeartbeatTimeout) {
    camera_on_the_bench camera;
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

TEST(GvcpDevice, LeavesAnUnconditionalStreamAlone) {
    camera_on_the_bench camera;
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

TEST(GvcpDevice, KeepsControlForEverWithTheHeartbeatSwitchedOff) {
    camera_on_the_bench camera;
    camera.take_control();
    camera.write(bootstrap::gvcp_configuration, bootstrap::heartbeat_disable);
    camera.device.check_heartbeat(camera.now + 1h);
    EXPECT_TRUE(camera.state.control.primary());
    camera.write(bootstrap::control_channel_privilege, 0);
    EXPECT_EQ(camera.read(bootstrap::gvcp_configuration), 0U);
}

TEST(GvcpDevice, RaisesATooShortHeartbeatTimeout) {
    camera_on_the_bench camera;
    camera.take_control();
    camera.write(bootstrap::heartbeat_timeout, 10);
    EXPECT_EQ(camera.read(bootstrap::heartbeat_timeout), 500U);
}

TEST(GvcpDevice, AnnouncesASlowWriteOnlyWhenPendingAcknowledgesAreEnabled) {
    camera_options options;
    options.write_time = 250ms;
    camera_on_the_bench camera(options);
    camera.take_control();
    auto const heartbeat = bytes({0x42, 0x01, 0x00, 0x82, 0, 8, 0, 1, 0x00, 0x00, 0x09, 0x38, 0x00, 0x00, 0x03, 0xE8});
    auto outcome = camera.send(heartbeat);
    ASSERT_EQ(outcome.answers.size(), 1U);
    EXPECT_EQ(outcome.answers[0].delay, 250ms);
    camera.write(bootstrap::gvcp_configuration, bootstrap::pending_acknowledge_enable);
    outcome = camera.send(heartbeat);
    ASSERT_EQ(outcome.answers.size(), 2U);
    EXPECT_EQ(outcome.answers[0].datagram, bytes({0, 0, 0, 0x89, 0, 4, 0, 1, 0, 0, 0, 250}));
    EXPECT_EQ(outcome.answers[0].delay, 0ms);
    EXPECT_EQ(outcome.answers[1].delay, 250ms);
}

TEST(GvcpDevice, PassesOnAResendRequestToWhereTheStreamGoes) {
    camera_on_the_bench camera;
    camera.take_control();
    auto const request = bytes({0x42, 0x00, 0x00, 0x40, 0, 12, 0, 1, 0, 0, 0, 9, 0, 0, 0, 2, 0, 0, 0, 5});
    EXPECT_FALSE(camera.send(request).resend);  // the stream is not open
    camera.write(bootstrap::stream_destination, 0x7F000002);
    camera.write(bootstrap::stream_host_port, 5000);
    auto const outcome = camera.send(request);
    EXPECT_THAT(outcome.answers, IsEmpty());
    ASSERT_TRUE(outcome.resend);
    EXPECT_EQ(outcome.resend->request.block_id, 9U);
    EXPECT_EQ(outcome.resend->request.first_packet, 2U);
    EXPECT_EQ(outcome.resend->destination, (endpoint{0x7F000002, 5000}));
    EXPECT_FALSE(camera.send(request, stranger).resend);
    EXPECT_TRUE(camera.send(request, {0x7F000002, 6000}).resend);  // the stream's receiver
    auto const backwards = bytes({0x42, 0x00, 0x00, 0x40, 0, 12, 0, 1, 0, 0, 0, 9, 0, 0, 0, 6, 0, 0, 0, 5});
    EXPECT_FALSE(camera.send(backwards).resend);
}

TEST(GvcpDevice, FiresATestPacketAndKeepsNoTraceOfIt) {
    camera_on_the_bench camera;
    camera.take_control();
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 0xC0000000 | 4000), status::success);
    EXPECT_THAT(camera.fired, ElementsAre(0));
    EXPECT_EQ(camera.read(bootstrap::stream_packet_size), 0x40000000U | 4000U);
}

TEST(GvcpDevice, RefusesPacketSizesItCannotSend) {
    camera_on_the_bench camera;
    camera.take_control();
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 572), status::invalid_parameter);
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 16132), status::invalid_parameter);
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 1401), status::invalid_parameter);
    EXPECT_EQ(camera.write(bootstrap::stream_packet_size, 576), status::success);
}

TEST(GvcpDevice, DoesNotChangeTheKindOfIdsUnderAStream) {
    camera_on_the_bench camera;
    camera.take_control();
    camera.write(camera.address_of("AcquisitionStart"), 1);
    EXPECT_EQ(camera.write(bootstrap::gvsp_configuration, bootstrap::extended_ids_enable), status::busy);
    camera.write(camera.address_of("AcquisitionStop"), 1);
    EXPECT_EQ(camera.write(bootstrap::gvsp_configuration, bootstrap::extended_ids_enable), status::success);
    EXPECT_EQ(camera.state.ids, gvsp::id_mode::extended);
}

TEST(GvcpDevice, GivesEachStreamChannelRegistersOfItsOwn) {
    camera_options options;
    options.stream_channels = 2;
    camera_on_the_bench camera(options);
    camera.take_control();
    EXPECT_EQ(camera.read(bootstrap::stream_channels), 2U);
    camera.write(bootstrap::stream_packet_size + 0x40, 8000);
    EXPECT_EQ(camera.read(bootstrap::stream_packet_size) & 0xFFFFU, 1500U);
    EXPECT_EQ(camera.read(bootstrap::stream_packet_size + 0x40) & 0xFFFFU, 8000U);
}

TEST(GvcpDevice, LatchesAndResetsItsTimestamp) {
    camera_options options;
    options.first_tick = 0x100000000;
    camera_on_the_bench camera(options);
    camera.take_control();
    EXPECT_EQ(camera.read(bootstrap::timestamp_value_high), 0U);
    camera.write(bootstrap::timestamp_control, bootstrap::timestamp_latch);
    EXPECT_EQ(camera.read(bootstrap::timestamp_value_high), 1U);
    camera.write(bootstrap::timestamp_control, bootstrap::timestamp_reset | bootstrap::timestamp_latch);
    EXPECT_EQ(camera.read(bootstrap::timestamp_value_high), 1U);  // latched, then reset
    camera.write(bootstrap::timestamp_control, bootstrap::timestamp_latch);
    EXPECT_EQ(camera.read(bootstrap::timestamp_value_high), 0U);
}

RC_GTEST_PROP(GvcpDevice, SurvivesAnyBytesAndAnswersWithinTheProtocol, (std::vector<std::uint8_t> const& noise)) {
    camera_on_the_bench camera;
    camera.take_control();
    std::vector<std::byte> payload(noise.size() / 4 * 4);
    std::transform(noise.begin(), noise.begin() + static_cast<std::ptrdiff_t>(payload.size()), payload.begin(),
                   [](std::uint8_t value) { return static_cast<std::byte>(value); });
    auto const number = *rc::gen::element<std::uint16_t>(0x02, 0x04, 0x40, 0x80, 0x82, 0x84, 0x86, 0x88, 0xC0, 0x100);
    auto const flags = static_cast<std::uint8_t>(*rc::gen::element(0x01, 0x11));
    std::vector<std::byte> datagram = gvcp::encode_command({flags, number, 0, 9}, payload);
    datagram.resize(*rc::gen::element(datagram.size(), datagram.size() / 2));
    for (gvcp_answer const& answer : camera.send(datagram).answers) {
        RC_ASSERT(answer.datagram.size() >= gvcp::header_size);
        RC_ASSERT(answer.datagram.size() <= gvcp::maximum_datagram);
        RC_ASSERT(load_be16(answer.datagram, 4) == answer.datagram.size() - gvcp::header_size);
    }
}
