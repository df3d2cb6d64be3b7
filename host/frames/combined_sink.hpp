// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "frames/frame_sink_like.hpp"

namespace mediagrabber {

/// Passes each frame to several sinks in order. A frame counts as saved if all sinks have saved it; if one fails, the
/// others save it nevertheless. The sinks must outlive the object.
class combined_sink final : public frame_sink_like {
public:
    struct named_sink {
        std::string name;
        frame_sink_like* sink = nullptr;
    };

    explicit combined_sink(std::vector<named_sink> sinks) : sinks_(std::move(sinks)) {}

    /// \throws std::runtime_error that names each sink that failed, with its error
    std::size_t write(frame_view const& frame) override;
    bool needs_pixels() const override;

private:
    std::vector<named_sink> const sinks_;
};

}  // namespace mediagrabber
