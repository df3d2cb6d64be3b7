#include "host_log.hpp"

#include <spdlog/async.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/systemd_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <memory>

#include "service/journal.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t most_waiting = 1024;

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
    auto const logger = std::make_shared<spdlog::async_logger>("mediagrabber", log_sink(), spdlog::thread_pool(),
                                                               spdlog::async_overflow_policy::overrun_oldest);
    if (!goes_to_journal(STDERR_FILENO)) {
        logger->set_pattern(isatty(STDERR_FILENO) != 0 ? "\r\033[Kmediagrabber: %l: %v" : "mediagrabber: %l: %v");
    }
    spdlog::set_default_logger(logger);
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
