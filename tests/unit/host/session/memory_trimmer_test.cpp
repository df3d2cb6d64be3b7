// SPDX-License-Identifier: MIT
#include "session/memory_trimmer.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

namespace mediagrabber {
namespace {

using namespace std::chrono_literals;

std::size_t resident_pages() {
    std::size_t all = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident;
}

TEST(MemoryTrimmer, ReturnsMemoryThatWasFreedBelowABlockInUse) {
    constexpr std::size_t blocks = 4096;
    constexpr std::size_t block_bytes = 16384;
    constexpr std::size_t pages = blocks * block_bytes / 4096;
    std::unique_ptr<std::byte[]> in_use;
    auto const before = resident_pages();
    std::thread([&] {
        std::vector<std::unique_ptr<std::byte[]>> freed;
        for (std::size_t i = 0; i < blocks; ++i) {
            freed.push_back(std::make_unique<std::byte[]>(block_bytes));
        }
        in_use = std::make_unique<std::byte[]>(block_bytes);
    }).join();
    ASSERT_GT(resident_pages(), before + pages / 2) << "the allocator keeps freed memory";

    memory_trimmer const trimmer(1ms);
    auto const deadline = std::chrono::steady_clock::now() + 60s;
    while (resident_pages() > before + pages / 4 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_LE(resident_pages(), before + pages / 4);
}

TEST(MemoryTrimmer, EndsDuringItsInterval) {
    auto const begin = std::chrono::steady_clock::now();
    { memory_trimmer const trimmer(10min); }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 60s);
}

}  // namespace
}  // namespace mediagrabber
