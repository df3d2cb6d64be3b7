/// \file
/// Packets of a stream into the assembler, behind the queue that a stream has, while buffers are queued, retrieved,
/// destroyed and given other memory.
///
/// Input: a byte of settings, the packet size, the payload size in steps of 8; then steps of a length, milliseconds,
/// and as many bytes of a datagram. Lengths from 240 are no datagrams but acts of the application.

#include <array>
#include <chrono>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include <PvBuffer.h>
#include <PvResult.h>

#include "block_queue.hpp"
#include "fuzz_input.hpp"
#include "gvsp_assembler.hpp"
#include "PvBuffer_impl.hpp"

namespace {

using namespace openpv;

constexpr uint8_t untouched = 0xA5;
constexpr std::size_t guard_bytes = 16;

/// The settings byte.
constexpr uint8_t can_resend_bit = 1;
constexpr uint8_t tells_payload_bit = 2;
constexpr uint8_t patterned_bit = 4;  ///< packets are given contents that tell where they belong
constexpr uint8_t attentive_bit = 8;  ///< attends after every packet, and not only when time has passed

/// What stands at a place of a block.
uint8_t pattern(uint64_t block, std::size_t offset) {
    return static_cast<uint8_t>(block * 31 + offset * 7 + (offset >> 8U));
}

constexpr std::size_t largest_buffer = 0xFF * 8 + 1;
std::vector<uint8_t> const clean_memory(largest_buffer + guard_bytes, untouched);

/// A buffer of the application and its memory, which stands in front of a guard.
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
    void check_untouched() const { require(is_untouched(0), "a buffer that was handed out is not written to"); }
    bool is_untouched(std::size_t begin) const {
        return std::memcmp(memory.data() + begin, clean_memory.data(), memory.size() - begin) == 0;
    }
    void check_chunks() const {
        for (chunk const& one : state.chunks) {
            require(one.bytes <= state.size && one.offset <= state.size - one.bytes, "a chunk lies in its buffer");
        }
    }
    void clear() { std::memset(memory.data(), untouched, memory.size()); }

    std::vector<uint8_t> memory;
    PvBuffer buffer{PvPayloadTypeImage};
    PvBuffer::impl state{buffer};
};

/// Receives like the real one, without a socket and on the caller's thread.
class receiver final : public block_receiver, public assembler_outlet {
public:
    receiver(gvsp_assembler::settings const& settings, bool patterned, block_sink& sink, assembler_counters& counted,
             assembler_counters& seen)
        : settings_(settings), patterned_(patterned), sink_(sink), counted_(counted), seen_(seen) {}
    ~receiver() override { take_back(); }

    void give(PvBuffer::impl& buffer) override { given_.push_back(&buffer); }
    void start() override {
        if (!assembler_) {
            assembler_ = std::make_unique<gvsp_assembler>(settings_, *this);
        }
    }
    void take_back() override {
        if (assembler_) {
            assembler_->stop();
            counted_ += assembler_->counters();
            assembler_.reset();
        }
        given_.clear();
    }

    void add(std::span<std::byte const> datagram, gvsp_assembler::time_point now) { assembler_->add(datagram, now); }
    void attend(gvsp_assembler::time_point now) { assembler_->attend(now); }

private:
    PvBuffer::impl* next_buffer() override {
        if (given_.empty()) {
            return nullptr;
        }
        PvBuffer::impl* const next = given_.front();
        given_.pop_front();
        return next;
    }

    void block_finished(PvBuffer::impl& buffer, received_block const& block) override {
        require(block.bytes <= buffer.size, "a block has no more bytes than its buffer");
        if (block.result == PvResult::Code::OK) {
            ++seen_.blocks_whole;
            if (patterned_) {
                check_whole(buffer, block);
            }
        } else if (block.result == PvResult::Code::BUFFER_TOO_SMALL) {
            ++seen_.blocks_too_large;
        } else {
            require(block.result == PvResult::Code::MISSING_PACKETS, "a block ends in one of three ways");
            ++seen_.blocks_incomplete;
        }
        sink_.block_finished(buffer, block);
    }

    static void check_whole(PvBuffer::impl const& buffer, received_block const& block) {
        for (std::size_t i = 0; i < block.bytes; ++i) {
            require(buffer.memory[i] == pattern(block.timestamp, i), "a whole block is made of its own packets");
        }
    }

    void ask_again(gvsp::resend_request const& request) override {
        require(request.block != 0 && request.first <= request.last, "a request names packets of a block");
        std::array<std::byte, gvsp::longest_resend_request> command{};
        std::size_t const bytes = gvsp::encode(request, 1, command);
        require(bytes == (request.extended ? 28U : 20U), "a request is as long as its kind");
        seen_.packets_asked_again += request.last - request.first + 1;
    }

    gvsp_assembler::settings const settings_;
    bool const patterned_;
    block_sink& sink_;
    assembler_counters& counted_;
    assembler_counters& seen_;
    std::deque<PvBuffer::impl*> given_;
    std::unique_ptr<gvsp_assembler> assembler_;
};

/// An application with a stream.
class application {
public:
    application(fuzz_input& input, std::shared_ptr<block_queue> queue) : input_(input), queue_(std::move(queue)) {
        uint8_t const chosen = input.byte();
        gvsp_assembler::settings settings;
        settings.packet_bytes = input.byte();
        std::size_t const payload_bytes = std::size_t{input.byte()} * 8;
        settings.payload_bytes = (chosen & tells_payload_bit) != 0 ? payload_bytes : 0;
        settings.can_resend = (chosen & can_resend_bit) != 0;
        patterned_ = (chosen & patterned_bit) != 0;
        attentive_ = (chosen & attentive_bit) != 0;
        packet_bytes_ = settings.packet_bytes;
        auto made = std::make_unique<receiver>(settings, patterned_, queue_->sink(), counted_, seen_);
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
            if (length >= first_act) {
                act(length - first_act, milliseconds);
                continue;
            }
            now_ += std::chrono::milliseconds(milliseconds);
            receive(length);
            if (attentive_ || milliseconds != 0) {
                receiver_->attend(now_);
            }
        }
        end();
    }

private:
    static constexpr uint8_t first_act = 240;
    static constexpr std::size_t most_buffers = 24;

    void receive(std::size_t length) {
        auto const bytes = std::as_bytes(input_.bytes(length));
        datagram_.assign(bytes.begin(), bytes.end());
        if (patterned_) {
            give_pattern();
        }
        receiver_->add(datagram_, now_);
    }

    /// The timestamp of a leader is its block's ID, and every byte of payload tells block and place.
    void give_pattern() {
        auto const packet = gvsp::parse(datagram_);
        if (!packet) {
            return;
        }
        std::size_t const header = datagram_.size() - packet->content.size();
        if (packet->kind == gvsp::packet_kind::leader && packet->content.size() >= 12) {
            for (std::size_t i = 0; i < 8; ++i) {
                datagram_[header + 4 + i] = static_cast<std::byte>(packet->block >> (8 * (7 - i)));
            }
        } else if (packet->kind == gvsp::packet_kind::payload && packet->number != 0) {
            std::size_t const headers = header + gvsp::ip_and_udp_headers;
            std::size_t const step = packet_bytes_ > headers ? packet_bytes_ - headers : 1;
            std::size_t const offset = (packet->number - std::size_t{1}) * step;
            for (std::size_t i = header; i < datagram_.size(); ++i) {
                datagram_[i] = static_cast<std::byte>(pattern(packet->block, offset + i - header));
            }
        }
    }

    void act(int what, uint8_t which) {
        switch (what) {
            case 0:
                return make_buffer(uint32_t{which} * 8 + 1);
            case 1:
                return retrieve();
            case 2:
                return destroy(which);
            case 3:
                return requeue(which, 0);
            case 4:
                return requeue(which, uint32_t{input_.byte()} * 8 + 1);
            case 5:
                return queue_->abort();
            default:
                now_ += std::chrono::milliseconds(which);
                return receiver_->attend(now_);
        }
    }

    void make_buffer(uint32_t bytes) {
        if (owned_.size() + queued_.size() < most_buffers) {
            owned_.push_back(std::make_unique<guarded_buffer>(bytes));
            requeue(owned_.size() - 1, 0);
        }
    }

    /// \param bytes of other memory that the buffer gets before; 0: it keeps what it has
    void requeue(std::size_t which, uint32_t bytes) {
        if (owned_.empty()) {
            return;
        }
        auto const place = owned_.begin() + static_cast<std::ptrdiff_t>(which % owned_.size());
        (*place)->check_untouched();
        if (bytes != 0) {
            (*place)->attach(bytes);
        }
        require(queue_->add((*place)->state).IsOK(), "a buffer of the application can be queued");
        require(queue_->add((*place)->state).GetCode() == PvResult::Code::INVALID_PARAMETER, "and only once");
        queued_.push_back(std::move(*place));
        owned_.erase(place);
    }

    void retrieve() {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        PvResult const result = queue_->retrieve(buffer, operation, std::chrono::milliseconds(0), [] { return false; });
        if (!result.IsOK()) {
            require(result.GetCode() == PvResult::Code::NOT_CONNECTED, "without a camera nothing is waited for");
            return;
        }
        auto const place = std::ranges::find_if(queued_, [&](auto const& each) { return &each->buffer == buffer; });
        require(place != queued_.end(), "what is retrieved was queued");
        (*place)->check_chunks();
        (*place)->check_guard();
        (*place)->clear();
        owned_.push_back(std::move(*place));
        queued_.erase(place);
    }

    /// Of the buffers that are queued: their memory is gone, so that whoever writes there is caught.
    void destroy(std::size_t which) {
        if (!queued_.empty()) {
            auto const place = queued_.begin() + static_cast<std::ptrdiff_t>(which % queued_.size());
            (*place)->check_guard();
            queued_.erase(place);
        }
    }

    /// Lets the stream end and looks at what came of it.
    void end() {
        queue_->set_receiver(nullptr);
        queue_->abort();
        while (queue_->count() != 0) {
            retrieve();
        }
        require(queued_.empty(), "every queued buffer comes back");
        for (auto const& each : owned_) {
            each->check_untouched();
        }
        require(counted_.blocks_whole == seen_.blocks_whole && counted_.blocks_too_large == seen_.blocks_too_large &&
                    counted_.blocks_incomplete == seen_.blocks_incomplete &&
                    counted_.packets_asked_again == seen_.packets_asked_again,
                "the counters tell what happened");
        require(counted_.blocks_incomplete != 0 || counted_.packets_missing == 0,
                "packets are missing from incomplete blocks only");
    }

    fuzz_input& input_;
    std::shared_ptr<block_queue> const queue_;
    receiver* receiver_ = nullptr;
    assembler_counters counted_;
    assembler_counters seen_;
    std::size_t packet_bytes_ = 0;
    bool patterned_ = false;
    bool attentive_ = false;
    gvsp_assembler::time_point now_{};
    std::vector<std::byte> datagram_;
    std::vector<std::unique_ptr<guarded_buffer>> owned_;   ///< by the application
    std::vector<std::unique_ptr<guarded_buffer>> queued_;  ///< destroyed before the queue
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    static auto const queue = std::make_shared<block_queue>();  // empty between inputs; making one takes its time
    fuzz_input input(data, size);
    application(input, queue).run();
    return 0;
}
