// SPDX-License-Identifier: MIT
/// \file
/// Counts the plug-in's allocations while it grabs. A separate program, because it replaces the allocation functions.
#include <atomic>
#include <cstdlib>
#include <new>

#include "jai_kernel/kernel_test.hpp"

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t number, size_t size);
void* __real_realloc(void* memory, size_t size);
}

namespace {

std::atomic<bool> counting{false};
std::atomic<size_t> allocations{0};

void count() {
    if (counting && !support::outside_plugin::here()) {
        ++allocations;
    }
}

void* allocate(size_t size) {
    count();
    void* const memory = __real_malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(size_t size) {
    return allocate(size);
}
void* operator new[](size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}

// The program is linked with --wrap, so the plug-in calls these functions instead of the C library's.
extern "C" {
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t number, size_t size);
void* __wrap_realloc(void* memory, size_t size);

void* __wrap_malloc(size_t size) {
    count();
    return __real_malloc(size);
}
void* __wrap_calloc(size_t number, size_t size) {
    count();
    return __real_calloc(number, size);
}
void* __wrap_realloc(void* memory, size_t size) {
    count();
    return __real_realloc(memory, size);
}
}

namespace {

struct frame_path : plugin_test::kernel_fixture {
    /// Grabs some frames to warm up, then `frames` more.
    /// \return allocations of the plug-in after the warm-up
    size_t allocations_of(uint32_t frames) {
        constexpr uint32_t warm_up = 10;
        host().keep_records = false;
        host().fnum = warm_up + frames;
        support::journal().enable(false);
        cam().endless = [](uint32_t n) {
            counting = n >= warm_up;
            if (n == warm_up) {
                allocations = 0;
            }
            scripted::block block;
            block.timestamp = 1'000'000 + n * 10'000'000ULL;
            return block;
        };
        EXPECT_EQ(kernel.ProcLoop(&device(), info(), &factory), 0);
        counting = false;
        return allocations;
    }
};

TEST_F(frame_path, AllocatesNothingPerFrame) {
    gMgLogLevelLib = 0;
    size_t const few = allocations_of(100);
    disconnect();
    EXPECT_EQ(allocations_of(1'100), few);
}

TEST_F(frame_path, AllocatesNothingPerFrameInCameraTimeWithEverythingLogged) {
    host().tsadjns = 1'000;
    host().fps = 100.0F;
    size_t const few = allocations_of(100);
    disconnect();
    EXPECT_EQ(allocations_of(1'100), few);
}

TEST_F(frame_path, AllocatesNothingPerFrameThatIsRotatedAndConverted) {
    host().rotate = 2;
    host().cformat = 3;
    size_t const few = allocations_of(20);
    disconnect();
    EXPECT_EQ(allocations_of(120), few);
}

TEST_F(frame_path, TheCountIncludesAnAllocationOfThePlugin) {
    // Checks the counter itself: without the gain feature, the plug-in formats a failure for each frame.
    cam().features.erase("Gain");
    size_t const few = allocations_of(100);
    disconnect();
    EXPECT_GE(allocations_of(1'100), few + 1'000);
}

}  // namespace
