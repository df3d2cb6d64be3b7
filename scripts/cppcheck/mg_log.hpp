// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Replaces include/mg_log.hpp for cppcheck, which does not support __VA_OPT__. The log macros become calls of
/// std::printf, because cppcheck compares its formats with its arguments.

#include <cstdio>

#include "mg_host_api.hpp"

struct mg_log_operation {
    char const* name;
};

void _T_set_log_mode(unsigned int instance, char const* program);
[[gnu::format(printf, 2, 3)]] void _T_log_to_system(int priority, char const* format, ...);

#define MG_LOG_E(...) std::printf(__VA_ARGS__)
#define MG_LOG_W(...) std::printf(__VA_ARGS__)
#define MG_LOG_I(...) std::printf(__VA_ARGS__)
#define MG_LOG_D(...) std::printf(__VA_ARGS__)
