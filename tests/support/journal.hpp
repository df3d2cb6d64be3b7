// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The journal that the scripted SDK and the recording host share: each call that the plug-in makes, in order, as text
/// such as "SetIntegerValue(Width, 640)".

#include <cstddef>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace support {

/// Marks a scope that belongs to the test's side: memory allocated in it is not the plug-in's. Scopes may nest; the
/// mark is per thread.
class outside_plugin {
public:
    outside_plugin();
    ~outside_plugin();
    outside_plugin(outside_plugin const&) = delete;
    outside_plugin& operator=(outside_plugin const&) = delete;
    /// \return whether the calling thread is in such a scope
    static bool here();
};

/// A list of calls. Not locked: the plug-in calls from one thread.
class call_journal {
public:
    void clear() {
        calls_.clear();
        threads_.clear();
    }
    void enable(bool on) { enabled_ = on; }
    /// Appends a call, at most 511 characters.
    /// \param format printf format of the call
    [[gnu::format(printf, 2, 3)]] void add(char const* format, ...);

    std::vector<std::string> const& calls() const { return calls_; }
    /// \return the calls that start with one of the prefixes, in order
    std::vector<std::string> starting(std::vector<std::string> const& prefixes) const;
    size_t count(std::string const& prefix) const { return starting({prefix}).size(); }
    /// \return the threads that made the calls
    std::set<std::thread::id> const& threads() const { return threads_; }

private:
    std::vector<std::string> calls_;
    std::set<std::thread::id> threads_;
    bool enabled_ = true;
};

/// \return the only journal
call_journal& journal();

}  // namespace support
