#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "frame_journal.hpp"
#include "report/chart.hpp"
#include "report/recording_facts.hpp"
#include "report/recording_reader.hpp"
#include "report/report_page.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"
#include "tiff_file.hpp"

using namespace mediagrabber;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Frame `number`, exposed as the camera's `counter`th, `at_ms` after the first one.
journal_entry entry(std::uint64_t number, std::optional<std::uint32_t> counter, std::uint64_t at_ms) {
    journal_entry made;
    made.number = number;
    made.counter = counter;
    made.timestamp_us = 1'795'278'662'000'000 + at_ms * 1000;
    made.gain_db = 6.0;
    made.width = 640;
    made.height = 480;
    made.format = &pixel_formats[0];
    return made;
}

class RecordingReader : public testing::Test {
protected:
    void write_journal(std::string const& text) const { std::ofstream(directory.path() / "frames.jsonl") << text; }
    std::string complaint() const {
        try {
            read_journal(directory.path());
        } catch (std::runtime_error const& error) {
            return error.what();
        }
        return "none";
    }
    std::filesystem::path write_frame(sample_frame const& frame, tiff_compression compression) const {
        auto path = directory.path() / "frame.tif";
        int const file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        tiff_file(compression, "test", "").write(file, frame.view());
        close(file);
        return path;
    }

    temporary_directory directory;
};

std::string line_of(std::uint64_t number) {
    frame_record record;
    record.number = number;
    record.timestamp_us = 1000 * number;
    record.width = 64;
    record.height = 48;
    record.format = &pixel_formats[3];
    record.gain_db = 1.5F;
    return journal_line(record, "a.tif");
}

}  // namespace

TEST_F(RecordingReader, ReadsWhatTheJournalOfARecordingSays) {
    write_journal(line_of(1) + line_of(3));
    auto const read = read_journal(directory.path());
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[1].number, 3U);
    EXPECT_EQ(read[1].timestamp_us, 3000U);
    EXPECT_EQ(read[1].file, "a.tif");
    EXPECT_EQ(read[1].gain_db, 1.5);
    EXPECT_EQ(read[1].counter, std::nullopt);
    EXPECT_EQ(read[1].format, &pixel_formats[3]);
}

TEST_F(RecordingReader, LeavesALineOutThatWasCutShort) {
    write_journal(line_of(1) + line_of(2).substr(0, 40));
    EXPECT_EQ(read_journal(directory.path()).size(), 1U);
}

TEST_F(RecordingReader, TellsWhichLineIsWrong) {
    EXPECT_THAT(complaint(), HasSubstr("holds no recording"));
    write_journal(line_of(1) + "nonsense\n");
    EXPECT_THAT(complaint(), HasSubstr("frames.jsonl:2: "));
    write_journal("{}\n");
    EXPECT_THAT(complaint(), HasSubstr("frame"));
}

TEST_F(RecordingReader, RefusesAFileBesideTheRecording) {
    auto line = line_of(1);
    line.replace(line.find("a.tif"), 5, "../a.tif");
    write_journal(line);
    EXPECT_THAT(complaint(), HasSubstr("leads out of the recording"));
}

TEST_F(RecordingReader, RefusesAFormatThatNobodyKnows) {
    auto line = line_of(1);
    line.replace(line.find("BayerRG8T"), 9, "MONO99");
    write_journal(line);
    EXPECT_THAT(complaint(), HasSubstr("MONO99"));
}

TEST_F(RecordingReader, MakesFramesSmallerWhateverTheirCompression) {
    auto const frame = make_frame(pixel_formats[0], 64, 32, 0, [](auto x, auto y) { return 4 * x + y; });
    for (auto const compression : {tiff_compression::none, tiff_compression::lzw, tiff_compression::deflate}) {
        auto const small = read_thumbnail(write_frame(frame, compression), pixel_formats[0], 20);
        EXPECT_EQ(small.width, 16U);
        EXPECT_EQ(small.height, 8U);
        ASSERT_EQ(small.values.size(), 16U * 8U);
        EXPECT_EQ(small.values[16 * 2 + 3], 4 * (4 * 3) + 4 * 2);
    }
}

TEST_F(RecordingReader, ShowsTheUpperEightOfTwelveBits) {
    for (auto const& format : {pixel_formats[1], pixel_formats[2]}) {
        auto const frame = make_frame(format, 8, 8, 0, [](auto x, auto) { return 0x120 + 0x100 * x; });
        auto const small = read_thumbnail(write_frame(frame, tiff_compression::none), format, 100);
        EXPECT_EQ(small.width, 8U);
        EXPECT_EQ(small.values[1], 0x22);
    }
}

TEST_F(RecordingReader, MakesAColouredPixelOfACellOfAMosaic) {
    auto const frame = make_frame(pixel_formats[3], 8, 4, 0, [](auto x, auto y) {
        return y % 2 == 0 ? (x % 2 == 0 ? 200 : 100) : (x % 2 == 0 ? 100 : 50);
    });
    auto const small = read_thumbnail(write_frame(frame, tiff_compression::none), pixel_formats[3], 100);
    EXPECT_EQ(small.width, 4U);
    EXPECT_EQ(small.height, 2U);
    EXPECT_EQ(small.channels, 3U);
    EXPECT_THAT(std::vector<int>(small.values.begin() + 3, small.values.begin() + 6), ElementsAre(200, 100, 50));
}

TEST_F(RecordingReader, RefusesWhatIsNoFrame) {
    EXPECT_THROW(read_thumbnail(directory.path() / "nothing.tif", pixel_formats[0], 10), std::runtime_error);
}

TEST(RecordingFacts, OfNoFramesAreNone) {
    EXPECT_EQ(facts_of({}).frames, 0U);
    EXPECT_EQ(facts_of({}).frames_per_s, 0.0);
}

TEST(RecordingFacts, TellIntervalsAndRate) {
    std::vector const frames{entry(1, 11, 0), entry(2, 12, 10), entry(3, 13, 20), entry(4, 14, 40)};
    auto const facts = facts_of(frames);
    EXPECT_DOUBLE_EQ(facts.duration_s, 0.04);
    EXPECT_DOUBLE_EQ(facts.frames_per_s, 75.0);
    EXPECT_NEAR(facts.interval.median_us, 10'000, 1e-6);
    EXPECT_NEAR(facts.interval.most_us, 20'000, 1e-6);
    EXPECT_TRUE(facts.losses.empty());
}

TEST(RecordingFacts, TellWhereFramesWereLost) {
    // One was not written; then two never came; then both at once.
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

TEST(RecordingFacts, TakeACounterThatBeginsAnewForNoLoss) {
    std::vector const frames{entry(1, 500, 0), entry(2, 501, 10), entry(3, 1, 5000), entry(4, 2, 5010)};
    auto const facts = facts_of(frames);
    EXPECT_THAT(facts.restarts_s, ElementsAre(5.0));
    EXPECT_EQ(facts.lost_before_host, 0U);
    EXPECT_EQ(facts.intervals_us.size(), 2U);
}

TEST(RecordingFacts, DoWithoutACounter) {
    std::vector const frames{entry(1, std::nullopt, 0), entry(4, std::nullopt, 30)};
    EXPECT_EQ(facts_of(frames).lost_in_host, 2U);
    EXPECT_EQ(facts_of(frames).lost_before_host, 0U);
}

TEST(Chart, DrawsOnlyTheLeastAndTheGreatestOfManyPoints) {
    std::vector<point> points;
    for (int i = 0; i < 100'000; ++i) {
        points.push_back({static_cast<double>(i), i == 50'000 ? 1000.0 : 1.0});
    }
    auto const drawn = line_chart(points, {.from = 0, .to = 1e5, .unit = "s"}, "dB", "Gain");
    EXPECT_LT(drawn.size(), 50'000U);
    EXPECT_THAT(drawn, HasSubstr(">1000 dB<"));
    EXPECT_THAT(drawn, HasSubstr("aria-label=\"Gain\""));
}

TEST(ReportPage, HasEverythingInside) {
    std::vector const frames{entry(1, 1, 0), entry(2, 2, 10), entry(3, 5, 40)};
    std::vector<thumbnail> const thumbnails{
        {.at_s = 0.01, .frame = 2, .picture = {.width = 2, .height = 1, .channels = 3, .values = {1, 2, 3, 4, 5, 6}}}};
    auto const page = report_page("A <b>&amp; \"more\"", facts_of(frames), frames, thumbnails);
    EXPECT_THAT(page, HasSubstr("<h1>A &lt;b&gt;&amp;amp; &quot;more&quot;</h1>"));
    EXPECT_THAT(page, HasSubstr("<td>lost before this machine</td><td>2</td>"));
    EXPECT_THAT(page, HasSubstr("2026-11-21 16:31:02 UTC"));
    EXPECT_THAT(page, HasSubstr("src=\"data:image/png;base64,iVBORw0KGgo"));
    EXPECT_THAT(page, HasSubstr("alt=\"frame 2, 0.01 s\""));
    for (auto const* const elsewhere : {"http://", "https://", "<script", "<link"}) {
        EXPECT_THAT(page, Not(HasSubstr(elsewhere)));
    }
}

TEST(ReportPage, OfARecordingWithoutFramesSaysSo) {
    auto const page = report_page("empty", facts_of({}), {}, {});
    EXPECT_THAT(page, HasSubstr("<td>frames</td><td>0</td>"));
    EXPECT_THAT(page, HasSubstr("No frame is missing."));
    EXPECT_THAT(page, HasSubstr("The recording has no pictures."));
}
