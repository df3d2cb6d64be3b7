// SPDX-License-Identifier: MIT
#include "base/patient_writer.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>
#include <utility>

using namespace mediagrabber;

namespace {

class PatientWriter : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(pipe(ends_.data()), 0); }
    void TearDown() override {
        close(ends_[0]);
        close(ends_[1]);
    }

    std::string read_all() const {
        fcntl(ends_[0], F_SETFL, O_NONBLOCK);
        std::string all;
        std::array<char, 4096> part{};
        for (ssize_t got = 1; (got = read(ends_[0], part.data(), part.size())) > 0;) {
            all.append(part.data(), static_cast<std::size_t>(got));
        }
        return all;
    }

    std::array<int, 2> ends_{-1, -1};
};

}  // namespace

TEST_F(PatientWriter, WritesTextOfAnyLength) {
    std::string const text(60'000, 'x');
    EXPECT_TRUE(write_patiently(ends_[1], text, std::chrono::milliseconds(0)));
    EXPECT_EQ(read_all(), text);
}

TEST_F(PatientWriter, GivesUpIfNobodyReads) {
    EXPECT_FALSE(write_patiently(ends_[1], std::string(1'000'000, 'x'), std::chrono::milliseconds(1)));
}

TEST_F(PatientWriter, DropsLinesUntilTheyAreReadAgain) {
    patient_writer writer(ends_[1]);
    std::string const line = std::string(4'095, 'x') + "\n";
    for (int i = 0; i < 22; ++i) {  // a pipe holds 16 of them; only the first one that does not fit waits
        writer.write_line(line);
    }
    EXPECT_EQ(read_all().size(), 65'536U);
    writer.write_line("read again\n");
    EXPECT_EQ(read_all(), "mediagrabber: 6 lines dropped here: the output was not read\nread again\n");
}

TEST_F(PatientWriter, DropsTextForAReaderThatHasEnded) {
    std::signal(SIGPIPE, SIG_IGN);
    close(std::exchange(ends_[0], -1));
    EXPECT_TRUE(write_patiently(ends_[1], "x", std::chrono::milliseconds(0)));
}
