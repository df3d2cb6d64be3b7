#pragma once
#include <cstdint>
#include <string>

#include <PvGenEnumEntry.h>

struct PvGenEnumEntry::impl {
    std::string name;
    int64_t value = 0;
};
