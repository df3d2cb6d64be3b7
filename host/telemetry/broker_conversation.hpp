#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "file_handle.hpp"
#include "live/recording_status.hpp"
#include "telemetry/broker_connection.hpp"
#include "telemetry/broker_login.hpp"
#include "telemetry/record_queue.hpp"
#include "telemetry/sparse_report.hpp"

namespace mediagrabber {

/// What a recording tells a broker, over as many connections as it takes. run() is a thread's work; everything else may
/// be called meanwhile.
class broker_conversation {
public:
    using clock = std::chrono::steady_clock;

    struct plan {
        broker_login login;
        std::string topic;  ///< what all topics begin with
        std::size_t queue = 0;
        clock::duration health_interval{};
        clock::duration longest_farewell{};
    };

    explicit broker_conversation(plan chosen);

    /// Talks until end() is called and all is said, or `longest_farewell` has passed since.
    void run();

    /// \param status  asked for each message about health, on the thread of run()
    void begin(std::function<recording_status()> status);
    /// A frame to tell of; takes microseconds.
    void tell(frame_record const& record) noexcept;
    /// Nothing is told after this but what waits, and the farewell.
    void end();
    /// From now on nobody is asked for a status, and nothing is logged.
    void forget();

    broker_status status() const;

private:
    void talk(broker_connection& connection);
    void greet(broker_connection& connection);
    void tell_waiting(broker_connection& connection);
    void tell_health(broker_connection& connection);
    bool say_farewell(broker_connection& connection);
    void count(broker_connection const& connection);
    void note_loss(std::string const& reason);
    void report();
    void pause(clock::duration time);
    void wake() noexcept;
    void calm() noexcept;
    bool out_of_time() const;
    broker_connection::message presence(char const* text) const;

    plan const plan_;
    std::string const name_;  ///< of this client
    file_handle const wake_;
    record_queue queue_;
    sparse_report report_;

    std::mutex status_mutex_;  ///< held while the status is asked for
    std::function<recording_status()> status_;

    std::atomic<bool> ending_{false};
    std::atomic<clock::time_point> farewell_until_{};
    std::atomic<bool> forgotten_{false};
    std::atomic<bool> connected_{false};
    std::atomic<std::uint64_t> sent_{0};
    std::atomic<std::uint64_t> lost_on_the_way_{0};

    // of one connection
    bool greeted_ = false;
    bool parting_ = false;
    std::uint64_t counted_ = 0;
    clock::time_point next_health_{};
    clock::duration retry_{};
};

}  // namespace mediagrabber
