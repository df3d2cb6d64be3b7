// SPDX-License-Identifier: MIT
#include "overview/recording_summary.hpp"

#include <gmock/gmock.h>

#include "sample_status.hpp"

using namespace mediagrabber;
using nlohmann::json;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

json with(char const* member, json value) {
    auto status = sample_status("left");
    status[json::json_pointer(member)] = std::move(value);
    return status;
}

}  // namespace

TEST(RecordingSummary, HasStateFramesAndLossesOfTheStatus) {
    auto const summary = read_summary(sample_status("left").dump());
    EXPECT_EQ(json_of(summary), (json{{"name", "left"},
                                      {"state", "recording"},
                                      {"waiting_reason", ""},
                                      {"saved", 60},
                                      {"wanted", 100},
                                      {"dropped_queue_full", 2},
                                      {"dropped_write_error", 1},
                                      {"packets_lost", 11},
                                      {"empty_fetches", 3},
                                      {"frames_per_s", 24.5},
                                      {"uptime_s", 12.5}}));
}

TEST(RecordingSummary, HasNoFrameRateWhileItIsNotKnown) {
    EXPECT_FALSE(read_summary(with("/rates/frames_per_s", nullptr).dump()).frames_per_s);
}

TEST(RecordingSummary, HasShortTextsWithoutControlCharacters) {
    auto const summary = read_summary(with("/waiting_reason", "a\nb\x1b[31m" + std::string(1000, 'x')).dump());
    EXPECT_EQ(summary.waiting_reason, "a b [31m" + std::string(192, 'x') + "...");
    EXPECT_EQ(read_summary(with("/name", std::string(300, 'y')).dump()).name.size(), 203);
}

TEST(RecordingSummary, RefusesWhatIsNotTheStatusOfARecording) {
    for (auto const& text :
         {std::string(), std::string("<html>"), std::string("[]"), std::string("3"), std::string("{}"),
          std::string(200'000, '['), with("/name", 3).dump(), with("/state", nullptr).dump(), with("/counts", 1).dump(),
          with("/counts/saved", "x").dump(), with("/rates/frames_per_s", "x").dump(), with("/uptime_s", "x").dump()}) {
        EXPECT_THAT([&] { read_summary(text); },
                    ThrowsMessage<std::runtime_error>("the answer is not the status of a recording"))
            << text.substr(0, 100);
    }
}
