// SPDX-License-Identifier: MIT
#include "status/stdio_capture.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

using namespace mediagrabber;
using testing::ElementsAre;

namespace {

/// A pipe in place of a standard stream.
class StdioCapture : public testing::Test {
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

    void put(std::string const& text) const {
        ASSERT_EQ(write(stream_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    std::string forwarded() const {
        std::array<char, 200'000> text{};
        return {text.data(), static_cast<std::size_t>(read(read_, text.data(), text.size()))};
    }
    stdio_capture::line_handler handler(bool forward = true) {
        return [this, forward](std::string_view line) {
            lines_.emplace_back(line);
            return forward || line == "selected";
        };
    }

    int read_ = -1;
    int stream_ = -1;
    std::vector<std::string> lines_;
};

}  // namespace

TEST_F(StdioCapture, SplitsOutputIntoLines) {
    {
        stdio_capture const capture(stream_, handler());
        put("one\ntw");
        put("o\n\nthree");
    }
    EXPECT_THAT(lines_, ElementsAre("one", "two", "", "three"));
    EXPECT_EQ(forwarded(), "one\ntwo\n\nthree");
}

TEST_F(StdioCapture, ForwardsOnlySelectedLines) {
    {
        stdio_capture const capture(stream_, handler(false));
        put("hidden\nselected\nhidden\n");
    }
    EXPECT_EQ(forwarded(), "selected\n");
}

TEST_F(StdioCapture, RestoresTheStream) {
    { stdio_capture const capture(stream_, handler()); }
    put("after\n");
    EXPECT_EQ(forwarded(), "after\n");
    EXPECT_TRUE(lines_.empty());
}

TEST_F(StdioCapture, SplitsAnOverlongLine) {
    constexpr std::size_t broken_by_then = 100'000;
    std::string const endless(150'000, 'x');
    std::string got;
    {
        stdio_capture const capture(stream_, handler());
        std::thread reader([&] {
            while (got.size() < broken_by_then) {
                got += forwarded();
            }
        });
        put(endless);
        reader.join();
    }
    got += forwarded();
    EXPECT_EQ(got, endless);
    EXPECT_GT(lines_.size(), 1U);
}

TEST_F(StdioCapture, ContinuesAfterTheDestinationIsClosed) {
    std::signal(SIGPIPE, SIG_IGN);  // as mediagrabber does
    close(read_);
    {
        stdio_capture const capture(stream_, handler());
        put("one\n");
        put("two\n");
    }
    EXPECT_THAT(lines_, ElementsAre("one", "two"));
    read_ = -1;
}

TEST(StdioCaptureOfAClosedStream, Throws) {
    EXPECT_THROW(stdio_capture(9'999, [](std::string_view) { return true; }), std::system_error);
}

TEST_F(StdioCapture, EndsAlthoughNobodyReadsTheDestination) {
    std::string const line = std::string(1'023, 'x') + "\n";
    {
        stdio_capture const capture(stream_, handler());
        for (int i = 0; i < 200; ++i) {  // more than both pipes hold
            put(line);
        }
    }
    EXPECT_EQ(lines_.size(), 200U);
}

TEST_F(StdioCapture, EndsAlthoughAnotherProcessHoldsTheStream) {
    auto capture = std::make_unique<stdio_capture>(stream_, handler());
    int const inherited = dup(stream_);  // as a child process does
    put("one\n");
    capture.reset();
    EXPECT_THAT(lines_, ElementsAre("one"));
    close(inherited);
}
