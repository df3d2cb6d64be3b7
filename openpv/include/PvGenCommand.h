#pragma once
#include <cstdint>

#include <PvGenParameter.h>

class PvGenCommand : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    PvResult Execute();
};
