#pragma once

#include <atomic>
#include <cstddef>

namespace mediagrabber {

/// So many may do something at once; who finds no place is to come again.
class busy_places {
public:
    explicit busy_places(std::size_t count) : free_(static_cast<long>(count)) {}

    /// A place, as long as it lives.
    class place {
    public:
        explicit place(busy_places& of) : of_(of), taken_(of.free_.fetch_sub(1) > 0) {}
        ~place() { of_.free_.fetch_add(1); }
        place(place const&) = delete;
        place& operator=(place const&) = delete;

        explicit operator bool() const { return taken_; }

    private:
        busy_places& of_;
        bool const taken_;
    };

private:
    std::atomic<long> free_;
};

}  // namespace mediagrabber
