#include "loss_report.hpp"

#include <algorithm>
#include <atomic>
#include <cstdio>

namespace openpv {
namespace {

void write_line(ipv4_address camera, std::string const& text) {
    std::fprintf(stderr, "openpv: stream from %s: %s\n", to_text(camera).c_str(), text.c_str());
}

void append(std::string& text, uint64_t count, char const* what) {
    if (count != 0) {
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + what;
    }
}

constexpr std::chrono::seconds between_losses{10};
constexpr std::chrono::seconds between_resends{60};

bool lost_frames(assembler_counters const& counted) {
    return counted.blocks_incomplete + counted.blocks_skipped + counted.blocks_without_buffer +
               counted.blocks_too_large !=
           0;
}

/// \return whether the need is greater than all those told of before
bool is_news(std::size_t needed_bytes) {
    static std::atomic<std::size_t> told = 0;
    std::size_t before = told;
    while (before < needed_bytes && !told.compare_exchange_weak(before, needed_bytes)) {
    }
    return before < needed_bytes;
}

}  // namespace

void warn_of_small_room(ipv4_address camera, std::size_t granted_bytes, std::size_t needed_bytes) {
    if (is_news(needed_bytes)) {
        std::string const needed = std::to_string(needed_bytes);
        write_line(camera, "warning: the socket has room for " + std::to_string(granted_bytes) +
                               " bytes, less than two frames; frames lose packets when this machine is busy. Raise it:"
                               " sysctl -w net.core.rmem_max=" +
                               needed);
    }
}

std::string describe_losses(assembler_counters const& counted, uint64_t kernel_drops) {
    std::string text;
    append(text, counted.blocks_incomplete, "frames incomplete");
    append(text, counted.blocks_skipped, "frames of which nothing came");
    append(text, counted.blocks_without_buffer, "frames without a buffer for them");
    append(text, counted.blocks_too_large, "frames larger than their buffers");
    if (text.empty()) {
        append(text, counted.packets_asked_again, "packets asked for again, all came");
        return text;
    }
    append(text, counted.packets_missing, "packets missing for good");
    append(text, counted.packets_asked_again, "asked for again");
    if (kernel_drops != 0) {
        text += "; this machine dropped " + std::to_string(kernel_drops) +
                " packets for want of room in the socket (net.core.rmem_max)";
    } else if (counted.packets_missing != 0) {
        text += "; this machine dropped none: they were lost on the way";
    }
    return text;
}

void loss_diary::attend(assembler_counters const& counted, uint64_t kernel_drops, time_point now) {
    if (now - last_ < between_losses) {
        return;
    }
    assembler_counters news = counted;
    news -= told_;
    if (lost_frames(news) || (news.packets_asked_again != 0 && now - last_ >= between_resends)) {
        close(counted, kernel_drops);
        last_ = now;
    }
}

void loss_diary::close(assembler_counters const& counted, uint64_t kernel_drops) {
    assembler_counters news = counted;
    news -= told_;
    std::string const text = describe_losses(news, kernel_drops - told_drops_);
    if (!text.empty()) {
        write_line(camera_, text);
    }
    told_ = counted;
    told_drops_ = kernel_drops;
}

}  // namespace openpv
