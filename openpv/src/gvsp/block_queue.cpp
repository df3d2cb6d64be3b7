// SPDX-License-Identifier: MIT
#include "gvsp/block_queue.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "gvsp/PvBuffer_impl.hpp"

namespace openpv {

block_queue::block_queue() {
    waiting_.reserve(max_buffers);
    finished_.reserve(max_buffers);
}

PvResult block_queue::add(PvBuffer::impl& buffer) {
    std::lock_guard const operation(operation_);
    PvResult const reserved = reserve(buffer);
    if (reserved.IsOK() && receiver_) {
        receiver_->add_buffer(buffer);
    }
    return reserved;
}

/// Adds a buffer to the waiting ones, without the receiver.
PvResult block_queue::reserve(PvBuffer::impl& buffer) {
    std::lock_guard const lock(mutex_);
    if (!buffer.queue.expired()) {
        return {PvResult::Code::INVALID_PARAMETER,
                "The buffer cannot be queued: it is queued already. Retrieve it first."};
    }
    if (buffer.memory == nullptr) {
        return {PvResult::Code::INVALID_PARAMETER, "The buffer cannot be queued: it has no memory. Attach some first."};
    }
    if (waiting_.size() + finished_.size() >= max_buffers) {
        return {PvResult::Code::GENERIC_ERROR, ("The buffer cannot be queued: the stream already holds " +
                                                std::to_string(max_buffers) + " buffers. Retrieve one first.")
                                                   .c_str()};
    }
    buffer.queue = weak_from_this();
    waiting_.push_back(&buffer);
    return {};
}

PvResult block_queue::retrieve(PvBuffer*& buffer, PvResult& operation, std::optional<std::chrono::milliseconds> timeout,
                               std::function<bool()> const& camera_alive) {
    std::unique_lock lock(mutex_);
    auto const done = [&] { return !finished_.empty() || !camera_alive(); };
    if (timeout) {
        changed_.wait_for(lock, *timeout, done);
    } else {
        changed_.wait(lock, done);
    }
    if (finished_.empty()) {
        return camera_alive() ? PvResult::Code::TIMEOUT : PvResult::Code::NOT_CONNECTED;
    }
    PvBuffer::impl& oldest = *finished_.front();
    finished_.erase(finished_.begin());
    oldest.queue.reset();
    buffer = oldest.owner;
    operation = oldest.result;
    return {};
}

void block_queue::wake() {
    // With the lock, no caller is between its check of `camera_alive` and its wait.
    { std::lock_guard const lock(mutex_); }
    changed_.notify_all();
}

void block_queue::abort() {
    std::lock_guard const operation(operation_);
    if (receiver_) {
        receiver_->stop();
    }
    {
        std::lock_guard const lock(mutex_);
        for (PvBuffer::impl* const buffer : waiting_) {
            received_block aborted;
            aborted.result = PvResult::Code::ABORTED;
            buffer->finish(aborted);
            finished_.push_back(buffer);
        }
        waiting_.clear();
    }
    changed_.notify_all();
    if (receiver_) {
        receiver_->start();
    }
}

void block_queue::withdraw(PvBuffer::impl& buffer) {
    std::lock_guard const operation(operation_);
    if (remove_finished(buffer)) {
        return;
    }
    if (receiver_) {
        receiver_->stop();
    }
    if (!remove_finished(buffer)) {
        std::lock_guard const lock(mutex_);
        std::erase(waiting_, &buffer);
        buffer.queue.reset();
    }
    start_receiver();
}

std::size_t block_queue::count() const {
    std::lock_guard const lock(mutex_);
    return waiting_.size() + finished_.size();
}

void block_queue::set_receiver(std::unique_ptr<block_receiver> receiver) {
    std::lock_guard const operation(operation_);
    if (receiver_) {
        receiver_->stop();
    }
    receiver_ = std::move(receiver);
    start_receiver();
}

void block_queue::block_finished(PvBuffer::impl& buffer, received_block const& block) {
    {
        std::lock_guard const lock(mutex_);
        auto const found = std::ranges::find(waiting_, &buffer);
        if (found == waiting_.end()) {
            return;
        }
        waiting_.erase(found);
        buffer.finish(block);
        finished_.push_back(&buffer);
    }
    changed_.notify_one();
}

/// \return whether the buffer was finished
bool block_queue::remove_finished(PvBuffer::impl const& buffer) {
    std::lock_guard const lock(mutex_);
    auto const found = std::ranges::find(finished_, &buffer);
    if (found == finished_.end()) {
        return false;
    }
    (*found)->queue.reset();
    finished_.erase(found);
    return true;
}

/// Adds every waiting buffer to a stopped receiver and starts it. `operation_` must be locked.
void block_queue::start_receiver() {
    if (!receiver_) {
        return;
    }
    std::vector<PvBuffer::impl*> waiting;
    {
        std::lock_guard const lock(mutex_);
        waiting = waiting_;
    }
    for (PvBuffer::impl* const buffer : waiting) {
        receiver_->add_buffer(*buffer);
    }
    receiver_->start();
}

}  // namespace openpv
