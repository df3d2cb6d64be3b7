// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Shared by the tests of the assembler: packets as a camera sends them, and an owner that provides buffers.

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <PvBuffer.h>

#include "gvsp/gvsp_assembler.hpp"
#include "gvsp/PvBuffer_impl.hpp"

namespace openpv {

inline constexpr uint32_t packet_bytes =
    28 + 8 + 22;                                // 22 bytes of data per packet with short IDs, 10 with extended IDs
inline constexpr std::size_t block_bytes = 80;  // four packets with short IDs

using datagram = std::vector<std::byte>;

/// Generates the packets of a block as a camera does.
class block_writer {
public:
    explicit block_writer(uint64_t id, std::size_t size = block_bytes, bool extended = false)
        : block_writer(id, size, extended, 1000 + id) {}
    block_writer(uint64_t id, std::size_t size, bool extended, uint64_t timestamp)
        : id_(id), extended_(extended), timestamp_(timestamp) {
        for (std::size_t i = 0; i < size; ++i) {
            data_.push_back(static_cast<uint8_t>(id * 31 + i));
        }
    }

    datagram leader() const { return leader(data_.size()); }
    datagram leader(std::size_t width) const {
        datagram made = header(1, 0);
        append(made, 1, 4);  // an image
        append(made, timestamp(), 8);
        append(made, 0x01080001, 4);
        append(made, width, 4);
        append(made, 1, 4);
        append(made, 0, 12);
        return made;
    }
    datagram payload(uint32_t number) const {
        datagram made = header(3, number);
        std::size_t const begin = std::min(data_.size(), (number - 1) * step());
        std::size_t const end = std::min(data_.size(), begin + step());
        for (std::size_t i = begin; i < end; ++i) {
            made.push_back(static_cast<std::byte>(data_[i]));
        }
        return made;
    }
    datagram trailer() const {
        datagram made = header(2, packets() + 1);
        append(made, 1, 4);
        append(made, 1, 4);
        return made;
    }
    datagram unavailable(uint32_t number) const { return refusal(number, 0x0C); }
    datagram not_yet_available(uint32_t number) const { return refusal(number, 0x10); }
    std::vector<datagram> all() const {
        std::vector<datagram> made{leader()};
        for (uint32_t number = 1; number <= packets(); ++number) {
            made.push_back(payload(number));
        }
        made.push_back(trailer());
        return made;
    }

    uint32_t packets() const { return static_cast<uint32_t>((data_.size() + step() - 1) / step()); }
    uint64_t timestamp() const { return timestamp_; }
    std::vector<uint8_t> const& data() const { return data_; }

private:
    std::size_t step() const { return packet_bytes - (extended_ ? 48 : 36); }
    static void append(datagram& made, uint64_t value, int count) {
        for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
            made.push_back(static_cast<std::byte>(shift >= 64 ? 0 : value >> shift));
        }
    }
    datagram header(int kind, uint32_t number) const {
        datagram made;
        append(made, 0, 2);
        if (extended_) {
            append(made, 0, 2);
            append(made, static_cast<uint64_t>(kind) | 0x80, 1);
            append(made, 0, 3);
            append(made, id_, 8);
            append(made, number, 4);
        } else {
            append(made, id_, 2);
            append(made, static_cast<uint64_t>(kind), 1);
            append(made, number, 3);
        }
        return made;
    }

    datagram refusal(uint32_t number, uint8_t status) const {
        datagram made = header(3, number);
        made[0] = std::byte{0x80};
        made[1] = std::byte{status};
        return made;
    }

    uint64_t id_;
    bool extended_;
    uint64_t timestamp_;
    std::vector<uint8_t> data_;
};

struct request_range {
    uint64_t block;
    uint32_t first;
    uint32_t last;
    bool operator==(request_range const&) const = default;
};

/// Provides buffers with guard bytes behind their memory, and records what the assembler reports.
class fake_callbacks final : public assembler_callbacks {
public:
    explicit fake_callbacks(std::size_t buffers, std::size_t bytes = block_bytes) {
        for (std::size_t i = 0; i < buffers; ++i) {
            add_buffer(bytes);
        }
    }
    void add_buffer(std::size_t bytes) {
        memory_.push_back(std::vector<uint8_t>(bytes + 16, 0xA5));
        owners_.push_back(std::make_unique<PvBuffer>(PvPayloadTypeImage));
        states_.push_back(std::make_unique<PvBuffer::impl>(*owners_.back()));
        states_.back()->memory = memory_.back().data();
        states_.back()->size = static_cast<uint32_t>(bytes);
        free_.push_back(states_.back().get());
    }

    PvBuffer::impl* acquire_buffer() override {
        if (free_.empty()) {
            return nullptr;
        }
        auto* const next = free_.front();
        free_.pop_front();
        return next;
    }
    void block_finished(PvBuffer::impl& buffer, received_block const& block) override {
        EXPECT_THAT(handed_out, testing::Not(testing::Contains(&buffer))) << "a buffer is used for two blocks";
        finished.push_back(block);
        std::size_t const bytes = std::min<std::size_t>(block.bytes, buffer.size);
        contents.emplace_back(buffer.memory, buffer.memory + bytes);
        for (std::size_t i = 0; i < 16; ++i) {
            EXPECT_EQ(buffer.memory[buffer.size + i], 0xA5) << "beyond the buffer";
        }
        std::fill_n(buffer.memory, buffer.size, uint8_t{0xA5});
        handed_out.push_back(&buffer);
    }
    void request_resend(gvsp::resend_request const& request) override {
        requests.push_back({request.block, request.first, request.last});
        last_request_extended = request.extended;
    }

    std::vector<uint32_t> results() const {
        std::vector<uint32_t> all;
        for (auto const& block : finished) {
            all.push_back(block.result);
        }
        return all;
    }
    /// Checks that no buffer was written to after it was reported.
    void expect_untouched() const {
        for (auto const* buffer : handed_out) {
            std::vector<uint8_t> const untouched(buffer->size, 0xA5);
            ASSERT_EQ(std::memcmp(buffer->memory, untouched.data(), untouched.size()), 0)
                << "written to after it was reported";
        }
    }

    std::vector<received_block> finished;
    std::vector<std::vector<uint8_t>> contents;
    std::vector<request_range> requests;
    bool last_request_extended = false;
    std::vector<PvBuffer::impl*> handed_out;

private:
    std::deque<std::vector<uint8_t>> memory_;
    std::vector<std::unique_ptr<PvBuffer>> owners_;
    std::vector<std::unique_ptr<PvBuffer::impl>> states_;
    std::deque<PvBuffer::impl*> free_;
};

}  // namespace openpv
