#pragma once
#include <cstdint>

#include <PvGenParameter.h>

class PvGenFloat : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    PvResult GetValue(double& value);
    PvResult SetValue(double value);
    PvResult GetMin(double& value);
    PvResult GetMax(double& value);
};
