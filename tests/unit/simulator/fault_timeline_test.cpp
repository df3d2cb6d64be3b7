#include "fault_timeline.hpp"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>
#include <future>

#include "fault_control.hpp"
#include "temporary_directory.hpp"

using namespace camsim;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr fault_timeline::time_point origin{1000s};

scheduled_fault at(std::chrono::nanoseconds begin, std::optional<std::chrono::nanoseconds> lasts = {},
                   fault_kind kind = fault_kind::packet_loss) {
    return {.what = standard_fault(kind), .at = begin, .lasts = lasts};
}

struct Timeline : testing::Test {
    active_faults active{1};
    unsigned changes = 0;
    fault_timeline timeline{active, [this] { ++changes; }};

    std::size_t in_force() const { return active.list().size(); }
};

}  // namespace

TEST_F(Timeline, BeginsAndEndsFaultsWhenTheirTimeHasCome) {
    timeline.add(at(2s, 3s), origin);
    EXPECT_EQ(in_force(), 0U);
    EXPECT_EQ(timeline.follow(origin + 1999ms), origin + 2s);
    EXPECT_EQ(in_force(), 0U);
    EXPECT_EQ(timeline.follow(origin + 2s), origin + 5s);
    EXPECT_EQ(in_force(), 1U);
    EXPECT_EQ(changes, 1U);
    EXPECT_EQ(timeline.follow(origin + 5s), std::nullopt);
    EXPECT_EQ(in_force(), 0U);
    EXPECT_EQ(changes, 2U);
}

TEST_F(Timeline, HasAFaultWithoutADelayInForceAtOnceAndUntilItIsEnded) {
    std::uint32_t const number = timeline.add(at(0s), origin);
    EXPECT_EQ(in_force(), 1U);
    EXPECT_EQ(timeline.follow(origin + 1000h), std::nullopt);
    EXPECT_EQ(in_force(), 1U);
    EXPECT_EQ(timeline.end(number), 0U);
    EXPECT_EQ(in_force(), 0U);
    EXPECT_EQ(timeline.end(number), std::nullopt);
}

TEST_F(Timeline, DoesNotBeginAFaultThatWasCalledOff) {
    std::uint32_t const number = timeline.add(at(2s), origin);
    EXPECT_EQ(timeline.end(number), 0U);
    EXPECT_EQ(timeline.follow(origin + 3s), std::nullopt);
    EXPECT_EQ(in_force(), 0U);
    EXPECT_EQ(changes, 0U);
}

TEST_F(Timeline, TellsHowOftenAFaultHasStruck) {
    std::uint32_t const number = timeline.add(at(0s), origin);
    timeline.add(at(0s), origin);
    active.for_each([](active_fault& one) { one.hits = one.number * 10; });
    EXPECT_EQ(timeline.end(number), 10U);
    EXPECT_EQ(timeline.end_all(), 20U);
    EXPECT_EQ(in_force(), 0U);
}

TEST_F(Timeline, FollowsItsPlanByItself) {
    std::promise<void> begun;
    std::promise<void> over;
    fault_timeline real(active, [&, begins = false, ends = false]() mutable {
        if (!begins && active.find(fault_kind::leader_loss)) {
            begins = true;
            begun.set_value();
        }
        if (!ends && !active.find(fault_kind::packet_loss)) {
            ends = true;
            over.set_value();
        }
    });
    // One that is in force at once and ends, one that begins later.
    real.start({at(0s, 1ms), at(1ms, {}, fault_kind::leader_loss)}, std::chrono::steady_clock::now());
    EXPECT_EQ(begun.get_future().wait_for(60s), std::future_status::ready);
    EXPECT_EQ(over.get_future().wait_for(60s), std::future_status::ready);
}

TEST_F(Timeline, TakesInWhatIsAddedWhileItRuns) {
    std::promise<void> begun;
    fault_timeline real(active, [&] { begun.set_value(); });
    real.start({}, std::chrono::steady_clock::now());
    real.add(at(1ms), std::chrono::steady_clock::now());
    EXPECT_EQ(begun.get_future().wait_for(60s), std::future_status::ready);
}

TEST_F(Timeline, AnswersRequests) {
    auto const answer = [this](std::string const& line) {
        return answer_fault_request(line, timeline, active, {"Width"});
    };
    EXPECT_EQ(answer("list = true"), "faults = []\n");
    EXPECT_EQ(answer(R"(start = { kind = "packet_loss", share = 0.5 })"), "fault = 1\n");
    EXPECT_EQ(answer(R"(start = { kind = "freeze" })"), "fault = 2\n");
    std::string const list = answer("list = true");
    EXPECT_THAT(list, StartsWith("faults = [ "));
    EXPECT_THAT(list, HasSubstr("kind = 'packet_loss'"));
    EXPECT_THAT(list, HasSubstr("kind = 'freeze'"));
    EXPECT_EQ(std::ranges::count(list, '\n'), 1);
    EXPECT_EQ(answer("stop = 2"), "hits = 0\n");
    EXPECT_EQ(answer("stop = 2"), "error = 'there is no fault 2, or it is over'\n");
    EXPECT_EQ(answer("stop = \"all\""), "hits = 0\n");
    std::string const refusal = answer(R"(start = { kind = "packet_loss", share = 7, for_s = -1 })");
    EXPECT_THAT(refusal, StartsWith("error = "));
    EXPECT_THAT(refusal, HasSubstr("packet_loss.share: 7 is refused, expected a number from 0 to 1"));
    EXPECT_THAT(refusal, HasSubstr("for_s"));
    EXPECT_EQ(std::ranges::count(refusal, '\n'), 1);
    EXPECT_EQ(in_force(), 0U);
}

namespace {

struct ControlSocket : testing::Test {
    temporary_directory directory;
    std::filesystem::path path = directory.path() / "control";
    fault_control::answerer echo = [](std::string const& line) { return "<" + line + ">\n"; };

    file_descriptor connect() const {
        file_descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        timeval const patience{.tv_sec = 60, .tv_usec = 0};
        ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        bool const there = ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        return there ? std::move(socket) : file_descriptor();
    }
    /// What comes until so many lines are there or the other end closes.
    static std::string hear(file_descriptor const& socket, int lines) {
        std::string heard;
        char letter = 0;
        while (lines > 0 && ::recv(socket.get(), &letter, 1, 0) == 1) {
            heard += letter;
            lines -= letter == '\n' ? 1 : 0;
        }
        return heard;
    }
    static void say(file_descriptor const& socket, std::string const& text) {
        ::send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL);
    }
};

}  // namespace

TEST_F(ControlSocket, IsForItsOwnerAndGoneAfterwards) {
    {
        fault_control const control(path, echo);
        struct stat found {};
        ASSERT_EQ(::lstat(path.c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 0777U, 0600U);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ControlSocket, AnswersEveryLineOfEverybodyHoweverItIsCut) {
    fault_control const control(path, echo);
    auto const one = connect();
    auto const two = connect();
    ASSERT_TRUE(one && two);
    say(one, "first\nsec");
    EXPECT_EQ(hear(one, 1), "<first>\n");
    say(two, "other\n");
    EXPECT_EQ(hear(two, 1), "<other>\n");
    say(one, "ond\nthird\n");
    EXPECT_EQ(hear(one, 2), "<second>\n<third>\n");
}

TEST_F(ControlSocket, ServesNobodyWhoNeverEndsALine) {
    fault_control const control(path, echo);
    auto const socket = connect();
    say(socket, std::string(2 * fault_control::longest_request, 'x'));
    EXPECT_EQ(hear(socket, 1), "");
    auto const next = connect();
    say(next, "hello\n");
    EXPECT_EQ(hear(next, 1), "<hello>\n");
}

TEST_F(ControlSocket, TakesThePlaceOfOneThatNobodyIsBehind) {
    {
        file_descriptor const dead(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        ASSERT_EQ(::bind(dead.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ASSERT_TRUE(std::filesystem::exists(path));
    fault_control const control(path, echo);
    EXPECT_THROW(fault_control(path, echo), std::runtime_error);
    auto const socket = connect();
    say(socket, "still here\n");
    EXPECT_EQ(hear(socket, 1), "<still here>\n");
}

TEST_F(ControlSocket, TellsWhyItCannotBeMade) {
    auto const complaint = [&](std::filesystem::path const& where) {
        try {
            fault_control const control(where, echo);
        } catch (std::runtime_error const& error) {
            return std::string(error.what());
        }
        return std::string("nothing");
    };
    EXPECT_THAT(complaint(directory.path() / "nowhere" / "control"), HasSubstr("No such file or directory"));
    EXPECT_THAT(complaint(directory.path()), HasSubstr("Address already in use"));
    EXPECT_THAT(complaint(std::string(200, 'x')), HasSubstr("a path of 1 to 107 bytes is possible"));
}
