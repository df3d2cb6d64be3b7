#pragma once

#include <vector>

#include "recording/frame_writer_like.hpp"
#include "recording/growing_file.hpp"

namespace mediagrabber {

/// `frames.raw`: frame behind frame, each as it was in memory, without gaps between its lines. Where a frame begins is
/// said by its place.
class raw_file final : public frame_writer_like {
public:
    /// \param directory  descriptor; has to stay open \throws std::system_error
    explicit raw_file(int directory) : file_(directory, file_name) {}

    written_frame write(frame_view const& frame) override;
    void take_back() override { file_.cut(before_last_); }

    static constexpr char file_name[] = "frames.raw";

private:
    growing_file file_;
    std::uint64_t before_last_ = 0;
    std::vector<std::byte> room_;  ///< for a frame with gaps
};

}  // namespace mediagrabber
