// SPDX-License-Identifier: MIT
#include "gvcp/gvcp_channel.hpp"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../scripted_wire.hpp"

using namespace std::chrono_literals;
using openpv::gvcp_channel;
using openpv::register_outcome;
using testing::HasSubstr;

namespace {

constexpr std::uint16_t read_register_ack = 0x81;
constexpr std::uint16_t pending_ack = 0x89;
constexpr std::uint16_t first_request = 0x4242;

class GvcpChannel : public testing::Test {
protected:
    /// Answers each READREG with `value`.
    void answer_with(std::uint32_t value) {
        wire.on_command = [this, value](received_command const& command) {
            wire.respond(make_ack(0, read_register_ack, command.request, words({value})));
        };
    }
    void serve_memory() {
        wire.on_command = [this](received_command const& command) { camera.serve(wire, command); };
    }
    openpv::register_result read() { return channel.read_register(0xA00, value); }

    std::unique_ptr<scripted_wire> owned = std::make_unique<scripted_wire>();
    scripted_wire& wire = *owned;
    gvcp_channel channel{std::move(owned), first_request - 1};
    memory_camera camera;
    std::uint32_t value = 0xDEAD;
};

}  // namespace

TEST_F(GvcpChannel, ReadsARegister) {
    answer_with(42);
    EXPECT_TRUE(read().ok());
    EXPECT_EQ(value, 42U);
    ASSERT_EQ(wire.commands.size(), 1U);
    EXPECT_EQ(wire.commands[0].request, first_request);
    EXPECT_EQ(wire.commands[0].word(0), 0xA00U);
}

TEST_F(GvcpChannel, NumbersRequestsInOrder) {
    answer_with(42);
    read();
    read();
    ASSERT_EQ(wire.commands.size(), 2U);
    EXPECT_EQ(wire.commands[1].request, first_request + 1);
}

TEST_F(GvcpChannel, WritesARegister) {
    serve_memory();
    EXPECT_TRUE(channel.write_register(0xA00, 0x01020304).ok());
    EXPECT_EQ(camera.read(0xA00, 4), words({0x01020304}));
}

TEST_F(GvcpChannel, ReportsARefusalWithItsMeaning) {
    wire.on_command = [this](received_command const& command) {
        wire.respond(make_ack(0x8006, read_register_ack, command.request));
    };
    auto const result = read();
    EXPECT_EQ(result.outcome, register_outcome::refused);
    EXPECT_EQ(result.status, 0x8006);
    EXPECT_THAT(result.description, HasSubstr("access is denied"));
    EXPECT_EQ(value, 0xDEADU);
    EXPECT_EQ(wire.commands.size(), 1U) << "a refusal is not tried again";
}

TEST_F(GvcpChannel, DropsAcknowledgesThatWaitedBeforeTheRequest) {
    wire.respond(make_ack(0, read_register_ack, first_request, words({666})));
    answer_with(42);
    EXPECT_TRUE(read().ok());
    EXPECT_EQ(value, 42U);
}

TEST_F(GvcpChannel, DropsAcknowledgesOfOtherRequests) {
    wire.on_command = [this](received_command const& command) {
        wire.respond(make_ack(0, read_register_ack, static_cast<std::uint16_t>(command.request - 1), words({666})));
        wire.respond(make_ack(0x8006, read_register_ack, static_cast<std::uint16_t>(command.request + 1)));
        wire.respond(make_ack(0, read_register_ack, command.request, words({42})));
    };
    EXPECT_TRUE(read().ok());
    EXPECT_EQ(value, 42U);
}

TEST_F(GvcpChannel, DropsTheSecondAcknowledgeOfARequest) {
    wire.on_command = [this](received_command const& command) {
        wire.respond(make_ack(0, read_register_ack, command.request, words({command.request})));
        wire.respond(make_ack(0, read_register_ack, command.request, words({666})));
    };
    read();
    EXPECT_EQ(value, first_request);
    read();
    EXPECT_EQ(value, first_request + 1U);
}

TEST_F(GvcpChannel, DropsAcknowledgesOfAnotherCommandOrLength) {
    wire.on_command = [this](received_command const& command) {
        wire.respond(make_ack(0, 0x83, command.request, words({666})));
        wire.respond(make_ack(0, read_register_ack, command.request, words({666, 667})));
        wire.respond(make_ack(0, read_register_ack, command.request));
        wire.respond(bytes(3));
        wire.respond(bytes(2000));
        wire.respond(make_ack(0, read_register_ack, command.request, words({42})));
    };
    EXPECT_TRUE(read().ok());
    EXPECT_EQ(value, 42U);
}

TEST_F(GvcpChannel, DropsMemoryOfAnotherAddress) {
    wire.on_command = [this](received_command const& command) {
        wire.respond(make_ack(0, 0x85, command.request, words({0x204, 666})));
        wire.respond(make_ack(0, 0x85, command.request, words({0x200, 42})));
    };
    bytes content(4);
    EXPECT_TRUE(channel.read(0x200, content).ok());
    EXPECT_EQ(content, words({42}));
}

TEST_F(GvcpChannel, SendsAgainWithTheSameIdWhenNoAcknowledgeArrives) {
    wire.on_command = [this](received_command const& command) {
        if (wire.commands.size() == 3) {
            wire.respond(make_ack(0, read_register_ack, command.request, words({42})));
        }
    };
    EXPECT_TRUE(read().ok());
    EXPECT_EQ(wire.commands.size(), 3U);
    EXPECT_EQ(wire.commands[2].request, first_request);
    EXPECT_GE(wire.elapsed(), 1000ms);
    EXPECT_LT(wire.elapsed(), 1100ms);
}

TEST_F(GvcpChannel, GivesUpAfterItsAttempts) {
    auto const result = read();
    EXPECT_EQ(result.outcome, register_outcome::timeout);
    EXPECT_EQ(result.description, "the camera did not respond in time");
    EXPECT_EQ(wire.commands.size(), static_cast<std::size_t>(gvcp_channel::normal.attempts));
    EXPECT_LE(wire.elapsed(), 3100ms);
}

TEST_F(GvcpChannel, WaitsLongerAfterAPendingAckWithoutSendingAgain) {
    wire.on_command = [this](received_command const& command) {
        wire.respond(make_ack(0, pending_ack, command.request, words({2000})));
        wire.respond(make_ack(0, read_register_ack, command.request, words({42})), 1900ms);
    };
    EXPECT_TRUE(read().ok());
    EXPECT_EQ(value, 42U);
    EXPECT_EQ(wire.commands.size(), 1U);
}

TEST_F(GvcpChannel, EndsAfterFiveSecondsOfPendingAcksWithAnErrorThatSaysSo) {
    wire.on_command = [this](received_command const& command) {
        for (auto delay = 0ms; delay < 65s; delay += 400ms) {
            wire.respond(make_ack(0, pending_ack, command.request, words({500})), delay);
        }
    };
    auto const result = read();
    EXPECT_EQ(result.outcome, register_outcome::timeout);
    EXPECT_THAT(result.description, HasSubstr("PENDING_ACK"));
    EXPECT_THAT(result.description, HasSubstr("5000 ms"));
    EXPECT_GE(wire.elapsed(), 5000ms);
    EXPECT_LE(wire.elapsed(), 5100ms);
    EXPECT_EQ(wire.commands.size(), 1U);
}

TEST_F(GvcpChannel, EndsAnAccessOfSeveralBlocksAfterFiveSeconds) {
    camera.round_trip = 400ms;
    serve_memory();
    bytes content(100 * openpv::gvcp::max_memory_bytes);
    EXPECT_EQ(channel.read(0, content).outcome, register_outcome::timeout);
    EXPECT_LE(wire.elapsed(), 5100ms);
}

TEST_F(GvcpChannel, TriesAnUnreachablePortAgainAfterAPause) {
    wire.on_command = [this](received_command const& command) {
        if (wire.commands.size() < 3) {
            wire.respond_unreachable();
        } else {
            wire.respond(make_ack(0, read_register_ack, command.request, words({42})));
        }
    };
    EXPECT_TRUE(read().ok());
    EXPECT_GE(wire.elapsed(), 200ms);
    EXPECT_LT(wire.elapsed(), 300ms);
}

TEST_F(GvcpChannel, ReportsAnUnreachablePort) {
    wire.on_command = [this](received_command const&) { wire.respond_unreachable(); };
    EXPECT_EQ(read().outcome, register_outcome::unreachable);
    EXPECT_LT(wire.elapsed(), 700ms);
}

TEST_F(GvcpChannel, ReportsAnUnreachablePortAtOnceInTheLastAttempt) {
    wire.on_command = [this](received_command const&) { wire.respond_unreachable(); };
    EXPECT_EQ(channel.read_register(0xA00, value, {500ms, 1, 500ms}).outcome, register_outcome::unreachable);
    EXPECT_EQ(wire.elapsed(), 0ms);
}

TEST_F(GvcpChannel, SplitsMemoryIntoTheLargestBlocks) {
    serve_memory();
    bytes written;
    for (unsigned i = 0; i < 1200; ++i) {
        written.push_back(static_cast<std::byte>(i * 7));
    }
    ASSERT_TRUE(channel.write(0x1000, written).ok());
    EXPECT_EQ(wire.commands.size(), 3U) << "536 + 536 + 128 bytes";
    bytes content(1200);
    ASSERT_TRUE(channel.read(0x1000, content).ok());
    EXPECT_EQ(content, written);
    EXPECT_EQ(wire.commands.size(), 6U);
}

TEST_F(GvcpChannel, AccessesMemoryThatDoesNotConsistOfWords) {
    serve_memory();
    camera.put(0x1000, words({0x00010203, 0x04050607}));
    bytes content(3);
    ASSERT_TRUE(channel.read(0x1003, content).ok());
    EXPECT_EQ(content, (bytes{std::byte{3}, std::byte{4}, std::byte{5}}));
    ASSERT_TRUE(channel.write(0x1002, bytes(3, std::byte{0xFF})).ok());
    EXPECT_EQ(camera.read(0x1000, 8), words({0x0001FFFF, 0xFF050607}));
    for (auto const& command : wire.commands) {
        EXPECT_EQ(command.word(0) % 4, 0U) << "the standard requires aligned addresses";
    }
}

TEST_F(GvcpChannel, WritesRegistersWhereTheCameraDoesNotSupportWritemem) {
    serve_memory();
    channel.set_write_memory(false);
    ASSERT_TRUE(channel.write(0x1000, words({1, 2, 3})).ok());
    EXPECT_EQ(wire.commands.size(), 3U);
    EXPECT_EQ(wire.commands[0].code, 0x82);
    EXPECT_EQ(camera.read(0x1000, 12), words({1, 2, 3}));
}

TEST_F(GvcpChannel, RefusesAddressesThatGvcpCannotExpress) {
    bytes content(8);
    EXPECT_EQ(channel.read(0x100000000, content).outcome, register_outcome::invalid);
    EXPECT_EQ(channel.read(0xFFFFFFFC, content).outcome, register_outcome::invalid);
    EXPECT_EQ(channel.write(0xFFFFFFFFFFFFFFFF, content).outcome, register_outcome::invalid);
    EXPECT_EQ(channel.read_register(2, value).outcome, register_outcome::invalid);
    EXPECT_EQ(channel.write_register(0x100000000, 1).outcome, register_outcome::invalid);
    EXPECT_TRUE(wire.commands.empty());
}

TEST_F(GvcpChannel, ReportsWhenTheCameraLastResponded) {
    answer_with(42);
    wire.advance(1s);
    read();
    EXPECT_EQ(channel.last_response(), wire.now());
    wire.on_command = [](received_command const&) {};
    read();
    EXPECT_EQ(channel.last_response(), gvcp_channel::clock::time_point(1s));
}

TEST_F(GvcpChannel, FailsAtOnceWhenItIsClosed) {
    channel.close();
    EXPECT_EQ(read().outcome, register_outcome::closed);
    EXPECT_TRUE(wire.commands.empty());
    EXPECT_TRUE(wire.is_interrupted());
}

namespace {

/// A wire that keeps commands until the test has seen several of them.
class concurrent_wire final : public openpv::gvcp_wire {
public:
    event send(std::span<std::byte const> datagram) override {
        std::lock_guard const lock(mutex_);
        requests_.push_back(static_cast<std::uint16_t>(std::to_integer<unsigned>(datagram[6]) << 8 |
                                                       std::to_integer<unsigned>(datagram[7])));
        changed_.notify_all();
        return event::datagram;
    }
    reception receive(std::span<std::byte> memory, bool wait) override {
        std::unique_lock lock(mutex_);
        if (wait) {
            changed_.wait_for(lock, max_wait, [this] { return !responses_.empty() || interrupted_; });
        }
        if (responses_.empty()) {
            return {};
        }
        bytes const response = responses_.back();
        responses_.pop_back();
        std::ranges::copy(response, memory.begin());
        return {event::datagram, response.size()};
    }
    void interrupt() override {
        std::lock_guard const lock(mutex_);
        interrupted_ = true;
        changed_.notify_all();
    }
    clock::time_point now() const override { return clock::now(); }

    std::vector<std::uint16_t> wait_for_requests(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return requests_.size() >= count; });
        return requests_;
    }
    void respond(bytes response) {
        std::lock_guard const lock(mutex_);
        responses_.push_back(std::move(response));
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::uint16_t> requests_;
    std::vector<bytes> responses_;
    bool interrupted_ = false;
};

}  // namespace

TEST(GvcpChannelThreads, DoNotWaitForEachOthersRoundTrips) {
    auto owned = std::make_unique<concurrent_wire>();
    concurrent_wire& wire = *owned;
    gvcp_channel channel(std::move(owned), 0);
    std::uint32_t slow = 0;
    std::uint32_t quick = 0;
    std::thread first([&] { channel.read_register(0, slow); });
    wire.wait_for_requests(1);
    std::thread second([&] { channel.read_register(4, quick); });
    wire.wait_for_requests(2);
    EXPECT_FALSE(channel.wait_idle(1ms));
    wire.respond(make_ack(0, read_register_ack, 2, words({22})));
    second.join();
    EXPECT_EQ(quick, 22U) << "the first request is still under way";
    wire.respond(make_ack(0, read_register_ack, 1, words({11})));
    first.join();
    EXPECT_EQ(slow, 11U);
    EXPECT_TRUE(channel.wait_idle(0ms));
}

TEST(GvcpChannelThreads, EndWhenTheChannelIsClosed) {
    auto owned = std::make_unique<concurrent_wire>();
    concurrent_wire& wire = *owned;
    gvcp_channel channel(std::move(owned), 0);
    std::array<register_outcome, 2> outcomes{};
    std::thread first([&] {
        std::uint32_t value = 0;
        outcomes[0] = channel.read_register(0, value).outcome;
    });
    std::thread second([&] {
        std::uint32_t value = 0;
        outcomes[1] = channel.read_register(0, value).outcome;
    });
    wire.wait_for_requests(2);
    channel.close();
    first.join();
    second.join();
    EXPECT_THAT(outcomes, testing::Each(register_outcome::closed));
}

TEST(GvcpChannelThreads, EachGetTheirOwnAcknowledge) {
    auto owned = std::make_unique<concurrent_wire>();
    concurrent_wire& wire = *owned;
    gvcp_channel channel(std::move(owned), 0);
    constexpr std::size_t threads = 4;
    constexpr std::size_t reads = 200;
    std::atomic<std::size_t> wrong = 0;
    std::vector<std::thread> running;
    for (std::size_t i = 0; i < threads; ++i) {
        running.emplace_back([&] {
            for (std::size_t k = 0; k < reads; ++k) {
                std::uint32_t value = 0;
                wrong += channel.read_register(0, value).ok() && value != 0 ? 0 : 1;
            }
        });
    }
    for (std::size_t answered = 0; answered < threads * reads; ++answered) {
        auto const request = wire.wait_for_requests(answered + 1)[answered];
        wire.respond(make_ack(0, read_register_ack, request, words({request})));
    }
    for (auto& each : running) {
        each.join();
    }
    EXPECT_EQ(wrong, 0U);
}
