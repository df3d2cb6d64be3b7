// SPDX-License-Identifier: MIT
#include "recording/raw_file.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "file_size_limit.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

class RawFile : public testing::Test {
protected:
    RawFile() : descriptor(open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

    std::vector<std::byte> contents() const {
        std::vector<std::byte> read(std::filesystem::file_size(directory.path() / "frames.raw"));
        std::ifstream(directory.path() / "frames.raw", std::ios::binary)
            .read(reinterpret_cast<char*>(read.data()), static_cast<std::streamsize>(read.size()));
        return read;
    }

    temporary_directory const directory;
    mediagrabber::file_handle const descriptor;
};

}  // namespace

TEST_F(RawFile, HoldsFramesOfEveryFormatWithoutPadding) {
    raw_file file(descriptor.get());
    std::vector<std::byte> expected;
    for (auto const& format : frame_formats) {
        for (std::uint32_t const padding : {0U, 5U}) {
            auto const written = file.write(make_frame(format, 7, 5, padding).view());
            auto const without = make_frame(format, 7, 5).bytes;
            EXPECT_EQ(written.place.file, "frames.raw");
            EXPECT_EQ(written.place.offset, expected.size());
            EXPECT_EQ(written.place.bytes, without.size());
            EXPECT_EQ(written.bytes, without.size());
            expected.insert(expected.end(), without.begin(), without.end());
        }
    }
    EXPECT_EQ(contents(), expected);
}

TEST_F(RawFile, RefusesAFrameThatDoesNotFitAndContinuesLater) {
    raw_file file(descriptor.get());
    auto const frame = make_frame(frame_formats[0], 16, 8);
    file.write(frame.view());
    {
        file_size_limit const limit(200);
        EXPECT_THROW(file.write(frame.view()), std::system_error);
    }
    EXPECT_EQ(contents(), frame.bytes);
    EXPECT_EQ(file.write(frame.view()).place.offset, frame.bytes.size());
}

TEST_F(RawFile, UndoesTheLastFrame) {
    raw_file file(descriptor.get());
    auto const frame = make_frame(frame_formats[0], 16, 8);
    file.write(frame.view());
    file.write(frame.view());
    file.undo_last();
    EXPECT_EQ(contents(), frame.bytes);
}
