#include "lost_object_release.hpp"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace openpv {
namespace {

class release_thread {
public:
    void add(object_handle<GObject> object) {
        std::lock_guard const lock(mutex_);
        objects_.push_back(std::move(object));
        if (!thread_.joinable()) {
            thread_ = std::thread([this] { run(); });
        }
        wake_.notify_one();
    }

private:
    [[noreturn]] void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return !objects_.empty(); });
            auto leaving = std::exchange(objects_, {});
            lock.unlock();
            leaving.clear();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<object_handle<GObject>> objects_;
    std::thread thread_;
};

}  // namespace

void release_lost_object(object_handle<GObject> object) {
    // Never destroyed: a program that ends does not wait, and may let go of cameras until its very end.
    static auto& thread = *new release_thread;
    thread.add(std::move(object));
}

}  // namespace openpv
