#include "live/output_tap.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace mediagrabber {

namespace {

constexpr std::size_t longest_line = 65'536;  ///< a longer one is taken for several

void flush_streams() {
    std::fflush(stdout);
    std::fflush(stderr);
}

}  // namespace

output_tap::output_tap(int stream, listener hear)
    : stream_(stream), hear_(std::move(hear)), before_(fcntl(stream, F_DUPFD_CLOEXEC, 0)) {
    std::array<int, 2> ends{};
    flush_streams();
    if (!before_ || pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "the log can't be read along");
    }
    written_ = file_handle(ends[0]);
    file_handle const input(ends[1]);
    if (dup2(input.get(), stream_) < 0) {
        throw std::system_error(errno, std::generic_category(), "the log can't be read along");
    }
    thread_ = std::thread([this] { run(); });
}

/// With the stream as before, nobody holds the pipe's input, and the thread comes to its end.
output_tap::~output_tap() {
    flush_streams();
    dup2(before_.get(), stream_);
    thread_.join();
}

void output_tap::run() {
    std::array<char, 4096> part{};
    ssize_t got = 0;
    while ((got = read(written_.get(), part.data(), part.size())) > 0 || (got < 0 && errno == EINTR)) {
        take({part.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))});
    }
    if (!begun_.empty() && hear_(begun_)) {
        pass_on(begun_);
    }
}

void output_tap::take(std::string_view text) {
    begun_ += text;
    std::size_t first = 0;
    for (auto end = begun_.find('\n'); end != begun_.npos; end = begun_.find('\n', first)) {
        std::string_view const line(begun_.data() + first, end - first);
        if (hear_(line)) {
            pass_on({begun_.data() + first, end - first + 1});
        }
        first = end + 1;
    }
    begun_.erase(0, first);
    if (begun_.size() > longest_line) {
        if (hear_(begun_)) {
            pass_on(begun_);
        }
        begun_.clear();
    }
}

/// Where nobody reads any more, nothing can be told.
void output_tap::pass_on(std::string_view text) const {
    while (!text.empty()) {
        ssize_t const put = write(before_.get(), text.data(), text.size());
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(put));
    }
}

}  // namespace mediagrabber
