#pragma once

#include <string>
#include <vector>

#include "frame_sink_like.hpp"

namespace mediagrabber {

/// Several sinks, each of which gets every frame, in their order. A frame is kept when all of them have kept it; what
/// one of them could not keep, the others have nevertheless.
class combined_sink final : public frame_sink_like {
public:
    struct named_sink {
        std::string name;
        frame_sink_like* sink = nullptr;
    };

    explicit combined_sink(std::vector<named_sink> sinks) : sinks_(std::move(sinks)) {}

    /// \throws std::runtime_error that names each sink that could not keep the frame, and why
    std::size_t keep(frame_view const& frame) override;
    bool needs_pixels() const override;

private:
    std::vector<named_sink> const sinks_;
};

}  // namespace mediagrabber
