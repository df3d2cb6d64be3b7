// SPDX-License-Identifier: MIT
#include "report/table.hpp"

#include <sstream>

#include <gtest/gtest.h>

TEST(Table, HasColumnsAsWideAsTheirLongestText) {
    gevctl::table rows({"NAME", "VALUE"});
    rows.add({"Width", "1"});
    rows.add({"ExposureTime", "20"});
    std::ostringstream out;
    rows.print(out);
    EXPECT_EQ(out.str(), "NAME          VALUE\nWidth         1\nExposureTime  20\n");
}

TEST(Table, MarksAnEmptyCellAndCountsCharactersNotBytes) {
    gevctl::table rows({"A", "B"});
    rows.add({"", "x"});
    rows.add({"µs", "y"});
    std::ostringstream out;
    rows.print(out);
    EXPECT_EQ(out.str(), "A   B\n-   x\nµs  y\n");
}
