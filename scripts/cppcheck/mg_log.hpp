#pragma once
/// \file
/// What cppcheck reads in place of include/mg_log.hpp: it does not know __VA_OPT__, and checks the formats of these.

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
