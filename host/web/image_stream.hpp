// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "images/preview.hpp"

namespace mediagrabber {

/// Live images as parts of one multipart response (Motion JPEG), for all readers together.
///
/// A thread of its own, at idle priority, waits for images while there are readers. It keeps the latest part only: a
/// reader that is still busy with an earlier one misses the parts between, and does not delay others. Thread-safe.
class image_stream {
public:
    /// \return the next part; null if there is none yet. Does not wait. \throws what the encoding of the image threw
    using reader = std::function<std::shared_ptr<std::string const>()>;
    static constexpr char content_type[] = "multipart/x-mixed-replace; boundary=frame";

    /// \param images  must outlive the object
    /// \param wake    called for each new part, so that readers call again
    image_stream(preview& images, std::function<void()> wake) : images_(images), wake_(std::move(wake)) {}
    ~image_stream() { stop(); }
    image_stream(image_stream const&) = delete;
    image_stream& operator=(image_stream const&) = delete;

    /// \return a reader, which must not outlive the object
    reader open();
    /// Ends the thread. Call preview::cancel() first. Call open() no more.
    void stop();

private:
    struct seat;
    void run(std::stop_token const& stop);
    std::shared_ptr<std::string const> part_after(std::uint64_t& known);

    preview& images_;
    std::function<void()> const wake_;
    std::mutex mutex_;  ///< guards the members below
    std::condition_variable_any changed_;
    std::size_t readers_ = 0;
    std::uint64_t frame_ = 0;  ///< of the part
    std::shared_ptr<std::string const> part_;
    std::exception_ptr failure_;
    std::jthread thread_;  ///< started with the first reader
};

}  // namespace mediagrabber
