#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace mediagrabber {

/// Says how something stands when that has changed, and not too often: of what changes to and fro in between, only how
/// it stands in the end.
class sparse_report {
public:
    using clock = std::chrono::steady_clock;

    struct message {
        bool good = false;
        std::string text;
        bool operator==(message const&) const = default;
    };

    explicit sparse_report(clock::duration interval) : interval_(interval) {}

    /// How it stands from now on.
    void note(message now_so) { latest_ = std::move(now_so); }
    /// What is to be said at this moment, if anything is.
    std::optional<message> due(clock::time_point now);

private:
    clock::duration const interval_;
    std::optional<message> latest_;
    std::optional<message> said_;
    clock::time_point next_{};
};

}  // namespace mediagrabber
