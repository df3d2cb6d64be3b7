// SPDX-License-Identifier: MIT
#include "pipeline/running_pipeline.hpp"

#include <algorithm>
#include <cstdio>
#include <span>
#include <stdexcept>
#include <utility>

#include "base/failures.hpp"
#include "base/host_log.hpp"
#include "frames/frame_pixels.hpp"
#include "pipeline/element_package.hpp"
#include "pipeline/frame_caps.hpp"
#include "pipeline/thread_handover.hpp"

namespace mediagrabber {

namespace {

constexpr guint64 max_waiting = 4;  ///< frames in the source: enough to keep elements busy, few copies in memory
constexpr std::chrono::milliseconds give_up_interval{50};  ///< between polls of `give_up`
constexpr std::chrono::seconds warning_interval{1};        ///< elements can warn once per buffer
constexpr char source_text[] =
    "appsrc name=source is-live=true format=time do-timestamp=false block=false max-buffers=0 max-bytes=0"
    " min-latency=0 max-latency=1000000000 ! ";  // elements that wait for the clock need a latency, ns

struct error_release {
    void operator()(GError* error) const { g_error_free(error); }
};
using owned_error = std::unique_ptr<GError, error_release>;

struct text_release {
    void operator()(gchar* text) const { g_free(text); }
};
using owned_text = std::unique_ptr<gchar, text_release>;

void print_to_standard_error(gchar const* text) {
    std::fputs(text, stderr);
}

/// Initialises GStreamer once per process. Its prints go to standard error, because standard output carries the
/// plug-in's log; its handler of SIGSEGV is disabled.
void initialise_gstreamer() {
    static bool const done = [] {
        g_set_print_handler(print_to_standard_error);
        gst_segtrap_set_enabled(FALSE);
        GError* error = nullptr;
        if (gst_init_check(nullptr, nullptr, &error) == FALSE) {
            owned_error const error_owner(error);
            throw std::runtime_error(std::string("cannot initialise GStreamer: ") +
                                     (error != nullptr ? error->message : "no reason given"));
        }
        return true;
    }();
    static_cast<void>(done);
}

/// \return for each missing element the Debian package that contains it, as the tail of an error message
std::string packages_of_missing(GstParseContext* context) {
    std::string text;
    gchar** const missing = gst_parse_context_get_missing_elements(context);
    for (gchar** one = missing; one != nullptr && *one != nullptr; ++one) {
        std::string const package = element_package(*one);
        text +=
            std::string("; ") + *one +
            (package.empty() ? " is not in any installed GStreamer package" : " is in the Debian package " + package);
    }
    g_strfreev(missing);
    return text;
}

/// \return the reason, without the source location that GStreamer puts on the line before it
std::string last_line(gchar const* debug) {
    std::string const text = debug == nullptr ? "" : debug;
    auto const end_of_location = text.rfind('\n');
    return end_of_location == std::string::npos ? std::string() : text.substr(end_of_location + 1);
}

/// \return for example "filesink0: Could not write to resource. (system error: No space left on device)"
std::string message_text(GstMessage* message, GError const* error, gchar const* debug) {
    owned_text const name(gst_object_get_name(GST_MESSAGE_SRC(message)));
    std::string const reason = last_line(debug);
    return std::string(name.get()) + ": " + error->message + (reason.empty() ? "" : " (" + reason + ")");
}

struct buffer_release {
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
};
using owned_buffer = std::unique_ptr<GstBuffer, buffer_release>;

owned_buffer copy_of(frame_view const& frame) {
    std::size_t const stride = caps_stride(frame.record);
    std::size_t const line = std::size_t{frame.record.width} * unpacked_bits(*frame.record.format) / 8;
    owned_buffer buffer(gst_buffer_new_allocate(nullptr, stride * frame.record.height, nullptr));
    GstMapInfo map{};
    if (buffer == nullptr || gst_buffer_map(buffer.get(), &map, GST_MAP_WRITE) == FALSE) {
        throw std::runtime_error("no memory for a frame in the pipeline");
    }
    std::span const bytes(reinterpret_cast<std::byte*>(map.data), map.size);
    for (std::uint32_t y = 0; y < frame.record.height; ++y) {
        auto const padded = bytes.subspan(y * stride, stride);
        unpack_line(frame, y, padded.first(line));
        std::ranges::fill(padded.subspan(line), std::byte{0});
    }
    gst_buffer_unmap(buffer.get(), &map);
    return buffer;
}

void add_times(GstBuffer* buffer, running_pipeline::frame_time const& when) {
    GstClockTime const duration = when.duration == 0 ? GST_CLOCK_TIME_NONE : when.duration;
    GST_BUFFER_PTS(buffer) = when.from_start;
    GST_BUFFER_DURATION(buffer) = duration;
    GstCaps* const unix_time = gst_caps_new_empty_simple("timestamp/x-unix");
    gst_buffer_add_reference_timestamp_meta(buffer, unix_time, when.since_1970, duration);
    gst_caps_unref(unix_time);
}

}  // namespace

running_pipeline::running_pipeline(std::string const& text) {
    initialise_gstreamer();
    std::unique_ptr<GstParseContext, void (*)(GstParseContext*)> const context(gst_parse_context_new(),
                                                                               gst_parse_context_free);
    GError* error = nullptr;
    pipeline_.reset(
        gst_parse_launch_full((source_text + text).c_str(), context.get(), GST_PARSE_FLAG_FATAL_ERRORS, &error));
    owned_error const error_owner(error);
    if (pipeline_ == nullptr || error != nullptr) {
        throw usage_error(std::string("cannot construct the pipeline: ") +
                          (error != nullptr ? error->message : "GStreamer gave no reason") +
                          packages_of_missing(context.get()));
    }
    owned<GstElement> source(GST_IS_PIPELINE(pipeline_.get()) ? gst_bin_get_by_name(GST_BIN(pipeline_.get()), "source")
                                                              : nullptr);
    if (source == nullptr || !GST_IS_APP_SRC(source.get())) {
        throw usage_error(
            "cannot construct the pipeline: an element is named \"source\", which is reserved for the frame source");
    }
    source_.reset(GST_APP_SRC(source.release()));
    hand_over(&source_);
    owned<GstBus> const bus(gst_element_get_bus(pipeline_.get()));
    gst_bus_set_sync_handler(bus.get(), on_message, this, nullptr);
    owned<GstPad> const pad(gst_element_get_static_pad(GST_ELEMENT(source_.get()), "src"));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, on_departure, this, nullptr);
}

running_pipeline::~running_pipeline() {
    if (pipeline_ != nullptr) {
        gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
        owned<GstBus> const bus(gst_element_get_bus(pipeline_.get()));
        gst_bus_set_sync_handler(bus.get(), nullptr, nullptr, nullptr);
    }
    take_over(&source_);
}

std::vector<std::filesystem::path> running_pipeline::files() const {
    std::vector<std::filesystem::path> found;
    std::unique_ptr<GstIterator, void (*)(GstIterator*)> const all(
        gst_bin_iterate_all_by_element_factory_name(GST_BIN(pipeline_.get()), "filesink"), gst_iterator_free);
    GValue item = G_VALUE_INIT;
    while (gst_iterator_next(all.get(), &item) == GST_ITERATOR_OK) {
        gchar* location = nullptr;
        g_object_get(g_value_get_object(&item), "location", &location, nullptr);
        owned_text const text_owner(location);
        if (location != nullptr) {
            found.emplace_back(location);
        }
        g_value_reset(&item);
    }
    g_value_unset(&item);
    return found;
}

/// Uses the system clock: a clock provided by an element would disappear with that element.
void running_pipeline::start(std::string const& caps) {
    std::unique_ptr<GstCaps, void (*)(GstCaps*)> const parsed(gst_caps_from_string(caps.c_str()), gst_caps_unref);
    gst_app_src_set_caps(source_.get(), parsed.get());
    owned<GstClock> const clock(gst_system_clock_obtain());
    gst_pipeline_use_clock(GST_PIPELINE(pipeline_.get()), clock.get());
    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        std::lock_guard const lock(mutex_);
        throw_failure();
        throw std::runtime_error("the pipeline does not start; GStreamer gave no reason");
    }
}

void running_pipeline::push(frame_view const& frame, frame_time const& when, std::function<bool()> const& give_up) {
    {
        std::unique_lock lock(mutex_);
        while (failure_.empty() && !ended_ && !has_space()) {
            if (give_up()) {
                throw std::runtime_error("the pipeline accepts no frames");
            }
            changed_.wait_for(lock, give_up_interval);
        }
        throw_failure();
        if (ended_) {
            throw std::runtime_error("the pipeline has ended on its own");
        }
    }
    update_latency();
    auto buffer = copy_of(frame);
    add_times(buffer.get(), when);
    GstFlowReturn const taken = gst_app_src_push_buffer(source_.get(), buffer.release());
    if (taken != GST_FLOW_OK) {
        std::lock_guard const lock(mutex_);
        throw_failure();
        throw std::runtime_error(std::string("the pipeline refuses frames: ") + gst_flow_get_name(taken));
    }
}

bool running_pipeline::finish(std::chrono::duration<double> max_time) {
    update_latency();
    gst_app_src_end_of_stream(source_.get());
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, max_time, [this] { return ended_ || !failure_.empty(); });
    throw_failure();
    return ended_;
}

bool running_pipeline::failed() const {
    std::lock_guard const lock(mutex_);
    return ended_ || !failure_.empty();
}

bool running_pipeline::has_space() const {
    return gst_app_src_get_current_level_buffers(source_.get()) < max_waiting;
}

void running_pipeline::throw_failure() const {
    if (!failure_.empty()) {
        throw std::runtime_error(failure_);
    }
}

/// Elements report a changed latency by a message; the application must then have it recalculated.
void running_pipeline::update_latency() {
    bool changed = false;
    {
        std::lock_guard const lock(mutex_);
        std::swap(changed, latency_changed_);
    }
    if (changed) {
        gst_bin_recalculate_latency(GST_BIN(pipeline_.get()));
    }
}

/// Called on GStreamer's threads. Drops every message, because no main loop reads the bus.
GstBusSyncReply running_pipeline::on_message(GstBus* /*bus*/, GstMessage* message, gpointer self) {
    auto& pipeline = *static_cast<running_pipeline*>(self);
    callback_scope const scope(&pipeline.source_);
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR:
            pipeline.on_error(message);
            break;
        case GST_MESSAGE_WARNING:
            pipeline.on_warning(message);
            break;
        case GST_MESSAGE_EOS: {
            std::lock_guard const lock(pipeline.mutex_);
            pipeline.ended_ = true;
            break;
        }
        case GST_MESSAGE_LATENCY: {
            std::lock_guard const lock(pipeline.mutex_);
            pipeline.latency_changed_ = true;
            break;
        }
        default:
            break;
    }
    pipeline.changed_.notify_all();
    gst_message_unref(message);
    return GST_BUS_DROP;
}

/// Only the first error is stored: those that follow are its consequences.
void running_pipeline::on_error(GstMessage* message) {
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    owned_error const error_owner(error);
    owned_text const owned_debug(debug);
    std::lock_guard const lock(mutex_);
    if (failure_.empty()) {
        failure_ = message_text(message, error, debug);
    }
}

void running_pipeline::on_warning(GstMessage* message) {
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_warning(message, &error, &debug);
    owned_error const error_owner(error);
    owned_text const owned_debug(debug);
    auto const now = std::chrono::steady_clock::now();
    {
        std::lock_guard const lock(mutex_);
        if (now < next_warning_) {
            return;
        }
        next_warning_ = now + warning_interval;
    }
    log_warning("pipeline: " + message_text(message, error, debug));
}

/// A frame has left the source, which now has space for another one.
GstPadProbeReturn running_pipeline::on_departure(GstPad* /*pad*/, GstPadProbeInfo* /*info*/, gpointer self) {
    auto& pipeline = *static_cast<running_pipeline*>(self);
    callback_scope const scope(&pipeline.source_);
    std::lock_guard const lock(pipeline.mutex_);
    pipeline.changed_.notify_all();
    return GST_PAD_PROBE_OK;
}

}  // namespace mediagrabber
