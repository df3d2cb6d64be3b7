// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Makes ZIP archives for tests.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <zip.h>

/// \param entries names and contents
inline std::vector<std::byte> zip_archive(std::vector<std::pair<std::string, std::string>> const& entries) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* const target = zip_source_buffer_create(nullptr, 0, 0, &error);
    zip_t* const archive = zip_open_from_source(target, ZIP_TRUNCATE, &error);
    EXPECT_NE(archive, nullptr);
    zip_source_keep(target);
    for (auto const& [name, content] : entries) {
        zip_source_t* const source = zip_source_buffer(archive, content.data(), content.size(), 0);
        EXPECT_GE(zip_file_add(archive, name.c_str(), source, 0), 0);
    }
    EXPECT_EQ(zip_close(archive), 0);
    EXPECT_EQ(zip_source_open(target), 0);
    zip_stat_t written;
    zip_source_stat(target, &written);
    std::vector<std::byte> bytes(written.size);
    zip_source_read(target, bytes.data(), bytes.size());
    zip_source_close(target);
    zip_source_free(target);
    return bytes;
}
