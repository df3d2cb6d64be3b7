#include "frame_intake.hpp"

#include <algorithm>
#include <chrono>
#include <system_error>

#include "host_log.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint32_t fewest_buffers = 2;
constexpr float coldest_c = -273.15F;  ///< below: the camera's temperature could not be read

std::uint64_t host_time_us() {
    auto const since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count());
}

}  // namespace

frame_intake::frame_intake(frame_exporter* exporter, std::size_t spare_count, std::uint64_t frame_limit,
                           grab_progress& progress)
    : exporter_(exporter), spare_count_(spare_count), frame_limit_(frame_limit), progress_(progress) {}

void frame_intake::set_buffer_count(std::uint32_t count) {
    buffer_count_ = std::max(count, fewest_buffers);
    progress_.buffers_in_use = buffer_count_;
}

void frame_intake::set_up_instance(std::uint32_t instance, std::uint32_t frame_bytes) {
    if (instance < codecs_.size()) {
        sizes_[instance_0 + instance] = frame_bytes;
    }
}

void* frame_intake::buffer(std::uint32_t index) {
    return index < buffer_count_ && ensure_memory() ? memory_->slot(index) : nullptr;
}

/// Memory is made when it is first needed, because its size is asked for piece by piece. Memory that has become too
/// small stays until the run ends: the plug-in's buffers may still lie in it.
bool frame_intake::ensure_memory() {
    std::size_t const needed = *std::max_element(sizes_.begin(), sizes_.end());
    if (memory_ != nullptr && memory_->frame_bytes() >= needed && memory_->slot_count() == buffer_count_) {
        return true;
    }
    if (needed == 0) {
        return false;
    }
    try {
        auto memory = std::make_shared<frame_memory>(needed, buffer_count_, spare_count_);
        if (memory_ != nullptr) {
            outgrown_.push_back(std::move(memory_));
        }
        memory_ = std::move(memory);
        return true;
    } catch (std::exception const& error) {
        log_error("frame memory for " + std::to_string(buffer_count_) + " + " + std::to_string(spare_count_) +
                  " frames of " + std::to_string(needed) + " bytes: " + error.what());
        return false;
    }
}

void frame_intake::publish_geometry(std::uint32_t number, std::uint32_t value) {
    switch (number) {
        case 1:
            record_.width = value;
            break;
        case 2:
            record_.height = value;
            break;
        default:
            record_.stride = value;
            break;
    }
}

/// The format of the camera; what was announced for the memory instances belonged to the format before.
void frame_intake::publish_format(std::string_view codec) {
    camera_format_ = pixel_format_of_codec(codec);
    codecs_ = {};
    if (camera_format_ == nullptr) {
        log_error("the plug-in publishes the unknown pixel format " + std::string(codec));
    }
}

void frame_intake::publish_codec(std::uint32_t instance, std::string_view codec) {
    if (instance < codecs_.size()) {
        codecs_[instance] = pixel_format_of_codec(codec);
    }
}

void frame_intake::begin_frame(std::uint32_t width, std::uint32_t height, float temperature_c) {
    image_width_ = width;
    image_height_ = height;
    triggered_ = {};
    record_.ticks.reset();
    record_.gain_db.reset();
    record_.exposure_us.reset();
    record_.counter.reset();
    record_.temperature_c.reset();
    if (temperature_c > coldest_c) {
        record_.temperature_c = temperature_c;
        progress_.temperature_c = temperature_c;
    }
    ++progress_.good_frames;
    progress_.last_frame = grab_progress::clock::now();
}

/// Geometry and format of a frame: one that lies in a slot is the camera's, one that lies elsewhere was converted to
/// the codec that was announced for the instance, and has no gaps between its lines.
std::optional<frame_record> frame_intake::describe(std::uint32_t instance, void const* frame) const {
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

bool frame_intake::trigger(std::uint32_t instance, std::uint64_t timestamp_us, void const* frame) {
    if (instance >= triggered_.size() || frame == nullptr || exporter_ == nullptr || !ensure_memory()) {
        ++progress_.unusable;
        return false;
    }
    auto const record = describe(instance, frame);
    if (!record) {
        complain(instance);
        ++progress_.unusable;
        return false;
    }
    triggered_[instance] = triggered_frame{.pixels = frame, .timestamp_us = timestamp_us, .record = *record};
    return true;
}

/// Once a run: what makes one frame unusable makes the next so too.
void frame_intake::complain(std::uint32_t instance) {
    if (complained_) {
        return;
    }
    complained_ = true;
    auto const name = [](pixel_format const* format) {
        return std::string(format == nullptr ? "none" : format->codec);
    };
    log_error(
        "frames can't be recorded, they do not fit what the plug-in tells of them: " + std::to_string(record_.width) +
        " x " + std::to_string(record_.height) + " pixels in lines of " + std::to_string(record_.stride) +
        " bytes, format " + name(camera_format_) + ", converted to " + name(codecs_[instance]) + "; the frame has " +
        std::to_string(image_width_) + " x " + std::to_string(image_height_));
}

/// Where a frame came as it is and converted, the converted one is what the operator asked for.
void frame_intake::export_triggered() {
    auto const& chosen = triggered_[1] ? triggered_[1] : triggered_[0];
    if (chosen && !complete()) {
        hand_over(*chosen);
    }
    triggered_ = {};
}

void frame_intake::hand_over(triggered_frame const& frame) {
    frame_record record = frame.record;
    record.number = ++progress_.handed_over;
    record.timestamp_us = frame.timestamp_us;
    record.announced_us = announced_us_;
    record.handed_over_us = host_time_us();
    auto const now = grab_progress::clock::now();
    if (record.number == 1) {
        progress_.first_exported = now;
    }
    progress_.last_exported = now;
    auto const slot = memory_->slot_around(frame.pixels, record.bytes());
    if (!slot) {
        exporter_->export_copy(memory_, frame.pixels, record);
        return;
    }
    auto const offset = static_cast<std::byte const*>(frame.pixels) - memory_->slot(*slot);
    exporter_->export_slot(memory_, *slot, static_cast<std::size_t>(offset), record);
}

bool frame_intake::complete() const {
    return frame_limit_ != 0 && progress_.handed_over >= frame_limit_;
}

std::uint64_t frame_intake::remaining() const {
    return complete() ? 0 : frame_limit_ - progress_.handed_over;
}

void frame_intake::end_run() {
    complained_ = false;
    outgrown_.clear();
    sizes_ = {};
    triggered_ = {};
    codecs_ = {};
    announced_us_.reset();
}

}  // namespace mediagrabber
