#include "block_queue.hpp"

#include <algorithm>
#include <utility>

#include "PvBuffer_impl.hpp"

namespace openpv {

/// Room for all buffers that there can be, so that nothing is allocated while grabbing.
block_queue::block_queue() {
    waiting_.reserve(maximum);
    finished_.reserve(maximum);
}

PvResult block_queue::add(PvBuffer::impl& buffer) {
    std::lock_guard const operation(operation_);
    std::unique_lock lock(mutex_);
    if (!buffer.queue.expired()) {
        return {PvResult::Code::INVALID_PARAMETER, "The buffer cannot be queued: it is queued already."};
    }
    if (buffer.memory == nullptr) {
        return {PvResult::Code::INVALID_PARAMETER, "The buffer cannot be queued: no memory is attached to it."};
    }
    if (waiting_.size() + finished_.size() >= maximum) {
        return {PvResult::Code::GENERIC_ERROR, "The buffer cannot be queued: the stream has as many as it can take."};
    }
    buffer.queue = weak_from_this();
    waiting_.push_back(&buffer);
    lock.unlock();
    if (receiver_) {
        receiver_->give(buffer);
    }
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
    { std::lock_guard const lock(mutex_); }  // nobody is between asking for the camera and waiting
    changed_.notify_all();
}

void block_queue::abort() {
    std::lock_guard const operation(operation_);
    if (receiver_) {
        receiver_->take_back();
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
    if (forget_finished(buffer)) {
        return;
    }
    if (receiver_) {
        receiver_->take_back();
    }
    if (!forget_finished(buffer)) {
        std::lock_guard const lock(mutex_);
        std::erase(waiting_, &buffer);
        buffer.queue.reset();
    }
    give_waiting();
}

std::size_t block_queue::count() const {
    std::lock_guard const lock(mutex_);
    return waiting_.size() + finished_.size();
}

void block_queue::set_receiver(std::unique_ptr<block_receiver> receiver) {
    std::lock_guard const operation(operation_);
    if (receiver_) {
        receiver_->take_back();
    }
    receiver_ = std::move(receiver);
    give_waiting();
}

void block_queue::block_finished(PvBuffer::impl& buffer, received_block const& block) {
    {
        std::lock_guard const lock(mutex_);
        auto const place = std::ranges::find(waiting_, &buffer);
        if (place == waiting_.end()) {
            return;
        }
        waiting_.erase(place);
        buffer.finish(block);
        finished_.push_back(&buffer);
    }
    changed_.notify_one();
}

/// \return whether the buffer was a finished one
bool block_queue::forget_finished(PvBuffer::impl const& buffer) {
    std::lock_guard const lock(mutex_);
    auto const place = std::ranges::find(finished_, &buffer);
    if (place == finished_.end()) {
        return false;
    }
    (*place)->queue.reset();
    finished_.erase(place);
    return true;
}

/// Hands every waiting buffer to a receiver that has none, and starts it. Called with `operation_` held.
void block_queue::give_waiting() {
    if (!receiver_) {
        return;
    }
    std::unique_lock lock(mutex_);
    auto const waiting = waiting_;
    lock.unlock();
    for (PvBuffer::impl* const buffer : waiting) {
        receiver_->give(*buffer);
    }
    receiver_->start();
}

}  // namespace openpv
