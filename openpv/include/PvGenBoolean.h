#pragma once
#include <cstdint>

#include <PvGenParameter.h>

class PvGenBoolean : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    PvResult GetValue(bool& value);
    PvResult SetValue(bool value);
};
