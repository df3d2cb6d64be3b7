// SPDX-License-Identifier: MIT
/// \file
/// Recordings while system calls fail, one after the other, and while the process is killed inside a write.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string>
#include <vector>

#include "hdf5_contents.hpp"
#include "recording/recording.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

/// What happens to one system call of this thread.
enum class fault : std::uint8_t { interrupted, short_write, full, io_error, killed };

struct injection {
    bool active = false;
    fault kind = fault::io_error;
    long remaining = -1;  ///< calls until the fault; -1: no fault
    long calls = 0;       ///< counted calls since the start
    bool reached = false;
    bool at_pages = false;  ///< a killed write ends at a memory page, as in the kernel; otherwise, in the middle
};
thread_local injection _injected;
thread_local std::size_t* _torn_changes = nullptr;  ///< counts changes of a file that cross a memory page
constexpr std::size_t memory_page = 4096;

/// Counts a call. \return whether it is the one that gets the fault
bool hits() {
    if (!_injected.active) {
        return false;
    }
    ++_injected.calls;
    if (_injected.remaining < 0 || _injected.remaining-- != 0) {
        return false;
    }
    _injected.reached = true;
    return true;
}

/// For calls that write no data: a short write has no meaning for them.
bool fails(int& result) {
    if (!hits()) {
        return false;
    }
    switch (_injected.kind) {
        case fault::interrupted:
            errno = EINTR;
            break;
        case fault::full:
            errno = ENOSPC;
            break;
        case fault::io_error:
            errno = EIO;
            break;
        case fault::short_write:
            return false;
        case fault::killed:
            _exit(0);
    }
    result = -1;
    return true;
}

/// \param write_some  writes that many bytes
/// \param page_end    bytes until the first memory page ends
template <typename writer>
ssize_t write_with_faults(std::size_t size, std::size_t page_end, writer&& write_some) {
    if (!hits()) {
        return write_some(size);
    }
    switch (_injected.kind) {
        case fault::short_write:
            return write_some(std::max<std::size_t>(size / 2, 1));
        case fault::killed:
            if (!_injected.at_pages || page_end < size) {
                write_some(_injected.at_pages ? page_end : size / 2);
            }
            _exit(0);
        case fault::interrupted:
            errno = EINTR;
            return -1;
        case fault::full:
            errno = ENOSPC;
            return -1;
        case fault::io_error:
            break;
    }
    errno = EIO;
    return -1;
}

}  // namespace

// These replace the C library's functions in this program.
extern "C" {

ssize_t write(int descriptor, void const* data, size_t size) {
    return write_with_faults(size, memory_page,
                             [&](std::size_t some) { return syscall(SYS_write, descriptor, data, some); });
}

ssize_t pwrite(int descriptor, void const* data, size_t size, off_t offset) {
    std::size_t const page_end = memory_page - static_cast<std::size_t>(offset) % memory_page;
    struct stat file {};
    if (_torn_changes != nullptr && fstat(descriptor, &file) == 0 && offset < file.st_size && size > page_end) {
        ++*_torn_changes;
    }
    return write_with_faults(size, page_end,
                             [&](std::size_t some) { return syscall(SYS_pwrite64, descriptor, data, some, offset); });
}

int ftruncate(int descriptor, off_t size) noexcept {
    int result = 0;
    return fails(result) ? result : static_cast<int>(syscall(SYS_ftruncate, descriptor, size));
}

// Defined under another name: the headers declare `openat` with a variable argument, which is the mode.
int injected_openat(int directory, char const* path, int flags, mode_t mode) __asm__("openat");

int injected_openat(int directory, char const* path, int flags, mode_t mode) {
    int result = 0;
    return fails(result) ? result : static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
}

int renameat(int from, char const* old_path, int to, char const* new_path) noexcept {
    int result = 0;
    return fails(result) ? result : static_cast<int>(syscall(SYS_renameat2, from, old_path, to, new_path, 0));
}

int renameat2(int from, char const* old_path, int to, char const* new_path, unsigned flags) noexcept {
    int result = 0;
    return fails(result) ? result : static_cast<int>(syscall(SYS_renameat2, from, old_path, to, new_path, flags));
}

/// Linux closes the descriptor in any case.
int close(int descriptor) {
    int result = 0;
    bool const failed = fails(result);
    int const error = errno;
    long const closed = syscall(SYS_close, descriptor);
    errno = failed ? error : errno;
    return failed ? result : static_cast<int>(closed);
}

}  // extern "C"

namespace {

/// Calls of this thread get a fault while it lives.
class injected_fault {
public:
    /// \param after  number of calls without a fault; -1: no fault, calls are counted
    injected_fault(fault kind, long after) { _injected = {.active = true, .kind = kind, .remaining = after}; }
    ~injected_fault() { _injected.active = false; }
    injected_fault(injected_fault const&) = delete;
    injected_fault& operator=(injected_fault const&) = delete;
};

constexpr std::size_t frames = 3;

sample_frame frame_number(std::uint64_t number) {
    auto frame = make_frame(frame_formats[0], 16, 8, 0, [number](auto, auto) { return number; });
    frame.record.number = number;
    frame.record.timestamp_us = 1'700'000'000'000'000 + number;
    return frame;
}

recording_format format_of(output_format kind, tiff_compression compression) {
    return {.kind = kind, .compression = compression, .software = "tester", .model = ""};
}

/// The first pixel of every page, as LibTIFF reads it. Fails the test if it cannot read the file.
std::vector<std::uint64_t> pages_of(std::filesystem::path const& file) {
    std::unique_ptr<TIFF, void (*)(TIFF*)> const tiff(TIFFOpen(file.c_str(), "r"), TIFFClose);
    std::vector<std::uint64_t> values;
    if (tiff == nullptr) {
        ADD_FAILURE() << file << " cannot be opened";
        return values;
    }
    do {
        std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize(tiff.get())));
        for (std::uint32_t y = 0; y < 8; ++y) {
            EXPECT_EQ(TIFFReadScanline(tiff.get(), line.data(), y), 1) << file;
        }
        values.push_back(line.empty() ? 0 : line[0]);
    } while (TIFFReadDirectory(tiff.get()) != 0);
    return values;
}

/// Every file that exists can be read, and every complete line of the index names a frame that can be read.
/// \return numbers of the frames in the index
std::vector<std::uint64_t> check(std::filesystem::path const& directory) {
    for (auto const& entry : std::filesystem::directory_iterator(directory)) {
        auto const name = entry.path().filename().string();
        if (name.ends_with(".h5") && !name.starts_with('.')) {
            EXPECT_FALSE(hdf5_contents(entry.path()).first_pixels().empty()) << name;
        }
        if (name.ends_with(".tif")) {
            EXPECT_FALSE(pages_of(entry.path()).empty()) << name;
        }
    }
    std::vector<std::uint64_t> numbers;
    std::ifstream index(directory / "frames.jsonl");
    for (std::string line; std::getline(index, line) && !index.eof();) {
        auto const found = nlohmann::json::parse(line);
        auto const number = found.at("frame").get<std::uint64_t>();
        auto const file = directory / found.at("file").get<std::string>();
        numbers.push_back(number);
        if (file.extension() == ".raw") {
            std::ifstream pixels(file);
            pixels.seekg(found.at("offset").get<std::streamoff>());
            EXPECT_EQ(pixels.get(), static_cast<int>(number)) << line;
        } else {
            auto const pages = file.extension() == ".h5" ? hdf5_contents(file).first_pixels() : pages_of(file);
            auto const page = found.value("page", std::size_t{0});
            EXPECT_LT(page, pages.size()) << line;
            EXPECT_EQ(page < pages.size() ? pages[page] : 0, number) << line;
        }
    }
    return numbers;
}

/// Creates a recording and writes frames. \return numbers of the frames that were written without an error
std::vector<std::uint64_t> record(std::unique_ptr<recording>& made, std::filesystem::path const& directory,
                                  recording_format const& format) {
    std::vector<std::uint64_t> written;
    try {
        made = std::make_unique<recording>(directory, format);
    } catch (std::exception const&) {
        return written;
    }
    for (std::uint64_t number = 1; number <= frames; ++number) {
        try {
            made->write(frame_number(number).view());
            written.push_back(number);
        } catch (std::exception const&) {
            // The frame is lost; the recording goes on.
        }
    }
    return written;
}

struct FaultInjection : testing::TestWithParam<std::pair<output_format, tiff_compression>> {
    recording_format const format = format_of(GetParam().first, GetParam().second);

    /// Number of system calls of a recording without faults.
    long calls() const {
        temporary_directory const directory;
        injected_fault const none(fault::io_error, -1);
        std::unique_ptr<recording> made;
        record(made, directory.path() / "a", format);
        return _injected.calls;
    }
};

}  // namespace

TEST_P(FaultInjection, LosesAtMostTheFrameOfTheFailedCall) {
    long const all = calls();
    ASSERT_GT(all, 6);
    for (auto const kind : {fault::full, fault::io_error}) {
        for (long after = 0; after < all; ++after) {
            temporary_directory const parent;
            auto const directory = parent.path() / "a";
            std::unique_ptr<recording> made;
            std::vector<std::uint64_t> written;
            {
                injected_fault const injected(kind, after);
                written = record(made, directory, format);
            }
            if (made == nullptr) {
                EXPECT_FALSE(std::filesystem::exists(directory)) << "a start that failed leaves no directory";
                continue;
            }
            EXPECT_GE(written.size(), frames - 1) << "call " << after;
            made->write(frame_number(frames + 1).view());
            written.push_back(frames + 1);
            EXPECT_EQ(check(directory), written) << "call " << after;
        }
    }
}

TEST_P(FaultInjection, LosesNoFrameToInterruptionsAndShortWrites) {
    long const all = calls();
    for (auto const kind : {fault::interrupted, fault::short_write}) {
        for (long after = 0; after < all; ++after) {
            temporary_directory const parent;
            auto const directory = parent.path() / "a";
            std::unique_ptr<recording> made;
            injected_fault const injected(kind, after);
            EXPECT_EQ(record(made, directory, format).size(), frames) << "call " << after;
            EXPECT_EQ(check(directory).size(), frames) << "call " << after;
        }
    }
}

TEST_P(FaultInjection, LeavesOnlyCompleteFilesWhenKilledInsideACall) {
    long const all = calls();
    for (long after = 0; after < all; ++after) {
        temporary_directory const parent;
        auto const directory = parent.path() / "a";
        pid_t const child = fork();
        if (child == 0) {
            injected_fault const injected(fault::killed, after);
            // libhdf5 changes blocks that have a checksum; see hdf5_storage.
            _injected.at_pages = format.kind == output_format::hdf5;
            std::unique_ptr<recording> made;
            record(made, directory, format);
            _exit(1);  // the fault was not reached
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0) << "call " << after;
        if (std::filesystem::exists(directory)) {
            auto const found = check(directory);
            std::vector<std::uint64_t> expected(found.size());
            std::iota(expected.begin(), expected.end(), 1);
            EXPECT_EQ(found, expected) << "call " << after;
        }
    }
}

TEST_P(FaultInjection, ReportsTheErrorOfTheFailedCall) {
    temporary_directory const directory;
    recording made(directory.path(), format);
    long const writes = format.kind == output_format::tiff ? 2 : 0;
    std::string reason;
    {
        injected_fault const injected(fault::io_error, writes);
        try {
            made.write(frame_number(1).view());
        } catch (std::exception const& error) {
            reason = error.what();
        }
    }
    EXPECT_NE(reason.find("Input/output error"), std::string::npos) << reason;
}

/// Within a page, the kernel completes a write before it ends the process. Enough frames for inner nodes of the index.
TEST(Hdf5Changes, CrossNoMemoryPage) {
    temporary_directory const directory;
    recording made(directory.path() / "a", format_of(output_format::hdf5, tiff_compression::none));
    made.write(frame_number(1).view());
    std::size_t torn = 0;
    _torn_changes = &torn;
    for (std::uint64_t number = 2; number <= 5000; ++number) {
        made.write(frame_number(number).view());
    }
    _torn_changes = nullptr;
    EXPECT_EQ(torn, 0U);
}

INSTANTIATE_TEST_SUITE_P(Formats, FaultInjection,
                         testing::Values(std::pair(output_format::tiff, tiff_compression::none),
                                         std::pair(output_format::tiff, tiff_compression::lzw),
                                         std::pair(output_format::bigtiff, tiff_compression::none),
                                         std::pair(output_format::bigtiff, tiff_compression::lzw),
                                         std::pair(output_format::hdf5, tiff_compression::none),
                                         std::pair(output_format::raw, tiff_compression::none)));
