#include "progress_report.hpp"

#include <gtest/gtest.h>

#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

progress_figures const half_way{.wanted = 1000,
                                .handed_over = 501,
                                .kept = 499,
                                .overrun = 1,
                                .not_written = 1,
                                .empty_fetches = 0,
                                .bytes = 131'072'000,
                                .seconds = 5.0};

}  // namespace

TEST(ProgressLine, SaysHowFarARecordingIs) {
    EXPECT_EQ(progress_line(half_way), "499/1000 frames, 100.0 frames/s, 131.1 MB, 2 lost, 5 s left");
}

TEST(ProgressLine, HasNoEndWhereThereIsNone) {
    auto figures = half_way;
    figures.wanted = 0;
    EXPECT_EQ(progress_line(figures), "499 frames, 100.0 frames/s, 131.1 MB, 2 lost");
}

TEST(ProgressLine, KnowsNoRateBeforeTheSecondFrame) {
    EXPECT_EQ(progress_line({}), "0 frames, 0.0 frames/s, 0.0 MB, 0 lost");
    EXPECT_EQ(progress_line({.wanted = 5, .handed_over = 1, .kept = 1}), "1/5 frames, 0.0 frames/s, 0.0 MB, 0 lost");
}

TEST(ProgressLine, MentionsFetchesThatGaveNoFrame) {
    auto figures = half_way;
    figures.empty_fetches = 17;
    EXPECT_EQ(progress_line(figures), "499/1000 frames, 100.0 frames/s, 131.1 MB, 2 lost, 17 empty fetches, 5 s left");
}

TEST(ProgressLine, RoundsTheTimeThatIsLeftUp) {
    auto figures = half_way;
    figures.wanted = 502;
    EXPECT_EQ(progress_line(figures), "499/502 frames, 100.0 frames/s, 131.1 MB, 2 lost, 1 s left");
    figures.wanted = 501;
    EXPECT_EQ(progress_line(figures), "499/501 frames, 100.0 frames/s, 131.1 MB, 2 lost");
}

TEST(Summary, SaysWhatIsOnDiskAndWhatIsNot) {
    auto figures = half_way;
    figures.empty_fetches = 3;
    EXPECT_EQ(summary_text(figures, "out"),
              "499 frames on disk, 5.000 s, 100.00 frames/s, 131.1 MB, in out\n"
              "lost: 1 overrun, 1 not written; 3 fetches without a frame");
}

TEST(ProgressReport, GathersFiguresFromThePluginAndTheDisk) {
    class refusing_sink : public frame_sink_like {
        std::size_t keep(frame_view const& frame) override {
            if (frame.record.number == 2) {
                throw std::runtime_error("no");
            }
            return 1000;
        }
    } sink;
    grab_progress progress;
    frame_exporter exporter(sink, 4, [](auto const&, auto const&) {});
    auto const memory = std::make_shared<frame_memory>(64, 2, 4);
    auto frame = make_frame(pixel_formats[0], 4, 4);
    for (frame.record.number = 1; frame.record.number <= 3; ++frame.record.number) {
        exporter.export_copy(memory, frame.bytes.data(), frame.record);
    }
    exporter.finish();
    progress.handed_over = 4;
    progress.unusable = 1;
    progress.empty_fetches = 5;
    progress.first_exported = grab_progress::clock::time_point(std::chrono::seconds(10));
    progress.last_exported = grab_progress::clock::time_point(std::chrono::seconds(13));
    progress_report report(progress, exporter, 9);
    auto const figures = report.figures();
    EXPECT_EQ(figures.wanted, 9U);
    EXPECT_EQ(figures.handed_over, 4U);
    EXPECT_EQ(figures.kept, 2U);
    EXPECT_EQ(figures.not_written, 2U);
    EXPECT_EQ(figures.overrun, 0U);
    EXPECT_EQ(figures.empty_fetches, 5U);
    EXPECT_EQ(figures.bytes, 2000U);
    EXPECT_DOUBLE_EQ(figures.seconds, 3.0);
}
