#pragma once
/// \file
/// The buffers of a stream, on their way from being queued to being retrieved.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <PvBuffer.h>
#include <PvResult.h>

#include "block_receiver.hpp"

namespace openpv {

/// Buffers wait, in order, for a block; then, finished, for being retrieved. The queue stays when the receiver is
/// replaced. Operations may be called from any thread.
class block_queue final : public std::enable_shared_from_this<block_queue>, private block_sink {
public:
    static constexpr std::size_t maximum = 512;

    block_queue();
    block_queue(block_queue const&) = delete;
    block_queue& operator=(block_queue const&) = delete;

    PvResult add(PvBuffer::impl& buffer);

    /// Waits for a finished buffer; without a time-out, for ever.
    ///
    /// \param operation receives how the block ended
    /// \param camera_alive says whether more can come; when not, and none is left, the result is NOT_CONNECTED
    PvResult retrieve(PvBuffer*& buffer, PvResult& operation, std::optional<std::chrono::milliseconds> timeout,
                      std::function<bool()> const& camera_alive);
    void wake();  ///< has `retrieve` ask for the camera again

    void abort();                           ///< every waiting buffer is finished as ABORTED
    void withdraw(PvBuffer::impl& buffer);  ///< takes a buffer out that is about to be destroyed
    std::size_t count() const;

    /// Waiting buffers go from the old receiver to the new one. With null they wait until there is one.
    void set_receiver(std::unique_ptr<block_receiver> receiver);
    block_sink& sink() { return *this; }

private:
    void block_finished(PvBuffer::impl& buffer, received_block const& block) override;
    bool forget_finished(PvBuffer::impl const& buffer);
    void give_waiting();

    std::mutex operation_;  ///< one operation on the receiver at a time; taken before `mutex_`
    std::unique_ptr<block_receiver> receiver_;

    std::mutex mutable mutex_;  ///< guards what follows, and each buffer's `queue`; the receiver's thread takes it too
    std::condition_variable changed_;
    std::vector<PvBuffer::impl*> waiting_;
    std::vector<PvBuffer::impl*> finished_;
};

}  // namespace openpv
