#include "host_log.hpp"

#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/systemd_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <memory>
#include <mutex>
#include <utility>

#include "service/journal.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t most_waiting = 1024;

/// Tells somebody in this process.
class hearing_sink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    void tell(std::function<void(char, std::string_view)> hear) {
        std::lock_guard const lock(mutex_);
        hear_ = std::move(hear);
    }

private:
    void sink_it_(spdlog::details::log_msg const& message) override {
        if (hear_) {
            std::string_view const name(spdlog::level::to_short_c_str(message.level));
            hear_(name.front(), {message.payload.data(), message.payload.size()});
        }
    }
    void flush_() override {}

    std::function<void(char, std::string_view)> hear_;
};

std::shared_ptr<hearing_sink> const& hearing() {
    static auto const sink = std::make_shared<hearing_sink>();
    return sink;
}

/// The journal keeps levels of its own.
spdlog::sink_ptr log_sink() {
    if (goes_to_journal(STDERR_FILENO)) {
        return std::make_shared<spdlog::sinks::systemd_sink_mt>("mediagrabber");
    }
    return std::make_shared<spdlog::sinks::stderr_sink_mt>();
}

}  // namespace

/// On a terminal a message first wipes the progress line, which is written anew below it.
void open_log() {
    spdlog::init_thread_pool(most_waiting, 1);
    spdlog::sinks_init_list const sinks{log_sink(), hearing()};
    auto const logger = std::make_shared<spdlog::async_logger>("mediagrabber", sinks, spdlog::thread_pool(),
                                                               spdlog::async_overflow_policy::overrun_oldest);
    if (!goes_to_journal(STDERR_FILENO)) {
        logger->set_pattern(isatty(STDERR_FILENO) != 0 ? "\r\033[Kmediagrabber: %l: %v" : "mediagrabber: %l: %v");
    }
    spdlog::set_default_logger(logger);
}

void hear_log(std::function<void(char level, std::string_view text)> hear) {
    hearing()->tell(std::move(hear));
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
