// SPDX-License-Identifier: MIT
#include "session/monitoring.hpp"

#include <unistd.h>

#include <utility>

#include "base/host_log.hpp"
#include "base/unix_socket.hpp"
#include "config/camera_name.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_history_frames = 65'536;  ///< 5 minutes at 200 frames/s
constexpr std::size_t max_log_lines = 500;

log_buffer::level severity_of(char letter) {
    switch (letter) {
        case 'E':
        case 'C':
            return log_buffer::level::error;
        case 'W':
            return log_buffer::level::warning;
        case 'D':
        case 'T':
            return log_buffer::level::debug;
        default:
            return log_buffer::level::info;
    }
}

/// Other lines on standard error are warnings of libraries.
bool is_own_message(std::string_view line) {
    return line.find("mediagrabber: ") != line.npos || line.find("mediagrabber[") != line.npos;
}

}  // namespace

monitoring::monitoring(configuration const& chosen)
    : chosen_(chosen),
      any_(chosen.web.address.has_value() || chosen.ring.socket.has_value() || chosen.mqtt.broker.has_value()),
      history_(any_ ? max_history_frames : 1),
      log_(max_log_lines),
      ring_(chosen.ring.socket
                ? std::make_unique<ring_publisher>(*chosen.ring.socket,
                                                   chosen.ring.group ? group_number(*chosen.ring.group) : std::nullopt)
                : nullptr),
      mqtt_publisher_(chosen.mqtt.broker ? std::make_unique<mqtt_publisher>(chosen.mqtt, name_of(chosen)) : nullptr),
      web_(chosen.web.address ? std::make_unique<web_server>(chosen.web) : nullptr) {}

monitoring::~monitoring() {
    close();
}

std::vector<frame_observer_like*> monitoring::observers() {
    if (!any_) {
        return {&history_};
    }
    std::vector<frame_observer_like*> all{&history_, &metrics_};
    if (ring_ != nullptr) {
        all.push_back(ring_.get());
    }
    if (mqtt_publisher_ != nullptr) {
        all.push_back(mqtt_publisher_.get());
    }
    if (web_ != nullptr) {
        all.push_back(&web_->observer());
    }
    return all;
}

std::size_t monitoring::max_frames_held() const {
    return web_ ? web_->observer().max_frames_held() : 0;
}

void monitoring::capture(std::function<wanted_output()> const& wanted,
                         std::function<void(std::string_view)> const& read_line) {
    forward_log([this](char letter, std::string_view text) { log_.add(severity_of(letter), text); });
    error_output_ = std::make_unique<stdio_capture>(STDERR_FILENO, [this](std::string_view line) {
        if (!is_own_message(line)) {
            log_.add(log_buffer::level::warning, line);
        }
        return true;
    });
    plugin_output_ = std::make_unique<stdio_capture>(STDOUT_FILENO, [this, wanted, read_line](std::string_view line) {
        read_line(line);
        auto const message = read_plugin_line(line);
        log_.add(message.severity, message.text);
        if (!message.is_message) {
            return true;
        }
        auto const shown = wanted();
        return shown.any && static_cast<std::uint32_t>(message.severity) <= shown.level;
    });
}

void monitoring::open(recording_access access) {
    access_ = std::move(access);
    if (access_.period_us != nullptr) {
        metrics_.measure_against(*access_.period_us);
    }
    if (mqtt_publisher_ != nullptr) {
        mqtt_publisher_->start(access_.status);
    }
    if (web_ != nullptr) {
        web_->open({.status = access_.status,
                    .controls = access_.controls,
                    .tone = access_.tone,
                    .history = &history_,
                    .log = &log_,
                    .metrics = [this] { return metrics_text(); }});
    }
}

void monitoring::close() {
    if (web_ != nullptr) {
        web_->close();
    }
    forward_log(nullptr);
    plugin_output_.reset();
    error_output_.reset();
}

void monitoring::finish() {
    if (mqtt_publisher_ != nullptr) {
        mqtt_publisher_->finish();
    }
}

void monitoring::complete(recording_status& status) const {
    status.newest = history_.newest();
    status.log_counts = log_.count();
    status.camera = log_.camera();
    if (ring_ != nullptr) {
        status.ring_readers = ring_->readers();
        status.ring_overtaken = ring_->overtaken();
    }
    if (auto const* const address = web_ == nullptr ? nullptr : web_->address()) {
        status.page = address->url();
    }
    if (mqtt_publisher_ != nullptr) {
        status.broker = mqtt_publisher_->status();
    }
}

}  // namespace mediagrabber
