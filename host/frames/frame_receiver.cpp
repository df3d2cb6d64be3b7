// SPDX-License-Identifier: MIT
#include "frames/frame_receiver.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "base/host_log.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint32_t min_buffers = 2;  ///< one to fill and one to export
constexpr float absolute_zero_c = -273.15F;

}  // namespace

frame_receiver::frame_receiver(frame_exporter* exporter, std::size_t spare_count, std::uint64_t frame_limit,
                               grab_progress& progress)
    : exporter_(exporter), spare_count_(spare_count), frame_limit_(frame_limit), progress_(progress) {}

void frame_receiver::set_buffer_count(std::uint32_t count) {
    buffer_count_ = std::max(count, min_buffers);
    progress_.buffers_in_use = buffer_count_;
}

void frame_receiver::set_up_instance(std::uint32_t instance, std::uint32_t frame_bytes) {
    if (instance < codecs_.size()) {
        sizes_[instance_0 + instance] = frame_bytes;
    }
}

void* frame_receiver::buffer(std::uint32_t index) {
    return index < buffer_count_ && ensure_memory() ? memory_->slot(index) : nullptr;
}

/// Allocates the pool when it is first needed, because several host functions contribute to its size. A pool that has
/// become too small stays until the run ends: the plug-in may still use its buffers.
bool frame_receiver::ensure_memory() {
    std::size_t const needed = *std::max_element(sizes_.begin(), sizes_.end());
    if (memory_ != nullptr && memory_->frame_bytes() >= needed && memory_->slot_count() == buffer_count_) {
        return true;
    }
    if (needed == 0) {
        return false;
    }
    try {
        auto memory = std::make_shared<buffer_pool>(needed, buffer_count_, spare_count_);
        if (memory_ != nullptr) {
            outgrown_.push_back(std::move(memory_));
        }
        memory_ = std::move(memory);
        return true;
    } catch (std::exception const& error) {
        log_error(fmt::format("frame memory for {} + {} frames of {} bytes: {}", buffer_count_, spare_count_, needed,
                              error.what()));
        return false;
    }
}

/// Codecs that were announced for the instances belong to the previous camera format.
void frame_receiver::publish_format(std::string_view codec) {
    camera_format_ = frame_format_of_codec(codec);
    codecs_ = {};
    if (camera_format_ == nullptr) {
        log_error(fmt::format("the plug-in published an unknown pixel format: {}", codec));
    }
}

void frame_receiver::publish_codec(std::uint32_t instance, std::string_view codec) {
    if (instance < codecs_.size()) {
        codecs_[instance] = frame_format_of_codec(codec);
    }
}

void frame_receiver::begin_frame(std::uint32_t width, std::uint32_t height, float temperature_c) {
    image_width_ = width;
    image_height_ = height;
    triggered_ = {};
    record_.ticks.reset();
    record_.gain_db.reset();
    record_.exposure_us.reset();
    record_.counter.reset();
    record_.temperature_c.reset();
    if (temperature_c > absolute_zero_c) {
        record_.temperature_c = temperature_c;
        progress_.temperature_c = temperature_c;
    }
    ++progress_.good_frames;
    auto const now = grab_progress::clock::now();
    progress_.last_frame = now;
    arrived_us_ = std::chrono::duration<double, std::micro>(now.time_since_epoch()).count();
}

/// Determines geometry and format of a frame. A frame in a slot is the camera's. Any other frame was converted to the
/// codec that was announced for the instance, and has no padding between its lines.
std::optional<frame_record> frame_receiver::describe(std::uint32_t instance, void const* frame) const {
    frame_record record = record_;
    bool const camera_frame = memory_->slot_around(frame, 1).has_value();
    record.format = camera_frame ? camera_format_ : codecs_[instance];
    if (record.format == nullptr || record.width == 0 || record.height == 0) {
        return std::nullopt;
    }
    if (!camera_frame) {
        record.stride = static_cast<std::uint32_t>(record.format->line_bytes(record.width));
    }
    bool const as_announced = image_width_ == 0 || (image_width_ == record.width && image_height_ == record.height);
    bool const in_lines = record.stride >= record.format->line_bytes(record.width);
    bool const fits = camera_frame ? memory_->slot_around(frame, record.bytes()).has_value()
                                   : record.bytes() <= memory_->frame_bytes();
    return as_announced && in_lines && fits ? std::optional(record) : std::nullopt;
}

bool frame_receiver::trigger(std::uint32_t instance, std::uint64_t timestamp_us, void const* frame) {
    if (instance >= triggered_.size() || frame == nullptr || exporter_ == nullptr || !ensure_memory()) {
        ++progress_.unusable;
        return false;
    }
    auto const record = describe(instance, frame);
    if (!record) {
        report_mismatch(instance);
        ++progress_.unusable;
        return false;
    }
    triggered_[instance] = triggered_frame{.pixels = frame, .timestamp_us = timestamp_us, .record = *record};
    return true;
}

/// Logs once per run: all further frames have the same error.
void frame_receiver::report_mismatch(std::uint32_t instance) {
    if (mismatch_reported_) {
        return;
    }
    mismatch_reported_ = true;
    auto const name = [](frame_format const* format) { return format == nullptr ? "none" : format->name; };
    log_error(
        fmt::format("frames cannot be recorded, they do not match the published values: {} x {} pixels, {} bytes per"
                    " line, format {}, converted to {}; the frame has {} x {}",
                    record_.width, record_.height, record_.stride, name(camera_format_), name(codecs_[instance]),
                    image_width_, image_height_));
}

/// If a frame was triggered raw and converted, the converted one is exported: the user has configured it.
void frame_receiver::export_triggered() {
    auto const& chosen = triggered_[1] ? triggered_[1] : triggered_[0];
    if (chosen && !complete()) {
        export_frame(*chosen);
    }
    triggered_ = {};
}

void frame_receiver::export_frame(triggered_frame const& frame) {
    frame_record record = frame.record;
    record.number = ++progress_.handed_over;
    record.timestamp_us = frame.timestamp_us;
    record.announced_us = announced_us_;
    auto const host_now = frame_clock::now();
    record.handed_over_us = static_cast<std::uint64_t>(host_now.day_us);
    if (record.ticks) {
        record.exposed = clock_.time_of(*record.ticks, arrived_us_, record.exposure_us.value_or(0.0F), host_now);
    }
    auto const now = grab_progress::clock::now();
    if (record.number == 1) {
        progress_.first_exported = now;
    }
    progress_.last_exported = now;
    auto const slot = memory_->slot_around(frame.pixels, record.bytes());
    if (!slot) {
        exporter_->export_copy(memory_, frame.pixels, record);
    } else {
        auto const offset = static_cast<std::byte const*>(frame.pixels) - memory_->slot(*slot);
        exporter_->export_slot(memory_, *slot, static_cast<std::size_t>(offset), record);
    }
    if (record.ticks) {  // the frame does not wait for this
        clock_.add(*record.ticks, arrived_us_, record.exposure_us.value_or(0.0F));
    }
}

bool frame_receiver::complete() const {
    return frame_limit_ != 0 && progress_.handed_over >= frame_limit_;
}

std::uint64_t frame_receiver::remaining() const {
    return complete() ? 0 : frame_limit_ - progress_.handed_over;
}

void frame_receiver::end_run() {
    mismatch_reported_ = false;
    outgrown_.clear();
    sizes_ = {};
    triggered_ = {};
    codecs_ = {};
    announced_us_.reset();
}

}  // namespace mediagrabber
