#pragma once

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "configuration.hpp"
#include "frame_watcher_like.hpp"
#include "live/recording_status.hpp"
#include "telemetry/broker_conversation.hpp"

namespace mediagrabber {

/// Tells a broker of frames and of how the recording goes, on a thread of its own. Nobody waits for the broker.
class messenger final : public frame_watcher_like {
public:
    /// With mqtt.broker configured. \throws std::runtime_error with a message for the operator
    explicit messenger(configuration const& chosen);
    ~messenger() override;
    messenger(messenger const&) = delete;
    messenger& operator=(messenger const&) = delete;

    /// \param status  of the recording; called until finish()
    void begin(std::function<recording_status()> status);
    void see(frame_lease const& frame) noexcept override;
    /// Sends what waits and a farewell, within a bounded time: a broker, or a name system, that does not answer by then
    /// is left alone.
    void finish();

    broker_status status() const { return conversation_->status(); }

private:
    bool const tells_frames_;
    std::shared_ptr<broker_conversation> const conversation_;  ///< shared with its thread, which may outlive this
    std::future<void> ended_;
    std::thread thread_;
};

}  // namespace mediagrabber
