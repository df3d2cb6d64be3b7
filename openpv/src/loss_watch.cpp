#include "loss_watch.hpp"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>

#include "gvcp_message.hpp"
#include "loss_verdict.hpp"

namespace openpv {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds period{500};
constexpr milliseconds period_in_doubt{100};
constexpr milliseconds answer_time{500};

/// \return false when asked to stop
bool pause(std::stop_token const& stop, milliseconds time) {
    std::mutex mutex;
    std::condition_variable_any wake;
    // cppcheck-suppress localMutex ; the condition asks for a lock, there is nothing to guard
    std::unique_lock lock(mutex);
    wake.wait_for(lock, stop, time, [] { return false; });
    return !stop.stop_requested();
}

}  // namespace

loss_watch::loss_watch(gvcp_client client, std::function<void()> lost)
    : client_(std::move(client)),
      lost_(std::move(lost)),
      thread_([this](std::stop_token const& stop) { watch(stop); }) {}

void loss_watch::watch(std::stop_token const& stop) {
    loss_verdict verdict(loss_verdict::clock::now());
    uint32_t privilege = 0;
    while (pause(stop, verdict.doubtful() ? period_in_doubt : period)) {
        register_read const answer = client_.read(gvcp::reg::control_channel_privilege, answer_time, privilege);
        verdict.add(answer, privilege, loss_verdict::clock::now());
        if (verdict.lost()) {
            lost_();
            return;
        }
    }
}

}  // namespace openpv
