// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "clock/frame_clock.hpp"
#include "frames/buffer_pool.hpp"
#include "frames/frame_exporter.hpp"
#include "frames/frame_record.hpp"
#include "frames/grab_progress.hpp"

namespace mediagrabber {

/// Receives frames from the plug-in: allocates the buffer pool, collects the values that the plug-in publishes about a
/// frame, and exports the frame. Called by the plug-in's thread only, in the order of the host functions: memory, then
/// for each frame its values, trigger() and export_triggered().
///
/// A frame that does not match what was published about it is refused, counted in grab_progress::unusable, and logged
/// once per run. The exporter and the progress must outlive the receiver.
class frame_receiver {
public:
    /// \param exporter     null: every frame is refused
    /// \param spare_count  frames that may be held outside of the slots
    /// \param frame_limit  frames to record; 0: no limit
    frame_receiver(frame_exporter* exporter, std::size_t spare_count, std::uint64_t frame_limit,
                   grab_progress& progress);

    // ---- Memory
    void set_buffer_count(std::uint32_t count);
    void set_up_memory(std::uint32_t frame_bytes) { sizes_[common] = frame_bytes; }
    void set_up_instance(std::uint32_t instance, std::uint32_t frame_bytes);
    void set_frame_size(std::uint32_t bytes) { sizes_[actual] = bytes; }
    /// \return the buffer; null if the index is not valid or the memory cannot be allocated
    void* buffer(std::uint32_t index);

    // ---- Values
    void set_width(std::uint32_t pixels) { record_.width = pixels; }
    void set_height(std::uint32_t pixels) { record_.height = pixels; }
    void set_stride(std::uint32_t bytes) { record_.stride = bytes; }
    void publish_format(std::string_view codec);
    void publish_codec(std::uint32_t instance, std::string_view codec);
    frame_record& next_frame() { return record_; }
    frame_format const* camera_format() const { return camera_format_; }
    struct size {
        std::uint32_t width = 0;   ///< pixels
        std::uint32_t height = 0;  ///< pixels
    };
    /// \return the size of the current frame itself, or what was published if the frame's is unknown
    size image_size() const {
        return {.width = image_width_ == 0 ? record_.width : image_width_,
                .height = image_height_ == 0 ? record_.height : image_height_};
    }
    frame_clock& clock() { return clock_; }
    void announce(std::uint64_t timestamp_us) { announced_us_ = timestamp_us; }

    // ---- Frames
    /// A good frame has arrived; the values that are published next belong to it.
    /// \param width, height  pixels; 0: unknown
    /// \param temperature_c  of the camera, degrees Celsius; below absolute zero: unknown
    void begin_frame(std::uint32_t width, std::uint32_t height, float temperature_c);
    /// Selects a frame for export. \return whether it can be exported
    bool trigger(std::uint32_t instance, std::uint64_t timestamp_us, void const* frame);
    /// Exports the selected frame. If there is one per instance, the converted one.
    void export_triggered();

    bool limited() const { return frame_limit_ != 0; }
    bool complete() const;
    std::uint64_t remaining() const;

    /// The plug-in's run has ended: releases pools that have become too small.
    void end_run();

private:
    /// The requested sizes, by host function.
    enum size_index : std::size_t { common, instance_0, instance_1, actual, size_count };
    struct triggered_frame {
        void const* pixels = nullptr;
        std::uint64_t timestamp_us = 0;
        frame_record record;  ///< geometry and format
    };

    bool ensure_memory();
    std::optional<frame_record> describe(std::uint32_t instance, void const* frame) const;
    void report_mismatch(std::uint32_t instance);
    void export_frame(triggered_frame const& frame);

    frame_exporter* const exporter_;
    std::size_t const spare_count_;
    std::uint64_t const frame_limit_;
    grab_progress& progress_;

    std::uint32_t buffer_count_ = 2;
    std::array<std::size_t, size_count> sizes_{};
    std::shared_ptr<buffer_pool> memory_;
    std::vector<std::shared_ptr<buffer_pool>> outgrown_;  ///< the plug-in may use them until its run ends

    frame_clock clock_;
    double arrived_us_ = 0.0;  ///< of the current frame, on the monotonic clock
    frame_record record_;      ///< published values of the next frame
    std::optional<std::uint64_t> announced_us_;
    std::uint32_t image_width_ = 0;  ///< of the current frame; 0: unknown
    std::uint32_t image_height_ = 0;
    frame_format const* camera_format_ = nullptr;
    std::array<frame_format const*, 2> codecs_{};  ///< announced for the instances
    std::array<std::optional<triggered_frame>, 2> triggered_;
    bool mismatch_reported_ = false;  ///< in this run
};

}  // namespace mediagrabber
