#include "telemetry/sparse_report.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;
using namespace std::chrono_literals;

namespace {

sparse_report::clock::time_point const start{1h};

}  // namespace

TEST(SparseReport, SaysHowItStandsOnce) {
    sparse_report report(10s);
    EXPECT_FALSE(report.due(start));
    report.note({.good = false, .text = "lost"});
    EXPECT_EQ(report.due(start)->text, "lost");
    EXPECT_FALSE(report.due(start + 1h));
    report.note({.good = false, .text = "lost"});
    EXPECT_FALSE(report.due(start + 1h));
}

TEST(SparseReport, WaitsWithTheNextMessage) {
    sparse_report report(10s);
    report.note({.good = false, .text = "lost"});
    report.due(start);
    report.note({.good = true, .text = "there"});
    EXPECT_FALSE(report.due(start + 9s));
    EXPECT_EQ(report.due(start + 10s)->text, "there");
}

TEST(SparseReport, SaysNothingOfWhatWentAndCameAgainInTheMeantime) {
    sparse_report report(10s);
    report.note({.good = true, .text = "there"});
    report.due(start);
    report.note({.good = false, .text = "lost"});
    report.note({.good = true, .text = "there"});
    EXPECT_FALSE(report.due(start + 1h));
}
