#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "frame_exporter.hpp"
#include "frame_memory.hpp"
#include "frame_record.hpp"
#include "grab_progress.hpp"

namespace mediagrabber {

/// Where frames come in from the plug-in: it sets up the memory that they arrive in, collects what is published about
/// them, and hands them to the exporter. Everything here is called by the plug-in's thread.
class frame_intake {
public:
    /// \param exporter      null where no frames are expected; they are then refused
    /// \param spare_count   frames that may wait for the disk
    /// \param frame_limit   frames to record, 0: no limit
    frame_intake(frame_exporter* exporter, std::size_t spare_count, std::uint64_t frame_limit, grab_progress& progress);

    // ---- Memory
    void set_buffer_count(std::uint32_t count);
    void set_up_memory(std::uint32_t frame_bytes) { sizes_[plain] = frame_bytes; }
    void set_up_instance(std::uint32_t instance, std::uint32_t frame_bytes);
    void set_frame_size(std::uint32_t bytes) { sizes_[actual] = bytes; }
    /// \return the buffer, null when there is none of this index or no memory to be had
    void* buffer(std::uint32_t index);

    // ---- Values
    void publish_geometry(std::uint32_t number, std::uint32_t value);
    void publish_format(std::string_view codec);
    void publish_codec(std::uint32_t instance, std::string_view codec);
    frame_record& coming_frame() { return record_; }
    pixel_format const* camera_format() const { return camera_format_; }
    void announce(std::uint64_t timestamp_us) { announced_us_ = timestamp_us; }

    // ---- Frames
    /// A good frame of this size is here; what is published next is about it.
    void begin_frame(std::uint32_t width, std::uint32_t height, float temperature_c);
    /// \return whether the frame can be exported
    bool trigger(std::uint32_t instance, std::uint64_t timestamp_us, void const* frame);
    void export_triggered();

    bool limited() const { return frame_limit_ != 0; }
    bool complete() const;
    std::uint64_t remaining() const;

    /// The plug-in is done with its memory: what an earlier size needed is released.
    void end_run();

private:
    /// The sizes that were asked for, by whom.
    enum size_index : std::size_t { plain, instance_0, instance_1, actual, size_count };
    struct triggered_frame {
        void const* pixels = nullptr;
        std::uint64_t timestamp_us = 0;
        frame_record record;  ///< geometry and format
    };

    bool ensure_memory();
    std::optional<frame_record> describe(std::uint32_t instance, void const* frame) const;
    void complain(std::uint32_t instance);
    void hand_over(triggered_frame const& frame);

    frame_exporter* const exporter_;
    std::size_t const spare_count_;
    std::uint64_t const frame_limit_;
    grab_progress& progress_;

    std::uint32_t buffer_count_ = 2;
    std::array<std::size_t, size_count> sizes_{};
    std::shared_ptr<frame_memory> memory_;
    std::vector<std::shared_ptr<frame_memory>> outgrown_;  ///< the plug-in may still know them until its run ends

    frame_record record_;  ///< published values of the coming frame
    std::optional<std::uint64_t> announced_us_;
    std::uint32_t image_width_ = 0;  ///< of the frame at hand, 0 when the plug-in did not tell
    std::uint32_t image_height_ = 0;
    pixel_format const* camera_format_ = nullptr;
    std::array<pixel_format const*, 2> codecs_{};  ///< announced for the instances
    std::array<std::optional<triggered_frame>, 2> triggered_;
    bool complained_ = false;  ///< in this run, of a frame that does not fit what was told of it
};

}  // namespace mediagrabber
