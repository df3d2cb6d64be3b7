#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace mediagrabber {

/// A plug-in that is loaded into this process, for the rest of its life: libraries behind a plug-in may keep threads
/// and must not vanish under them.
class plugin_library {
public:
    /// \param file  as the dynamic loader takes it: with a slash a file, without one a name to search for
    /// \throws std::runtime_error with a message for the operator: no such file, no plug-in, a symbol that is missing
    /// on
    ///         either side
    explicit plugin_library(std::filesystem::path const& file);

    /// Loads `given`, or, when that is empty, the plug-in beside the executable, or the one that the loader finds.
    static plugin_library find(std::filesystem::path const& given);

    std::int32_t run() const { return run_(); }
    std::string version() const { return version_(); }
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
