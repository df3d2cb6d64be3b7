// SPDX-License-Identifier: MIT
#include "base/host_log.hpp"

#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/systemd_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <memory>
#include <mutex>
#include <utility>

#include "base/journald_sink.hpp"
#include "base/patient_writer.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_queued_messages = 1024;

/// Passes messages to a function.
class forwarding_sink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    void set(std::function<void(char, std::string_view)> forward) {
        std::lock_guard const lock(mutex_);
        forward_ = std::move(forward);
    }

private:
    void sink_it_(spdlog::details::log_msg const& message) override {
        if (forward_) {
            std::string_view const name(spdlog::level::to_short_c_str(message.level));
            forward_(name.front(), {message.payload.data(), message.payload.size()});
        }
    }
    void flush_() override {}

    std::function<void(char, std::string_view)> forward_;
};

/// Writes to standard error. A terminal or program that does not read it must not keep the process from ending.
class stderr_sink final : public spdlog::sinks::base_sink<std::mutex> {
private:
    void sink_it_(spdlog::details::log_msg const& message) override {
        spdlog::memory_buf_t text;
        formatter_->format(message, text);
        writer_.write_line({text.data(), text.size()});
    }
    void flush_() override {}

    patient_writer writer_{STDERR_FILENO};
};

std::shared_ptr<forwarding_sink> const& forwarding() {
    static auto const sink = std::make_shared<forwarding_sink>();
    return sink;
}

/// In the journal, each message has its level as a field.
spdlog::sink_ptr log_sink() {
    if (goes_to_journal(STDERR_FILENO)) {
        return std::make_shared<spdlog::sinks::systemd_sink_mt>("mediagrabber");
    }
    return std::make_shared<stderr_sink>();
}

/// A text in a pattern of spdlog.
std::string escaped(std::string const& text) {
    std::string pattern;
    for (char const c : text) {
        pattern += c == '%' ? std::string("%%") : std::string(1, c);
    }
    return pattern;
}

}  // namespace

/// On a terminal, a message first erases the progress line, which is printed again below it.
void open_log(std::string const& name) {
    spdlog::init_thread_pool(max_queued_messages, 1);
    spdlog::sinks_init_list const sinks{log_sink(), forwarding()};
    auto const logger = std::make_shared<spdlog::async_logger>("mediagrabber", sinks, spdlog::thread_pool(),
                                                               spdlog::async_overflow_policy::overrun_oldest);
    if (!goes_to_journal(STDERR_FILENO)) {
        std::string const sender = name.empty() ? "mediagrabber" : "mediagrabber[" + escaped(name) + "]";
        logger->set_pattern((isatty(STDERR_FILENO) != 0 ? "\r\033[K" : "") + sender + ": %l: %v");
    }
    spdlog::set_default_logger(logger);
}

void forward_log(std::function<void(char level, std::string_view text)> forward) {
    forwarding()->set(std::move(forward));
}

void close_log() {
    spdlog::shutdown();
}

void log_info(std::string const& text) {
    if (auto* const logger = spdlog::default_logger_raw()) {
        logger->info("{}", text);
    }
}

void log_warning(std::string const& text) {
    if (auto* const logger = spdlog::default_logger_raw()) {
        logger->warn("{}", text);
    }
}

void log_error(std::string const& text) {
    if (auto* const logger = spdlog::default_logger_raw()) {
        logger->error("{}", text);
    }
}

}  // namespace mediagrabber
