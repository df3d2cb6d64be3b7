// SPDX-License-Identifier: MIT
#include "status/progress_report.hpp"

#include <gmock/gmock.h>

#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

progress_figures const half_way{.wanted = 1000,
                                .handed_over = 501,
                                .saved = 499,
                                .dropped_queue_full = 3,
                                .dropped_write_error = 1,
                                .empty_fetches = 0,
                                .bytes = 131'072'000,
                                .seconds = 5.0};

}  // namespace

TEST(ProgressLine, ReportsSavedFramesRateAndTimeLeft) {
    auto figures = half_way;
    figures.dropped_queue_full = figures.dropped_write_error = 0;
    EXPECT_EQ(progress_line(figures), "499/1000 frames saved, 100.0 frames/s, 131.1 MB, 0 dropped, 5 s left");
}

TEST(ProgressLine, ReportsDroppedFramesByCause) {
    EXPECT_EQ(progress_line(half_way),
              "499/1000 frames saved, 100.0 frames/s, 131.1 MB, 3 dropped (queue full), 1 dropped (write errors), "
              "5 s left");
    auto figures = half_way;
    figures.dropped_queue_full = 0;
    EXPECT_EQ(progress_line(figures),
              "499/1000 frames saved, 100.0 frames/s, 131.1 MB, 1 dropped (write errors), 5 s left");
}

TEST(ProgressLine, HasNoTotalWithoutAFrameLimit) {
    auto figures = half_way;
    figures.wanted = 0;
    figures.dropped_write_error = 0;
    EXPECT_EQ(progress_line(figures), "499 frames saved, 100.0 frames/s, 131.1 MB, 3 dropped (queue full)");
}

TEST(ProgressLine, HasNoRateBeforeTheSecondFrame) {
    EXPECT_EQ(progress_line({}), "0 frames saved, 0.0 frames/s, 0.0 MB, 0 dropped");
    EXPECT_EQ(progress_line({.wanted = 5, .handed_over = 1, .saved = 1}),
              "1/5 frames saved, 0.0 frames/s, 0.0 MB, 0 dropped");
}

TEST(ProgressLine, ReportsFetchesWithoutAFrame) {
    progress_figures const figures{.handed_over = 1, .saved = 1, .empty_fetches = 17};
    EXPECT_EQ(progress_line(figures), "1 frames saved, 0.0 frames/s, 0.0 MB, 0 dropped, 17 fetches without a frame");
}

TEST(ProgressLine, RoundsTheRemainingTimeUp) {
    auto figures = half_way;
    figures.wanted = 502;
    EXPECT_THAT(progress_line(figures), testing::EndsWith(", 1 s left"));
    figures.wanted = 501;
    EXPECT_THAT(progress_line(figures), testing::Not(testing::HasSubstr("left")));
}

TEST(Summary, ReportsSavedAndDroppedFrames) {
    auto figures = half_way;
    figures.empty_fetches = 5;
    EXPECT_EQ(summary_text(figures, "out"),
              "499 frames saved, 5.000 s, 100.00 frames/s, 131.1 MB, in out\n"
              "dropped: 3 (queue full), 1 (write errors); 5 fetches without a frame");
}

TEST(ProgressReport, CombinesFiguresOfThePluginAndTheExporter) {
    class refusing_sink : public frame_sink_like {
        std::size_t write(frame_view const& frame) override {
            if (frame.record.number == 2) {
                throw std::runtime_error("no");
            }
            return 1000;
        }
    } sink;
    grab_progress progress;
    frame_exporter exporter(sink, 4, [](auto const&, auto const&) {});
    auto const memory = std::make_shared<buffer_pool>(64, 2, 4);
    auto frame = make_frame(frame_formats[0], 4, 4);
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
    EXPECT_EQ(figures.saved, 2U);
    EXPECT_EQ(figures.dropped_write_error, 2U);
    EXPECT_EQ(figures.dropped_queue_full, 0U);
    EXPECT_EQ(figures.empty_fetches, 5U);
    EXPECT_EQ(figures.bytes, 2000U);
    EXPECT_DOUBLE_EQ(figures.seconds, 3.0);
}
