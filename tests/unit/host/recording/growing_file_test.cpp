// SPDX-License-Identifier: MIT
#include "recording/growing_file.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "file_size_limit.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

std::span<std::byte const> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

class GrowingFile : public testing::Test {
protected:
    GrowingFile() : descriptor(open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

    std::string text() const {
        std::ostringstream all;
        all << std::ifstream(directory.path() / "a").rdbuf();
        return all.str();
    }

    temporary_directory const directory;
    mediagrabber::file_handle const descriptor;
};

}  // namespace

TEST_F(GrowingFile, AppendsPieces) {
    growing_file file(descriptor.get(), "a");
    file.append({bytes_of("on"), bytes_of("e")});
    file.append({bytes_of("two")});
    EXPECT_EQ(text(), "onetwo");
    file.replace(1, bytes_of("NE"));
    EXPECT_EQ(text(), "oNEtwo");
    file.truncate(3);
    EXPECT_EQ(file.size(), 3U);
    file.append({bytes_of("3")});
    EXPECT_EQ(text(), "oNE3");
}

TEST_F(GrowingFile, RemovesThePartOfAPieceThatAFullDiskHasTaken) {
    growing_file file(descriptor.get(), "a");
    file.append({bytes_of("one")});
    {
        file_size_limit const limit(5);
        EXPECT_THROW(file.append({bytes_of("t"), bytes_of("wo")}), std::system_error);
        EXPECT_EQ(text(), "one");
    }
    file.append({bytes_of("three")});
    EXPECT_EQ(text(), "onethree");
}

TEST_F(GrowingFile, DoesNotOverwriteAnExistingFile) {
    std::ofstream(directory.path() / "a") << "precious";
    EXPECT_THROW(growing_file(descriptor.get(), "a"), std::system_error);
    EXPECT_EQ(text(), "precious");
}

TEST_F(GrowingFile, AppearsWithItsFirstPiece) {
    auto const exists = [&] { return std::filesystem::exists(directory.path() / "a"); };
    auto const files = [&] {
        return std::distance(std::filesystem::directory_iterator(directory.path()),
                             std::filesystem::directory_iterator());
    };
    {
        growing_file file(descriptor.get(), "a");
        EXPECT_FALSE(exists());
        file.append({bytes_of("one")});
        EXPECT_TRUE(exists());
        file.truncate(0);
        EXPECT_FALSE(exists());
        EXPECT_EQ(files(), 1) << "under a hidden name";
    }
    EXPECT_EQ(files(), 0);
}

TEST_F(GrowingFile, DoesNotReplaceAFileThatHasAppeared) {
    growing_file file(descriptor.get(), "a");
    std::ofstream(directory.path() / "a") << "precious";
    EXPECT_THROW(file.append({bytes_of("one")}), std::system_error);
    EXPECT_EQ(text(), "precious");
}
