#pragma once
/// \file
/// The journal that the scripted SDK and the recording host write together: every call that the plug-in makes, in
/// order, as text such as "SetIntegerValue(Width, 640)".

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace support {

/// While one of these lives, memory is allocated by the test's side and not by the plug-in.
class outside_plugin {
public:
    outside_plugin();
    ~outside_plugin();
    outside_plugin(outside_plugin const&) = delete;
    outside_plugin& operator=(outside_plugin const&) = delete;
    static bool here();
};

class call_journal {
public:
    void clear() { calls_.clear(); }
    void enable(bool on) { enabled_ = on; }
    [[gnu::format(printf, 2, 3)]] void add(char const* format, ...);

    std::vector<std::string> const& calls() const { return calls_; }
    /// The calls that begin with one of the prefixes.
    std::vector<std::string> starting(std::vector<std::string> const& prefixes) const;
    size_t count(std::string const& prefix) const { return starting({prefix}).size(); }

private:
    std::vector<std::string> calls_;
    bool enabled_ = true;
};

call_journal& journal();

}  // namespace support
