// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Log macros of the plug-in. The host controls them with `gMgLogLevelLib` (threshold) and `gMgLogModeLib` (sinks).
///
/// A source file defines its module tag once, `static constexpr char _S_logTag[] = "MG_JAI_PROC";`, then logs with
/// `MG_LOG_E`, `MG_LOG_W`, `MG_LOG_I` and `MG_LOG_D`. Texts are printf formats and end in "\n". The arguments are
/// evaluated once for each active sink, and not at all if the threshold filters the message: a side effect in them
/// depends on the host's settings.
///
/// Warnings and debug lines in the system log carry the name of the function that logs. A step that was moved out of a
/// larger operation logs under the operation's name: `constexpr mg_log_operation mgLogFunction{"ProcLoop"};`.

#include <syslog.h>

#include <cstdio>

#include "mg_host_api.hpp"

/// Names the operation that a function logs for. A local object called `mgLogFunction` hides the function of that name
/// below, and so replaces the caller's name.
struct mg_log_operation {
    char const* name;  ///< must outlive the object
    constexpr char const* operator()(char const* /*caller*/) const { return name; }
};

/// \param caller name of the function that logs
/// \return the name in the log if the caller defines no operation: its own
constexpr char const* mgLogFunction(char const* caller) {
    return caller;
}

/// Opens the system log under the ident "PROGRAM.INSTANCE". Only the first call in the life of the process opens it.
/// \param instance number of this plug-in instance
/// \param program name of the program
void _T_set_log_mode(unsigned int instance, char const* program);

/// Formats one line, at most 1,023 characters, and passes it to the system log. Opens the system log if necessary.
/// \param priority of `syslog`
/// \param format printf format of the line
[[gnu::format(printf, 2, 3)]] void _T_log_to_system(int priority, char const* format, ...);

#define MG_LOG_AFTER_PREFIX(...) __VA_OPT__(, ) __VA_ARGS__

/// One log call. `prefixArgs`, in parentheses, are the arguments of the system log's prefix.
#define MG_LOG_AT(level, priority, systemPrefix, prefixArgs, stdoutPrefix, text, ...)                          \
    do {                                                                                                       \
        if (gMgLogLevelLib >= (level)) {                                                                       \
            if ((gMgLogModeLib & 2U) != 0) {                                                                   \
                _T_log_to_system((priority),                                                                   \
                                 systemPrefix text MG_LOG_AFTER_PREFIX prefixArgs __VA_OPT__(, ) __VA_ARGS__); \
            }                                                                                                  \
            if ((gMgLogModeLib & 1U) != 0) {                                                                   \
                std::fprintf(stdout, stdoutPrefix text, _S_logTag __VA_OPT__(, ) __VA_ARGS__);                 \
            }                                                                                                  \
        }                                                                                                      \
    } while (false)

#define MG_LOG_E(...) \
    MG_LOG_AT(1U, LOG_ERR, "[e|%s:%u] ", (__FILE__, static_cast<unsigned>(__LINE__)), "[%s:e]: ", __VA_ARGS__)
#define MG_LOG_W(...) MG_LOG_AT(2U, LOG_WARNING, "[w|%s] ", (mgLogFunction(__func__)), "[%s:w]: ", __VA_ARGS__)
#define MG_LOG_I(...) MG_LOG_AT(3U, LOG_INFO, "[i] ", (), "[%s:i]: ", __VA_ARGS__)
#define MG_LOG_D(...) MG_LOG_AT(4U, LOG_DEBUG, "[d|%s] ", (mgLogFunction(__func__)), "[%s:d]: ", __VA_ARGS__)
