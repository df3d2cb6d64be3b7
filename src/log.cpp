// SPDX-License-Identifier: MIT
#include <cstdarg>
#include <cstdio>

#include "mg_log.hpp"

uint32_t gMgLogIdLib = 0;
uint32_t gMgLogLevelLib = 0;
uint32_t gMgLogModeLib = 0;

void _T_set_log_mode(unsigned int instance, char const* program) {
    // openlog keeps the pointer: the ident must live as long as the process.
    static char _s_sysLogIdBuf[272];
    static bool _s_syslog_active = false;
    if (_s_syslog_active) {
        return;
    }
    std::snprintf(_s_sysLogIdBuf, sizeof _s_sysLogIdBuf, "%s.%u", program, instance);
    openlog(_s_sysLogIdBuf, LOG_PID | LOG_ODELAY, LOG_DAEMON);
    _s_syslog_active = true;
}

void _T_log_to_system(int priority, char const* format, ...) {
    _T_set_log_mode(gMgLogIdLib, "mediagrabber");
    char line[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    syslog(priority, "%s", line);
}
