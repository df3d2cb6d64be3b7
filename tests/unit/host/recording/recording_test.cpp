// SPDX-License-Identifier: MIT
#include "recording/recording.hpp"

#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "file_size_limit.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

recording_format as(output_format kind) {
    return {.kind = kind, .compression = tiff_compression::none, .software = "tester", .model = ""};
}

recording_format writer() {
    return as(output_format::tiff);
}

std::set<std::string> names_in(std::filesystem::path const& directory) {
    std::set<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

std::vector<std::string> index_lines(std::filesystem::path const& directory) {
    std::ifstream in(directory / "frames.jsonl");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string refusal(std::filesystem::path const& directory) {
    try {
        recording const opened(directory, writer());
        return {};
    } catch (std::runtime_error const& error) {
        return error.what();
    }
}

sample_frame frame_number(std::uint64_t number) {
    auto frame = make_frame(frame_formats[0], 16, 8);
    frame.record.number = number;
    frame.record.timestamp_us = 1'700'000'000'000'000 + number;
    return frame;
}

}  // namespace

TEST(Recording, HasOnlyTheFrameIndexWithoutAFormat) {
    temporary_directory const parent;
    auto const directory = parent.path() / "a";
    recording made(directory, as(output_format::none));
    auto const bytes = made.write(frame_number(1).view());
    EXPECT_THAT(names_in(directory), UnorderedElementsAre("frames.jsonl"));
    auto const lines = index_lines(directory);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(bytes, lines[0].size() + 1);
    EXPECT_TRUE(nlohmann::json::parse(lines[0]).at("file").is_null());
}

TEST(Recording, HasAFileAndALinePerFrame) {
    temporary_directory const parent;
    auto const directory = parent.path() / "a" / "b";
    recording made(directory, writer());
    auto const first = made.write(frame_number(1).view());
    made.write(frame_number(2).view());
    std::string const name = "frame-00000001-1700000000000001.tif";
    EXPECT_THAT(names_in(directory), UnorderedElementsAre("frames.jsonl", name, "frame-00000002-1700000000000002.tif"));
    auto const lines = index_lines(directory);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(nlohmann::json::parse(lines[0]).at("file"), name);
    EXPECT_EQ(first, std::filesystem::file_size(directory / name) + lines[0].size() + 1);
}

TEST(Recording, WithoutFramesLeavesNothingBehind) {
    temporary_directory const parent;
    std::ofstream(parent.path() / "other") << "precious\n";
    for (auto const kind :
         {output_format::none, output_format::tiff, output_format::bigtiff, output_format::raw, output_format::hdf5}) {
        recording(parent.path() / "new", as(kind));
        EXPECT_THAT(names_in(parent.path()), ElementsAre("other"));
        recording(parent.path(), as(kind));
        EXPECT_THAT(names_in(parent.path()), ElementsAre("other"));
    }
}

TEST(Recording, DoesNotTouchAnExistingRecording) {
    temporary_directory const directory;
    std::ofstream(directory.path() / "frames.jsonl") << "precious\n";
    EXPECT_THAT(refusal(directory.path()),
                HasSubstr("already contains a recording (frames.jsonl); choose another directory"));
    EXPECT_THAT(index_lines(directory.path()), ElementsAre("precious"));
}

TEST(Recording, ReportsADirectoryThatCannotBeCreated) {
    temporary_directory const parent;
    auto const file = parent.path() / "file";
    std::ofstream(file) << "x";
    EXPECT_THAT(refusal(file / "below"), HasSubstr((file / "below").string() + ": cannot create the directory: "));
    EXPECT_THAT(refusal(file), HasSubstr(file.string()));
    EXPECT_THAT(refusal("/proc/nothing"), HasSubstr("/proc/nothing"));
}

TEST(Recording, ReportsAnUnwritableDirectory) {
    EXPECT_THAT(refusal("/proc/self"), HasSubstr("cannot write to the output directory: "));
}

TEST(Recording, RemovesAFrameThatDoesNotFitOnTheDisk) {
    temporary_directory const directory;
    recording made(directory.path(), writer());
    made.write(frame_number(1).view());
    {
        file_size_limit const limit(100);
        EXPECT_THROW(made.write(frame_number(2).view()), std::runtime_error);
    }
    made.write(frame_number(3).view());
    EXPECT_THAT(names_in(directory.path()), UnorderedElementsAre("frames.jsonl", "frame-00000001-1700000000000001.tif",
                                                                 "frame-00000003-1700000000000003.tif"));
    EXPECT_EQ(index_lines(directory.path()).size(), 2U);
}

TEST(Recording, RemovesAFrameFromItsFileIfItsIndexLineDoesNotFit) {
    // The pixel file grows more slowly than the frame index: a frame has fewer bytes than its line.
    temporary_directory const directory;
    recording made(directory.path(), as(output_format::raw));
    auto frame = make_frame(frame_formats[0], 2, 2);
    while (std::filesystem::file_size(directory.path() / "frames.jsonl") < 4'000) {
        made.write(frame.view());
    }
    auto const before = std::filesystem::file_size(directory.path() / "frames.raw");
    {
        file_size_limit const limit(std::filesystem::file_size(directory.path() / "frames.jsonl") + 10);
        EXPECT_THROW(made.write(frame.view()), std::system_error);
    }
    EXPECT_EQ(std::filesystem::file_size(directory.path() / "frames.raw"), before);
    made.write(frame.view());
    EXPECT_EQ(nlohmann::json::parse(index_lines(directory.path()).back()).at("offset"), before);
}

TEST(Recording, RemovesAFrameFileIfItsIndexLineDoesNotFit) {
    temporary_directory const directory;
    recording made(directory.path(), writer());
    std::uint64_t number = 0;
    while (std::filesystem::file_size(directory.path() / "frames.jsonl") < 4'000) {
        made.write(frame_number(++number).view());
    }
    auto const names = names_in(directory.path());
    auto const lines = index_lines(directory.path());
    {
        file_size_limit const limit(std::filesystem::file_size(directory.path() / "frames.jsonl") + 10);
        EXPECT_THROW(made.write(frame_number(++number).view()), std::system_error);
    }
    EXPECT_EQ(names_in(directory.path()), names);
    EXPECT_EQ(index_lines(directory.path()), lines);
}

TEST(Recording, DoesNotTouchAnExistingRecordingInAnyFormat) {
    for (auto const kind : {output_format::bigtiff, output_format::raw}) {
        temporary_directory const parent;
        auto const directory = parent.path() / "a";
        {
            recording made(directory, as(kind));
            made.write(frame_number(1).view());
        }
        auto const names = names_in(directory);
        EXPECT_EQ(names.size(), 2U);
        for (auto const other : {output_format::tiff, output_format::bigtiff, output_format::raw}) {
            EXPECT_THROW(recording(directory, as(other)), std::runtime_error);
            EXPECT_EQ(names_in(directory), names);
        }
    }
}

TEST(Recording, HasOneFileAndALinePerFrame) {
    temporary_directory const directory;
    std::pair<output_format, std::string> const kinds[] = {{output_format::bigtiff, "frames.tif"},
                                                           {output_format::raw, "frames.raw"}};
    for (auto const& [kind, name] : kinds) {
        auto const place = directory.path() / name;
        recording made(place, as(kind));
        std::size_t const bytes = made.write(frame_number(1).view()) + made.write(frame_number(2).view());
        EXPECT_THAT(names_in(place), UnorderedElementsAre("frames.jsonl", name));
        auto const lines = index_lines(place);
        ASSERT_EQ(lines.size(), 2U);
        auto const second = nlohmann::json::parse(lines[1]);
        EXPECT_EQ(second.at("file"), name);
        EXPECT_EQ(second.value("page", 99), kind == output_format::bigtiff ? 1 : 99);
        EXPECT_EQ(second.value("offset", 99), kind == output_format::raw ? 128 : 99);
        // BigTIFF's header belongs to no frame.
        std::size_t const header = kind == output_format::bigtiff ? 16 : 0;
        EXPECT_EQ(bytes + header, std::filesystem::file_size(place / name) + lines[0].size() + lines[1].size() + 2);
    }
}

TEST(Recording, StaysInItsDirectoryWhenThatIsMoved) {
    temporary_directory const parent;
    recording made(parent.path() / "before", writer());
    std::filesystem::rename(parent.path() / "before", parent.path() / "after");
    made.write(frame_number(1).view());
    EXPECT_EQ(index_lines(parent.path() / "after").size(), 1U);
}
