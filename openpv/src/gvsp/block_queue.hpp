// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The buffers of a stream between `QueueBuffer` and `RetrieveBuffer`.

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

#include "gvsp/block_receiver.hpp"

namespace openpv {

/// Holds a stream's buffers: first waiting for a block, in queue order, then finished and waiting to be retrieved.
///
/// Use one queue per stream. It owns the current receiver, and outlives receivers: each `StreamEnable` and each
/// reconnection installs a new one, and buffers that wait move to it. Buffers are borrowed; a buffer that is destroyed
/// while queued must be withdrawn first (`PvBuffer` does so in its destructor). Must be owned by a `shared_ptr`.
///
/// All operations may be called from any thread. `operation_` serialises the operations on the receiver and is locked
/// before `mutex_`, which guards the lists. The receiver's thread takes only `mutex_`, so that `stop` can wait for that
/// thread with `operation_` locked.
class block_queue final : public std::enable_shared_from_this<block_queue>, private block_sink {
public:
    /// Buffers in all states. 512 frames of 1 MB take more than four seconds on Gigabit Ethernet.
    static constexpr std::size_t max_buffers = 512;

    block_queue();  ///< allocates for `max_buffers`: queueing and retrieving do not allocate
    block_queue(block_queue const&) = delete;
    block_queue& operator=(block_queue const&) = delete;

    /// Queues a buffer behind the others.
    /// \return INVALID_PARAMETER if the buffer is queued already or has no memory, GENERIC_ERROR if the queue is full
    PvResult add(PvBuffer::impl& buffer);

    /// Waits for a finished buffer and removes it from the queue.
    ///
    /// \param buffer receives the oldest finished buffer; unchanged unless the result is OK
    /// \param operation receives the result of its block
    /// \param timeout without a value, waits until a buffer is finished or the camera is lost
    /// \param camera_alive returns false if no more blocks can arrive. Called with the queue's lock held, so it must
    ///     not call the queue
    /// \return TIMEOUT, or NOT_CONNECTED if the camera is lost and no finished buffer is left
    PvResult retrieve(PvBuffer*& buffer, PvResult& operation, std::optional<std::chrono::milliseconds> timeout,
                      std::function<bool()> const& camera_alive);
    void wake();  ///< makes waiting `retrieve` calls check `camera_alive` again

    void abort();                           ///< finishes every waiting buffer as ABORTED
    void withdraw(PvBuffer::impl& buffer);  ///< removes a buffer in any state
    std::size_t count() const;              ///< buffers waiting or finished

    /// Replaces the receiver; the old one is stopped and destroyed. Waiting buffers move to the new one, which is
    /// started. With null, buffers wait until there is a receiver.
    void set_receiver(std::unique_ptr<block_receiver> receiver);
    block_sink& sink() { return *this; }  ///< for the receiver

private:
    void block_finished(PvBuffer::impl& buffer, received_block const& block) override;
    PvResult reserve(PvBuffer::impl& buffer);
    bool remove_finished(PvBuffer::impl const& buffer);
    void start_receiver();

    std::mutex operation_;  ///< serialises operations on the receiver; locked before `mutex_`
    std::unique_ptr<block_receiver> receiver_;

    std::mutex mutable mutex_;  ///< guards the lists below and each buffer's `queue`
    std::condition_variable changed_;
    std::vector<PvBuffer::impl*> waiting_;
    std::vector<PvBuffer::impl*> finished_;
};

}  // namespace openpv
