#include "live/output_tap.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

using namespace mediagrabber;
using testing::ElementsAre;

namespace {

/// A stream of this process's own, with a reader.
class OutputTap : public testing::Test {
protected:
    void SetUp() override {
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe(ends.data()), 0);
        read_ = ends[0];
        stream_ = ends[1];
    }
    void TearDown() override {
        close(read_);
        close(stream_);
    }

    void say(std::string const& text) const {
        ASSERT_EQ(write(stream_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    std::string passed_on() const {
        std::array<char, 200'000> text{};
        return {text.data(), static_cast<std::size_t>(read(read_, text.data(), text.size()))};
    }
    output_tap::listener hear(bool pass_on = true) {
        return [this, pass_on](std::string_view line) {
            heard_.emplace_back(line);
            return pass_on || line == "shown";
        };
    }

    int read_ = -1;
    int stream_ = -1;
    std::vector<std::string> heard_;
};

}  // namespace

TEST_F(OutputTap, HearsLinesHoweverTheyWereWritten) {
    {
        output_tap const tap(stream_, hear());
        say("one\ntw");
        say("o\n\nthree");
    }
    EXPECT_THAT(heard_, ElementsAre("one", "two", "", "three"));
    EXPECT_EQ(passed_on(), "one\ntwo\n\nthree");
}

TEST_F(OutputTap, KeepsBackWhatIsNotToBeShown) {
    {
        output_tap const tap(stream_, hear(false));
        say("hidden\nshown\nhidden\n");
    }
    EXPECT_EQ(passed_on(), "shown\n");
}

TEST_F(OutputTap, LeavesTheStreamAsItWas) {
    { output_tap const tap(stream_, hear()); }
    say("after\n");
    EXPECT_EQ(passed_on(), "after\n");
    EXPECT_TRUE(heard_.empty());
}

TEST_F(OutputTap, BreaksALineThatDoesNotEnd) {
    constexpr std::size_t broken_by_then = 100'000;
    std::string const endless(150'000, 'x');
    std::string got;
    {
        output_tap const tap(stream_, hear());
        std::thread reader([&] {
            while (got.size() < broken_by_then) {
                got += passed_on();
            }
        });
        say(endless);
        reader.join();
    }
    got += passed_on();
    EXPECT_EQ(got, endless);
    EXPECT_GT(heard_.size(), 1U);
}

TEST_F(OutputTap, GoesOnWhenNobodyReadsWhatItPassesOn) {
    std::signal(SIGPIPE, SIG_IGN);  // as mediagrabber does
    close(read_);
    {
        output_tap const tap(stream_, hear());
        say("one\n");
        say("two\n");
    }
    EXPECT_THAT(heard_, ElementsAre("one", "two"));
    read_ = -1;
}

TEST(OutputTapOnNothing, IsAnError) {
    EXPECT_THROW(output_tap(9'999, [](std::string_view) { return true; }), std::system_error);
}
