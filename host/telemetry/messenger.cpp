#include "telemetry/messenger.hpp"

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <utility>

#include "host_log.hpp"
#include "telemetry/topic.hpp"

namespace mediagrabber {

namespace {

using clock = broker_conversation::clock;

constexpr std::chrono::seconds longest_farewell{2};
constexpr std::chrono::milliseconds longest_wait{2500};  ///< for the thread, at the end

broker_conversation::plan plan_of(configuration const& chosen) {
    std::chrono::duration<double> const interval(chosen.mqtt_health_interval_s);
    return {.login = login_of(chosen),
            .topic = topic_of(chosen),
            .queue = chosen.mqtt_queue,
            .health_interval = std::chrono::duration_cast<clock::duration>(interval),
            .longest_farewell = longest_farewell};
}

/// A broker that hangs up while it is written to is no reason to end.
void block_broken_pipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace

messenger::messenger(configuration const& chosen)
    : tells_frames_(chosen.mqtt_frames), conversation_(std::make_shared<broker_conversation>(plan_of(chosen))) {}

messenger::~messenger() {
    finish();
}

void messenger::begin(std::function<recording_status()> status) {
    conversation_->begin(std::move(status));
    std::promise<void> ended;
    ended_ = ended.get_future();
    thread_ = std::thread([conversation = conversation_, ended = std::move(ended)]() mutable {
        block_broken_pipe();
        conversation->run();
        ended.set_value();
    });
}

void messenger::see(frame_lease const& frame) noexcept {
    if (tells_frames_) {
        conversation_->tell(frame.record());
    }
}

void messenger::finish() {
    if (!thread_.joinable()) {
        return;
    }
    conversation_->end();
    if (ended_.wait_for(longest_wait) == std::future_status::ready) {
        thread_.join();
    } else {
        conversation_->forget();
        thread_.detach();
    }
    auto const status = conversation_->status();
    if (status.dropped != 0) {
        log_warning(std::to_string(status.dropped) + " messages were given up, " + std::to_string(status.sent) +
                    " were sent");
    }
}

}  // namespace mediagrabber
