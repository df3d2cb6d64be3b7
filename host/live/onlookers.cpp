#include "live/onlookers.hpp"

#include <unistd.h>

#include <utility>

#include "host_log.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t frames_remembered = 65'536;  ///< 5 minutes at 200 frames/s
constexpr std::size_t lines_remembered = 500;

log_memory::level severity_of(char letter) {
    switch (letter) {
        case 'E':
        case 'C':
            return log_memory::level::error;
        case 'W':
            return log_memory::level::warning;
        case 'D':
        case 'T':
            return log_memory::level::debug;
        default:
            return log_memory::level::info;
    }
}

/// What comes on standard error beside mediagrabber's own messages are warnings of libraries.
bool is_own_message(std::string_view line) {
    return line.find("mediagrabber: ") != line.npos;
}

}  // namespace

onlookers::onlookers(configuration const& chosen)
    : chosen_(chosen),
      any_(chosen.web_address.has_value() || chosen.ring_socket.has_value() || chosen.mqtt_broker.has_value()),
      history_(any_ ? frames_remembered : 1),
      log_(lines_remembered),
      ring_(chosen.ring_socket ? std::make_unique<ring_publisher>(*chosen.ring_socket) : nullptr),
      messenger_(chosen.mqtt_broker ? std::make_unique<messenger>(chosen) : nullptr),
      web_(chosen.web_address ? std::make_unique<web_server>(chosen) : nullptr) {}

onlookers::~onlookers() {
    close();
}

std::vector<frame_watcher_like*> onlookers::watchers() {
    if (!any_) {
        return {};
    }
    std::vector<frame_watcher_like*> all{&history_, &metrics_};
    if (ring_ != nullptr) {
        all.push_back(ring_.get());
    }
    if (messenger_ != nullptr) {
        all.push_back(messenger_.get());
    }
    if (web_ != nullptr) {
        all.push_back(&web_->watcher());
    }
    return all;
}

std::size_t onlookers::frames_kept() const {
    return web_ ? web_->watcher().frames_kept() : 0;
}

void onlookers::listen(std::function<wanted_output()> const& wanted) {
    if (!any_) {
        return;
    }
    hear_log([this](char letter, std::string_view text) { log_.add(severity_of(letter), text); });
    error_output_ = std::make_unique<output_tap>(STDERR_FILENO, [this](std::string_view line) {
        if (!is_own_message(line)) {
            log_.add(log_memory::level::warning, line);
        }
        return true;
    });
    plugin_output_ = std::make_unique<output_tap>(STDOUT_FILENO, [this, wanted](std::string_view line) {
        auto const heard = read_plugin_line(line);
        log_.add(heard.severity, heard.text);
        auto const shown = wanted();
        return shown.any && static_cast<std::uint32_t>(heard.severity) <= shown.level;
    });
}

void onlookers::open(recording_access access) {
    access_ = std::move(access);
    if (access_.period_us != nullptr) {
        metrics_.measure_against(*access_.period_us);
    }
    if (messenger_ != nullptr) {
        messenger_->begin(access_.status);
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

void onlookers::close() {
    if (web_ != nullptr) {
        web_->close();
    }
    hear_log(nullptr);
    plugin_output_.reset();
    error_output_.reset();
}

void onlookers::finish() {
    if (messenger_ != nullptr) {
        messenger_->finish();
    }
}

void onlookers::complete(recording_status& status) const {
    status.newest = history_.newest();
    status.said = log_.count();
    status.camera = log_.camera();
    if (ring_ != nullptr) {
        status.ring_readers = ring_->readers();
        status.ring_overtaken = ring_->overtaken();
    }
    if (messenger_ != nullptr) {
        status.broker = messenger_->status();
    }
}

}  // namespace mediagrabber
