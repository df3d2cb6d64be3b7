// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace mediagrabber {

/// A plug-in that is loaded into this process. It is never unloaded: the libraries that it uses may have threads, whose
/// code must stay.
class plugin_library {
public:
    /// \param file  as dlopen takes it: a path if it contains a slash, otherwise a name to search for
    /// \throws unavailable_error with a message for the user: the file is missing or not a plug-in, a symbol is missing
    ///         on either side, or the memory does not suffice for it. Each may be so only while a package is installed.
    explicit plugin_library(std::filesystem::path const& file);

    /// Loads `given`; if it is empty, the plug-in beside the executable or the one that the dynamic loader finds.
    static plugin_library find(std::filesystem::path const& given);

    /// Calls MgLibProc. \return its exit code
    std::int32_t run() const { return run_(); }
    std::string version() const { return version_(); }
    /// \param level  0 nothing to 4 debug
    /// \param sinks  bits: 1 standard output, 2 system log
    void set_log(std::uint32_t level, std::uint32_t sinks) const;
    void set_log_instance(std::uint32_t instance) const { *log_instance_ = instance; }

    std::filesystem::path const& file() const { return file_; }

private:
    template <typename pointer>
    void resolve(pointer& into, char const* symbol) const;

    std::filesystem::path file_;
    void* handle_ = nullptr;
    std::int32_t (*run_)() = nullptr;
    char const* (*version_)() = nullptr;
    std::uint32_t* log_instance_ = nullptr;
    std::uint32_t* log_level_ = nullptr;
    std::uint32_t* log_sinks_ = nullptr;
};

}  // namespace mediagrabber
