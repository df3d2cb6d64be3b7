// SPDX-License-Identifier: MIT
#include "segments/recording_place.hpp"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

constexpr std::chrono::system_clock::time_point moment{std::chrono::seconds(1'795'282'398)};

}  // namespace

TEST(RecordingPlace, IsTheConfiguredOne) {
    EXPECT_EQ(recording_place("/data/recording", moment), "/data/recording");
    EXPECT_EQ(recording_place("relative/{tim}", moment), "relative/{tim}");
}

TEST(RecordingPlace, ReplacesThePlaceholderByTheStartTime) {
    EXPECT_EQ(recording_place("/data/{time}", moment), "/data/20261121T173318Z");
    EXPECT_EQ(recording_place("{time}/a-{time}", moment), "20261121T173318Z/a-20261121T173318Z");
    EXPECT_EQ(recording_place("/data/{date}/{time}", moment), "/data/20261121/20261121T173318Z");
}

TEST(RecordingPlace, WithATimeIsOneThatDoesNotExist) {
    temporary_directory const root;
    auto const configured = (root.path() / "{date}" / "{time}").string();
    auto const first = root.path() / "20261121" / "20261121T173318Z";
    for (auto const& expected : {first.string(), first.string() + "-2", first.string() + "-3"}) {
        EXPECT_EQ(recording_place(configured, moment), expected);
        std::filesystem::create_directories(expected);
    }
    EXPECT_EQ(recording_place(root.path().string(), moment), root.path());
    EXPECT_EQ(recording_place((root.path() / "{date}").string(), moment), root.path() / "20261121");
}

TEST(RecordingPlace, NeedsATimeForSegmentsAndForWhatIsDeleted) {
    for (auto const& choose : std::vector<std::function<void(output_configuration&)>>{
             [](auto& output) { output.segment_frames = 1; }, [](auto& output) { output.segment_s = 1; },
             [](auto& output) { output.keep_days = 1; }, [](auto& output) { output.keep_bytes = 1; },
             [](auto& output) { output.min_free_bytes = 1; }}) {
        output_configuration values;
        EXPECT_NO_THROW(check_directory_of_segments(values));
        choose(values);
        EXPECT_THROW(check_directory_of_segments(values), std::runtime_error);
        values.directory = "{time}/recording";
        EXPECT_THROW(check_directory_of_segments(values), std::runtime_error);
        values.directory = "recordings/{date}/{time}";
        EXPECT_NO_THROW(check_directory_of_segments(values));
    }
}

TEST(RecordingPlaces, AreFoundInTheOrderOfTheirTimes) {
    temporary_directory const root;
    for (char const* const name :
         {"20261122/20261122T000000Z", "20261121/20261121T235959Z", "20261121/20261121T230000Z",
          "20261121/20261121T230000Z-2", "20261121/20261121T230000.500Z", "20261121/other",
          "20261121/20261121T230000Z-", "20261121/x20261121T230000Z", "2026/20261121T230000Z", "20261123"}) {
        std::filesystem::create_directories(root.path() / name);
    }
    std::ofstream(root.path() / "20261121/20261121T000000Z") << "a file";
    std::filesystem::create_directory_symlink(root.path(), root.path() / "20261121/20261121T000001Z");
    recording_places const places((root.path() / "{date}/{time}").string());
    EXPECT_EQ(places.root(), root.path());
    std::vector<std::string> found;
    places.visit_each([&](std::filesystem::path const& place) {
        found.push_back(place.lexically_relative(root.path()).string());
        return true;
    });
    EXPECT_THAT(found, testing::ElementsAre("20261121/20261121T230000.500Z", "20261121/20261121T230000Z",
                                            "20261121/20261121T230000Z-2", "20261121/20261121T235959Z",
                                            "20261122/20261122T000000Z"));
    found.clear();
    places.visit_each([&](std::filesystem::path const& place) {
        found.push_back(place.filename().string());
        return found.size() < 2;
    });
    EXPECT_EQ(found.size(), 2U);
}

TEST(RecordingPlaces, OfEventsAreFoundInTheOrderOfTheirLastChange) {
    temporary_directory const root;
    auto const now = std::filesystem::file_time_type::clock::now();
    int age = 4;
    for (char const* const name : {"20261121T000000Z-first", "20000101T000000Z-wrong-clock", "20261121T000000.500Z",
                                   "20991231T000000Z-another-clock"}) {
        std::filesystem::create_directories(root.path() / name);
        std::filesystem::last_write_time(root.path() / name, now - std::chrono::minutes(age--));
    }
    std::vector<std::string> found;
    recording_places((root.path() / "{time}{event}").string()).visit_each([&](std::filesystem::path const& place) {
        found.push_back(place.filename().string());
        return true;
    });
    EXPECT_THAT(found, testing::ElementsAre("20261121T000000Z-first", "20000101T000000Z-wrong-clock",
                                            "20261121T000000.500Z", "20991231T000000Z-another-clock"));
}

TEST(RecordingPlaces, TakeOtherCharactersAsTheyAre) {
    temporary_directory const root;
    for (char const* const name : {"a+b.20261121T173318Z", "aab.20261121T173318Z", "a+bx20261121T173318Z"}) {
        std::filesystem::create_directories(root.path() / name);
    }
    std::vector<std::string> found;
    recording_places((root.path() / "a+b.{time}").string()).visit_each([&](std::filesystem::path const& place) {
        found.push_back(place.filename().string());
        return true;
    });
    EXPECT_THAT(found, testing::ElementsAre("a+b.20261121T173318Z"));
}

TEST(RecordingPlaces, OfAMissingDirectoryAreNone) {
    recording_places const places("missing/{time}");
    EXPECT_EQ(places.root(), "missing");
    places.visit_each([](std::filesystem::path const&) -> bool { throw std::logic_error("there is none"); });
    EXPECT_EQ(recording_places("{time}").root(), ".");
}
