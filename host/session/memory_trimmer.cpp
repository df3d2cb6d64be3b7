// SPDX-License-Identifier: MIT
#include "session/memory_trimmer.hpp"

#include <malloc.h>

namespace mediagrabber {

memory_trimmer::memory_trimmer(std::chrono::milliseconds interval)
    : thread_([this, interval](std::stop_token const& stop) {
          std::unique_lock lock(mutex_);
          while (!never_.wait_for(lock, stop, interval, [] { return false; }) && !stop.stop_requested()) {
              malloc_trim(0);
          }
      }) {}

}  // namespace mediagrabber
