// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "cli/report_command.hpp"
#include "recording/frame_index.hpp"
#include "recording/recording.hpp"
#include "report/chart.hpp"
#include "report/recording_facts.hpp"
#include "report/recording_reader.hpp"
#include "report/report_page.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Frame `number`, exposed as the camera's `counter`th, `at_ms` after the first one.
index_entry entry(std::uint64_t number, std::optional<std::uint32_t> counter, std::uint64_t at_ms) {
    index_entry made;
    made.number = number;
    made.counter = counter;
    made.timestamp_us = 1'795'278'662'000'000 + at_ms * 1000;
    made.gain_db = 6.0;
    made.width = 640;
    made.height = 480;
    made.format = &frame_formats[0];
    return made;
}

constexpr output_format every_format[] = {output_format::tiff, output_format::bigtiff, output_format::hdf5,
                                          output_format::raw};

class RecordingReader : public testing::Test {
protected:
    void write_index(std::string const& text) const { std::ofstream(directory.path() / "frames.jsonl") << text; }
    std::string complaint() const {
        try {
            read_index(directory.path());
        } catch (std::runtime_error const& error) {
            return error.what();
        }
        return "none";
    }
    /// Records frames and reads the frame index.
    std::vector<index_entry> record(std::vector<sample_frame> const& frames, output_format kind,
                                    tiff_compression compression = tiff_compression::none) {
        place = directory.path() / std::to_string(++recordings);
        recording made(place, {.kind = kind, .compression = compression, .software = "test", .model = ""});
        for (auto frame : frames) {
            frame.record.number = ++number;
            made.write(frame.view());
        }
        return read_index(place);
    }
    small_image smaller(sample_frame const& frame, std::uint32_t widest, output_format kind,
                        tiff_compression compression = tiff_compression::none) {
        // It is neither the first nor the last one.
        auto const other = make_frame(*frame.record.format, 24, 6);
        auto const entries = record({other, frame, other}, kind, compression);
        return read_thumbnail(place, entries.at(1), widest);
    }

    std::filesystem::path place;
    int recordings = 0;
    std::uint64_t number = 0;

    temporary_directory directory;
};

std::string line_of(std::uint64_t number) {
    frame_record record;
    record.number = number;
    record.timestamp_us = 1000 * number;
    record.width = 64;
    record.height = 48;
    record.format = &frame_formats[3];
    record.gain_db = 1.5F;
    return index_line(record, {.file = "a.tif", .page = {}, .offset = {}, .bytes = {}});
}

}  // namespace

TEST_F(RecordingReader, ReadsTheFrameIndex) {
    write_index(line_of(1) + line_of(3));
    auto const read = read_index(directory.path());
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[1].number, 3U);
    EXPECT_EQ(read[1].timestamp_us, 3000U);
    EXPECT_EQ(read[1].file, "a.tif");
    EXPECT_EQ(read[1].gain_db, 1.5);
    EXPECT_EQ(read[1].counter, std::nullopt);
    EXPECT_EQ(read[1].format, &frame_formats[3]);
}

TEST_F(RecordingReader, ReadsHowWellExposureTimesAreKnown) {
    frame_record record;
    record.format = &frame_formats[0];
    record.exposed =
        exposure_time{.time_us = 1, .uncertainty_us = 13.0, .source = time_source::ptp, .clock_drift_ppm = 40.5F};
    write_index(line_of(1) + index_line(record, {}));
    auto const read = read_index(directory.path());
    EXPECT_EQ(read[0].time_uncertainty_us, std::nullopt);
    EXPECT_EQ(read[1].time_uncertainty_us, 13.0);
    EXPECT_EQ(read[1].time_source, "ptp");
    EXPECT_EQ(read[1].clock_drift_ppm, 40.5);
    auto const facts = facts_of(read);
    EXPECT_EQ(facts.time_uncertainty_us, 13.0);
    EXPECT_EQ(facts.time_source, "ptp");
    EXPECT_EQ(facts.clock_drift_ppm, 40.5);
    EXPECT_EQ(facts_of(std::span(read).first(1)).time_uncertainty_us, std::nullopt);
    EXPECT_THAT(report_page("ptp", facts, read, {}), HasSubstr("known to 13 us (median), from ptp"));
    auto arrivals = facts;
    arrivals.time_source = "arrivals";
    EXPECT_THAT(report_page("arrivals", arrivals, read, {}),
                HasSubstr("known to 13 us (median) about a constant delay, from arrivals"));
}

TEST_F(RecordingReader, IgnoresAnIncompleteLastLine) {
    write_index(line_of(1) + line_of(2).substr(0, 40));
    EXPECT_EQ(read_index(directory.path()).size(), 1U);
}

TEST_F(RecordingReader, ReadsAllSegmentsInTheOrderOfTheirTimes) {
    for (auto const& [segment, number] :
         {std::pair("20261122/20261122T000000Z", 3U), std::pair("20261121/20261121T230000Z", 1U),
          std::pair("20261121/20261121T233000Z", 2U)}) {
        std::filesystem::create_directories(directory.path() / segment);
        std::ofstream(directory.path() / segment / "frames.jsonl") << line_of(number);
    }
    auto const read = read_index(directory.path());
    ASSERT_EQ(read.size(), 3U);
    EXPECT_EQ(read[0].number, 1U);
    EXPECT_EQ(read[2].number, 3U);
    EXPECT_EQ(read[1].file, "20261121/20261121T233000Z/a.tif");
    std::ofstream(directory.path() / "20261122/20261122T000000Z/frames.jsonl") << "nonsense\n";
    EXPECT_THAT(complaint(), HasSubstr("20261122/20261122T000000Z/frames.jsonl:1: "));
}

TEST_F(RecordingReader, ReportsTheInvalidLine) {
    EXPECT_THAT(complaint(), HasSubstr("is not a recording"));
    write_index(line_of(1) + "nonsense\n");
    EXPECT_THAT(complaint(), HasSubstr("frames.jsonl:2: "));
    write_index("{}\n");
    EXPECT_THAT(complaint(), HasSubstr("frame"));
}

TEST_F(RecordingReader, RefusesAFileOutsideOfTheRecording) {
    auto line = line_of(1);
    line.replace(line.find("a.tif"), 5, "../a.tif");
    write_index(line);
    EXPECT_THAT(complaint(), HasSubstr("is outside of the recording"));
}

TEST_F(RecordingReader, RefusesAnUnknownFormat) {
    auto line = line_of(1);
    line.replace(line.find("BayerRG8\""), 8, "MONO99");
    write_index(line);
    EXPECT_THAT(complaint(), HasSubstr("MONO99"));
}

TEST_F(RecordingReader, DownscalesFramesWithEveryCompression) {
    auto const frame = make_frame(frame_formats[0], 64, 32, 0, [](auto x, auto y) { return 4 * x + y; });
    for (auto const kind : every_format) {
        for (auto const compression : {tiff_compression::none, tiff_compression::lzw, tiff_compression::deflate}) {
            auto const small = smaller(frame, 20, kind, compression);
            EXPECT_EQ(small.width, 16U);
            EXPECT_EQ(small.height, 8U);
            ASSERT_EQ(small.values.size(), 16U * 8U);
            EXPECT_EQ(small.values[16 * 2 + 3], 4 * (4 * 3) + 4 * 2);
        }
    }
}

TEST_F(RecordingReader, UsesTheUpper8Of12Bits) {
    for (auto const kind : every_format) {
        for (int const format : {1, 2}) {
            auto const frame =
                make_frame(frame_formats[format], 8, 8, 0, [](auto x, auto) { return 0x120 + 0x100 * x; });
            auto const small = smaller(frame, 100, kind);
            EXPECT_EQ(small.width, 8U);
            EXPECT_EQ(small.values[1], 0x22);
        }
    }
}

TEST_F(RecordingReader, ReducesABayerCellToAPixel) {
    auto const frame = make_frame(frame_formats[3], 8, 4, 0, [](auto x, auto y) {
        return y % 2 == 0 ? (x % 2 == 0 ? 200 : 100) : (x % 2 == 0 ? 100 : 50);
    });
    for (auto const kind : every_format) {
        auto const small = smaller(frame, 100, kind);
        EXPECT_EQ(small.width, 4U);
        EXPECT_EQ(small.height, 2U);
        EXPECT_EQ(small.channels, 3U);
        EXPECT_THAT(std::vector<int>(small.values.begin() + 3, small.values.begin() + 6), ElementsAre(200, 100, 50));
    }
}

TEST_F(RecordingReader, ReportsAMissingFrame) {
    for (auto const kind : every_format) {
        auto entries = record({make_frame(frame_formats[0], 24, 6)}, kind);
        auto gone = entries[0];
        gone.file = "gone";
        EXPECT_THROW(read_thumbnail(place, gone, 10), std::runtime_error);
        auto behind = entries[0];
        behind.page = behind.page ? std::optional(*behind.page + 1) : std::nullopt;
        behind.offset = behind.offset ? std::optional(*behind.offset + (1U << 30U)) : std::nullopt;
        if (kind != output_format::tiff) {
            EXPECT_THROW(read_thumbnail(place, behind, 24), std::runtime_error);
        }
    }
}

TEST_F(RecordingReader, OmitsAnImageWhoseFileIsMissing) {
    auto const entries =
        record({make_frame(frame_formats[0], 24, 6), make_frame(frame_formats[0], 24, 6)}, output_format::tiff);
    std::filesystem::rename(place / *entries[0].file, place / "elsewhere");
    std::ostringstream out;
    std::ostringstream complaints;
    EXPECT_EQ(report_command(place, {}, false, out, complaints), exit_status::success);
    EXPECT_THAT(complaints.str(), HasSubstr("no thumbnail of frame 1: "));
    EXPECT_THAT(complaints.str(), HasSubstr("No such file or directory"));
    std::ostringstream page;
    page << std::ifstream(place / "report.html").rdbuf();
    EXPECT_THAT(page.str(), HasSubstr("No such file or directory"));
    EXPECT_THAT(page.str(), HasSubstr("<td>frames</td><td>2</td>"));
    EXPECT_THAT(page.str(), HasSubstr("<img alt=\"frame 2, "));
}

TEST(RecordingFacts, AreEmptyWithoutFrames) {
    EXPECT_EQ(facts_of({}).frames, 0U);
    EXPECT_EQ(facts_of({}).frames_per_s, 0.0);
}

TEST(RecordingFacts, ComputeIntervalsAndRate) {
    std::vector const frames{entry(1, 11, 0), entry(2, 12, 10), entry(3, 13, 20), entry(4, 14, 40)};
    auto const facts = facts_of(frames);
    EXPECT_DOUBLE_EQ(facts.duration_s, 0.04);
    EXPECT_DOUBLE_EQ(facts.frames_per_s, 75.0);
    EXPECT_NEAR(facts.interval.median_us, 10'000, 1e-6);
    EXPECT_NEAR(facts.interval.max_us, 20'000, 1e-6);
    EXPECT_TRUE(facts.losses.empty());
}

TEST(RecordingFacts, LocateLostFrames) {
    // One frame was dropped by the host; then two did not arrive; then one was dropped and one did not arrive.
    std::vector const frames{entry(1, 1, 0), entry(3, 3, 20), entry(4, 6, 50), entry(6, 9, 80)};
    auto const facts = facts_of(frames);
    ASSERT_EQ(facts.losses.size(), 3U);
    EXPECT_EQ(facts.losses[0].in_host, 1U);
    EXPECT_EQ(facts.losses[0].before_host, 0U);
    EXPECT_EQ(facts.losses[1].in_host, 0U);
    EXPECT_EQ(facts.losses[1].before_host, 2U);
    EXPECT_EQ(facts.losses[2].in_host, 1U);
    EXPECT_EQ(facts.losses[2].before_host, 1U);
    EXPECT_EQ(facts.lost_in_host, 2U);
    EXPECT_EQ(facts.lost_before_host, 3U);
    EXPECT_NEAR(facts.losses[2].at_s, 0.08, 1e-9);
    EXPECT_TRUE(facts.intervals_us.empty());
}

TEST(RecordingFacts, TreatACounterResetAsARestart) {
    std::vector const frames{entry(1, 500, 0), entry(2, 501, 10), entry(3, 1, 5000), entry(4, 2, 5010)};
    auto const facts = facts_of(frames);
    EXPECT_THAT(facts.restarts_s, ElementsAre(5.0));
    EXPECT_EQ(facts.lost_before_host, 0U);
    EXPECT_EQ(facts.intervals_us.size(), 2U);
}

TEST(RecordingFacts, WorkWithoutACounter) {
    std::vector const frames{entry(1, std::nullopt, 0), entry(4, std::nullopt, 30)};
    EXPECT_EQ(facts_of(frames).lost_in_host, 2U);
    EXPECT_EQ(facts_of(frames).lost_before_host, 0U);
}

TEST(Chart, DrawsOnlyMinimumAndMaximumOfManyPoints) {
    std::vector<point> points;
    for (int i = 0; i < 100'000; ++i) {
        points.push_back({static_cast<double>(i), i == 50'000 ? 1000.0 : 1.0});
    }
    auto const drawn =
        line_chart(points, {.name = "time", .unit = "s", .from = 0, .to = 1e5}, "Gain", "dB", "Gain over time");
    EXPECT_LT(drawn.size(), 50'000U);
    EXPECT_THAT(drawn, HasSubstr(">1000<"));
    EXPECT_THAT(drawn, HasSubstr("aria-label=\"Gain over time\""));
}

TEST(ReportPage, IsSelfContained) {
    std::vector const frames{entry(1, 1, 0), entry(2, 2, 10), entry(3, 5, 40)};
    std::vector<thumbnail> const thumbnails{
        {.at_s = 0.01,
         .frame = 2,
         .image = {.width = 2, .height = 1, .channels = 3, .values = {1, 2, 3, 4, 5, 6}},
         .error = {}}};
    auto const page = report_page("A <b>&amp; \"more\"", facts_of(frames), frames, thumbnails);
    EXPECT_THAT(page, HasSubstr("<h1>A &lt;b&gt;&amp;amp; &quot;more&quot;</h1>"));
    EXPECT_THAT(page, HasSubstr("<td>frames lost before the host</td><td>2</td>"));
    EXPECT_THAT(page, HasSubstr("2026-11-21 16:31:02 UTC"));
    EXPECT_THAT(page, HasSubstr("src=\"data:image/png;base64,iVBORw0KGgo"));
    EXPECT_THAT(page, HasSubstr("alt=\"frame 2, 0.01 s\""));
    for (auto const* const elsewhere : {"http://", "https://", "<script", "<link"}) {
        EXPECT_THAT(page, Not(HasSubstr(elsewhere)));
    }
}

TEST(ReportPage, IsValidWithoutFrames) {
    auto const page = report_page("empty", facts_of({}), {}, {});
    EXPECT_THAT(page, HasSubstr("<td>frames</td><td>0</td>"));
    EXPECT_THAT(page, HasSubstr("No frames are missing."));
    EXPECT_THAT(page, HasSubstr("The recording has no images."));
}
