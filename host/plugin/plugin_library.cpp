// SPDX-License-Identifier: MIT
#include "plugin/plugin_library.hpp"

#include <dlfcn.h>
#include <fmt/format.h>

#include <string>
#include <system_error>
#include <vector>

#include "base/failures.hpp"

namespace mediagrabber {

namespace {

constexpr char plugin_file_name[] = "libmgjai.so";

/// Beside the executable, and where a build or an installation puts libraries.
std::vector<std::filesystem::path> candidates() {
    std::error_code error;
    auto const executable = std::filesystem::read_symlink("/proc/self/exe", error);
    std::vector<std::filesystem::path> files;
    for (auto const* const place : {".", "../lib", "../lib/mediagrabber"}) {
        if (!error) {
            files.push_back((executable.parent_path() / place / plugin_file_name).lexically_normal());
        }
    }
    return files;
}

}  // namespace

plugin_library::plugin_library(std::filesystem::path const& file) : file_(file) {
    handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        throw unavailable_error(fmt::format("the plug-in cannot be loaded: {}", dlerror()));
    }
    resolve(run_, "MgLibProc");
    resolve(version_, "MgLibGetVer");
    resolve(log_instance_, "gMgLogIdLib");
    resolve(log_level_, "gMgLogLevelLib");
    resolve(log_sinks_, "gMgLogModeLib");
}

plugin_library plugin_library::find(std::filesystem::path const& given) {
    if (!given.empty()) {
        return plugin_library(given);
    }
    std::string places;
    for (auto const& file : candidates()) {
        std::error_code error;
        if (std::filesystem::exists(file, error)) {
            return plugin_library(file);
        }
        places += file.string() + ", ";
    }
    try {
        return plugin_library(plugin_file_name);
    } catch (unavailable_error const& error) {
        throw unavailable_error(
            fmt::format("{}; looked for {}and on the search path of the dynamic loader; --plugin names"
                        " another file",
                        error.what(), places));
    }
}

template <typename pointer>
void plugin_library::resolve(pointer& into, char const* symbol) const {
    void* const address = dlsym(handle_, symbol);
    if (address == nullptr) {
        throw unavailable_error(
            fmt::format("{} is not a plug-in for mediagrabber: symbol {} is missing", file_.string(), symbol));
    }
    into = reinterpret_cast<pointer>(address);
}

void plugin_library::set_log(std::uint32_t level, std::uint32_t sinks) const {
    *log_level_ = level;
    *log_sinks_ = sinks;
}

}  // namespace mediagrabber
