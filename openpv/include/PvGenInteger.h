#pragma once
#include <cstdint>

#include <PvGenParameter.h>

class PvGenInteger : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    PvResult GetValue(int64_t& value);
    PvResult SetValue(int64_t value);
    PvResult GetMin(int64_t& value);
    PvResult GetMax(int64_t& value);
    PvResult GetIncrement(int64_t& value);
};
