// SPDX-License-Identifier: MIT
/// \file
/// Stream packets to the assembler and the block queue, while the application queues, retrieves and destroys buffers
/// and gives them other memory.
///
/// Input: a byte of setting flags, the packet size, the payload size in units of 8; then steps, each with a length,
/// milliseconds, and that many bytes of a datagram. Lengths from 240 on are actions of the application instead.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include <PvBuffer.h>
#include <PvResult.h>

#include "fuzz_input.hpp"
#include "gvsp/block_queue.hpp"
#include "gvsp/gvsp_assembler.hpp"
#include "gvsp/packet_batch.hpp"
#include "gvsp/PvBuffer_impl.hpp"

namespace {

using namespace openpv;

constexpr uint8_t untouched = 0xA5;
constexpr std::size_t guard_bytes = 16;

// Setting flags.
constexpr uint8_t can_resend_bit = 1;
constexpr uint8_t known_payload_bit = 2;
constexpr uint8_t patterned_bit = 4;  ///< payloads are replaced by a pattern of block and offset
constexpr uint8_t poll_always_bit =
    8;                              ///< runs the assembler's timers after each packet, not only when time has passed
constexpr uint8_t merged_bit = 16;  ///< messages consist of several packets

/// The pattern at an offset of a block.
uint8_t pattern(uint64_t block, std::size_t offset) {
    return static_cast<uint8_t>(block * 31 + offset * 7 + (offset >> 8U));
}

constexpr std::size_t max_buffer_bytes = 0xFF * 8 + 1;
std::vector<uint8_t> const clean_memory(max_buffer_bytes + guard_bytes, untouched);

/// A buffer of the application. Guard bytes follow its memory.
struct guarded_buffer {
    explicit guarded_buffer(uint32_t size) { attach(size); }
    guarded_buffer(guarded_buffer const&) = delete;
    guarded_buffer& operator=(guarded_buffer const&) = delete;
    ~guarded_buffer() {
        if (auto const queue = state.queue.lock()) {
            queue->withdraw(state);
        }
    }

    void attach(uint32_t size) {
        memory.assign(size + guard_bytes, untouched);
        memory.shrink_to_fit();
        state.memory = memory.data();
        state.size = size;
    }
    void check_guard() const { require(is_untouched(state.size), "nothing is written beyond a buffer"); }
    void check_untouched() const { require(is_untouched(0), "a retrieved buffer is not written to"); }
    bool is_untouched(std::size_t begin) const {
        return std::memcmp(memory.data() + begin, clean_memory.data(), memory.size() - begin) == 0;
    }
    void check_chunks() const {
        for (chunk const& one : state.chunks) {
            require(one.bytes <= state.size && one.offset <= state.size - one.bytes, "a chunk lies inside its buffer");
        }
    }
    void clear() { std::memset(memory.data(), untouched, memory.size()); }

    std::vector<uint8_t> memory;
    PvBuffer buffer{PvPayloadTypeImage};
    PvBuffer::impl state{buffer};
};

/// A receiver without a socket, which runs on the caller's thread.
class receiver final : public block_receiver, public assembler_callbacks {
public:
    receiver(gvsp_assembler::settings const& settings, bool patterned, block_sink& sink, assembler_counters& counted,
             assembler_counters& seen, packet_batch& batch)
        : settings_(settings), patterned_(patterned), sink_(sink), counted_(counted), seen_(seen), batch_(&batch) {}
    ~receiver() override { stop(); }

    void add_buffer(PvBuffer::impl& buffer) override { buffers_.push_back(&buffer); }
    void start() override {
        if (!assembler_) {
            assembler_ = std::make_unique<gvsp_assembler>(settings_, *this);
        }
    }
    void stop() override {
        if (assembler_) {
            assembler_->stop();
            add_counters(assembler_->counters());
            assembler_.reset();
        }
        buffers_.clear();
    }

    /// Receives a message as the socket does, with its data placed where the assembler expects it.
    void add(std::span<std::byte const> message, std::size_t packet_bytes, gvsp_assembler::time_point now) {
        msghdr const& header = batch_->prepare(1, assembler_->expect()).front().msg_hdr;
        std::size_t at = 0;
        for (std::size_t i = 0; i < header.msg_iovlen; ++i) {
            std::size_t const bytes = std::min(header.msg_iov[i].iov_len, message.size() - at);
            std::copy_n(message.data() + at, bytes, static_cast<std::byte*>(header.msg_iov[i].iov_base));
            at += bytes;
        }
        batch_->set_received(0, message.size(), packet_bytes);
        batch_->deliver(1, *assembler_, now);
    }
    void poll(gvsp_assembler::time_point now) { assembler_->poll(now); }

private:
    void add_counters(assembler_counters const& more) {
        counted_.blocks_complete += more.blocks_complete;
        counted_.blocks_too_large += more.blocks_too_large;
        counted_.blocks_incomplete += more.blocks_incomplete;
        counted_.packets_lost += more.packets_lost;
        counted_.packets_resend_requested += more.packets_resend_requested;
        counted_.packets_resent += more.packets_resent;
    }

    PvBuffer::impl* acquire_buffer() override {
        if (buffers_.empty()) {
            return nullptr;
        }
        PvBuffer::impl* const next = buffers_.front();
        buffers_.pop_front();
        return next;
    }

    void block_finished(PvBuffer::impl& buffer, received_block const& block) override {
        require(block.bytes <= buffer.size, "a block is not larger than its buffer");
        if (block.result == PvResult::Code::OK) {
            ++seen_.blocks_complete;
            if (patterned_) {
                check_whole(buffer, block);
            }
        } else if (block.result == PvResult::Code::BUFFER_TOO_SMALL) {
            ++seen_.blocks_too_large;
        } else {
            require(block.result == PvResult::Code::MISSING_PACKETS, "a block has one of three results");
            ++seen_.blocks_incomplete;
        }
        sink_.block_finished(buffer, block);
    }

    static void check_whole(PvBuffer::impl const& buffer, received_block const& block) {
        for (std::size_t i = 0; i < block.bytes; ++i) {
            require(buffer.memory[i] == pattern(block.timestamp, i), "a complete block consists of its own packets");
        }
    }

    void request_resend(gvsp::resend_request const& request) override {
        require(request.block != 0 && request.first <= request.last, "a resend request has a valid block and range");
        std::array<std::byte, gvsp::max_resend_request_bytes> command{};
        std::size_t const bytes = gvsp::encode(request, 1, command);
        require(bytes == (request.extended ? 28U : 20U), "a resend request has the length of its kind");
        seen_.packets_resend_requested += request.last - request.first + 1;
    }

    gvsp_assembler::settings const settings_;
    bool const patterned_;
    block_sink& sink_;
    assembler_counters& counted_;
    assembler_counters& seen_;
    packet_batch* const batch_;
    std::deque<PvBuffer::impl*> buffers_;
    std::unique_ptr<gvsp_assembler> assembler_;
};

/// An application with a stream.
class application {
public:
    application(fuzz_input& input, std::shared_ptr<block_queue> queue, packet_batch& batch)
        : input_(input), queue_(std::move(queue)) {
        uint8_t const chosen = input.byte();
        gvsp_assembler::settings settings;
        settings.packet_bytes = input.byte();
        std::size_t const payload_bytes = std::size_t{input.byte()} * 8;
        settings.payload_bytes = (chosen & known_payload_bit) != 0 ? payload_bytes : 0;
        settings.can_resend = (chosen & can_resend_bit) != 0;
        patterned_ = (chosen & patterned_bit) != 0;
        poll_always_ = (chosen & poll_always_bit) != 0;
        merged_ = (chosen & merged_bit) != 0;
        packet_bytes_ = settings.packet_bytes;
        auto made = std::make_unique<receiver>(settings, patterned_, queue_->sink(), counted_, seen_, batch);
        receiver_ = made.get();
        queue_->set_receiver(std::move(made));
        for (std::size_t i = 0; i < 3; ++i) {
            make_buffer(static_cast<uint32_t>(payload_bytes) + 1);
        }
    }

    void run() {
        while (!input_.empty()) {
            uint8_t const length = input_.byte();
            uint8_t const milliseconds = input_.byte();
            if (length >= first_action) {
                perform(length - first_action, milliseconds);
                continue;
            }
            now_ += std::chrono::milliseconds(milliseconds);
            receive(length);
            if (poll_always_ || milliseconds != 0) {
                receiver_->poll(now_);
            }
        }
        end();
    }

private:
    static constexpr uint8_t first_action = 240;
    static constexpr std::size_t max_buffers = 24;

    void receive(std::size_t length) {
        auto const bytes = std::as_bytes(input_.bytes(length));
        datagram_.assign(bytes.begin(), bytes.end());
        std::size_t const packet =
            merged_ ? std::max<std::size_t>(packet_bytes_, gvsp::ip_and_udp_headers + 1) - gvsp::ip_and_udp_headers
                    : std::max<std::size_t>(datagram_.size(), 1);
        for (std::size_t at = 0; patterned_ && at < datagram_.size(); at += packet) {
            apply_pattern(std::span(datagram_).subspan(at, std::min(packet, datagram_.size() - at)));
        }
        receiver_->add(datagram_, packet, now_);
    }

    /// Sets the timestamp of a leader to the block ID, and the payload to the pattern of its block and offset.
    void apply_pattern(std::span<std::byte> datagram) const {
        auto const packet = gvsp::parse(datagram);
        if (!packet) {
            return;
        }
        std::size_t const header = datagram.size() - packet->content.size();
        if (packet->kind == gvsp::packet_kind::leader && packet->content.size() >= 12) {
            for (std::size_t i = 0; i < 8; ++i) {
                datagram[header + 4 + i] = static_cast<std::byte>(packet->block >> (8 * (7 - i)));
            }
        } else if (packet->kind == gvsp::packet_kind::payload && packet->number != 0) {
            std::size_t const headers = header + gvsp::ip_and_udp_headers;
            std::size_t const step = packet_bytes_ > headers ? packet_bytes_ - headers : 1;
            std::size_t const offset = (packet->number - std::size_t{1}) * step;
            for (std::size_t i = header; i < datagram.size(); ++i) {
                datagram[i] = static_cast<std::byte>(pattern(packet->block, offset + i - header));
            }
        }
    }

    void perform(int action, uint8_t argument) {
        switch (action) {
            case 0:
                return make_buffer(uint32_t{argument} * 8 + 1);
            case 1:
                return retrieve();
            case 2:
                return destroy(argument);
            case 3:
                return requeue(argument, 0);
            case 4:
                return requeue(argument, uint32_t{input_.byte()} * 8 + 1);
            case 5:
                return queue_->abort();
            default:
                now_ += std::chrono::milliseconds(argument);
                return receiver_->poll(now_);
        }
    }

    void make_buffer(uint32_t bytes) {
        if (owned_.size() + queued_.size() < max_buffers) {
            owned_.push_back(std::make_unique<guarded_buffer>(bytes));
            requeue(owned_.size() - 1, 0);
        }
    }

    /// \param bytes size of the new memory that the buffer gets first; 0: it keeps its memory
    void requeue(std::size_t which, uint32_t bytes) {
        if (owned_.empty()) {
            return;
        }
        auto const found = owned_.begin() + static_cast<std::ptrdiff_t>(which % owned_.size());
        (*found)->check_untouched();
        if (bytes != 0) {
            (*found)->attach(bytes);
        }
        require(queue_->add((*found)->state).IsOK(), "a buffer of the application can be queued");
        require(queue_->add((*found)->state).GetCode() == PvResult::Code::INVALID_PARAMETER,
                "a queued buffer cannot be queued again");
        queued_.push_back(std::move(*found));
        owned_.erase(found);
    }

    void retrieve() {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        PvResult const result = queue_->retrieve(buffer, operation, std::chrono::milliseconds(0), [] { return false; });
        if (!result.IsOK()) {
            require(result.GetCode() == PvResult::Code::NOT_CONNECTED, "retrieve does not block without a camera");
            return;
        }
        auto const found = std::ranges::find_if(queued_, [&](auto const& each) { return &each->buffer == buffer; });
        require(found != queued_.end(), "a retrieved buffer was queued");
        (*found)->check_chunks();
        (*found)->check_guard();
        (*found)->clear();
        owned_.push_back(std::move(*found));
        queued_.erase(found);
    }

    /// Destroys a queued buffer with its memory, so that the address sanitizer detects a later write.
    void destroy(std::size_t which) {
        if (!queued_.empty()) {
            auto const found = queued_.begin() + static_cast<std::ptrdiff_t>(which % queued_.size());
            (*found)->check_guard();
            queued_.erase(found);
        }
    }

    /// Ends the stream and checks buffers and counters.
    void end() {
        queue_->set_receiver(nullptr);
        queue_->abort();
        while (queue_->count() != 0) {
            retrieve();
        }
        require(queued_.empty(), "each queued buffer is returned");
        for (auto const& each : owned_) {
            each->check_untouched();
        }
        require(counted_.blocks_complete == seen_.blocks_complete &&
                    counted_.blocks_too_large == seen_.blocks_too_large &&
                    counted_.blocks_incomplete == seen_.blocks_incomplete &&
                    counted_.packets_resend_requested == seen_.packets_resend_requested,
                "the counters match the events");
        require(counted_.packets_resent <= counted_.packets_resend_requested, "only requested packets are resent");
        require(counted_.blocks_incomplete != 0 || counted_.packets_lost == 0,
                "packets are lost from incomplete blocks only");
    }

    fuzz_input& input_;
    std::shared_ptr<block_queue> const queue_;
    receiver* receiver_ = nullptr;
    assembler_counters counted_;
    assembler_counters seen_;
    std::size_t packet_bytes_ = 0;
    bool patterned_ = false;
    bool poll_always_ = false;
    bool merged_ = false;  ///< a message may consist of several packets
    gvsp_assembler::time_point now_{};
    std::vector<std::byte> datagram_;
    std::vector<std::unique_ptr<guarded_buffer>> owned_;   ///< by the application
    std::vector<std::unique_ptr<guarded_buffer>> queued_;  ///< destroyed before the queue
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    static auto const queue = std::make_shared<block_queue>();  // empty between inputs; creating it is slow
    fuzz_input input(data, size);
    static packet_batch batch;
    application(input, queue, batch).run();
    return 0;
}
