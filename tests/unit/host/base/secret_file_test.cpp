// SPDX-License-Identifier: MIT
#include "base/secret_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "temporary_directory.hpp"

namespace mediagrabber {
namespace {

using std::filesystem::perms;

class SecretFile : public testing::Test {
protected:
    std::filesystem::path with(perms mode) {
        auto const file = directory_.path() / "secret";
        std::ofstream(file) << "secret";
        std::filesystem::permissions(file, mode);
        return file;
    }

private:
    temporary_directory directory_;
};

TEST_F(SecretFile, MayBeReadByOwnerAndGroup) {
    EXPECT_NO_THROW(check_secret_file(with(perms::owner_read)));
    EXPECT_NO_THROW(check_secret_file(with(perms::owner_all | perms::group_all)));
}

TEST_F(SecretFile, IsRefusedWithAnyAccessOfOthers) {
    for (auto const access : {perms::others_read, perms::others_write, perms::others_exec}) {
        auto const file = with(perms::owner_read | access);
        EXPECT_THAT([&] { check_secret_file(file); },
                    testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("run `chmod o= " + file.string())));
    }
}

}  // namespace
}  // namespace mediagrabber
