#pragma once
#include <cstdint>

#include <PvGenParameter.h>

class PvGenString : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    PvResult GetValue(PvString& value);
};
