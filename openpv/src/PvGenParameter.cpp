#include <PvGenParameter.h>

#include <utility>

#include "PvGenParameter_impl.hpp"

PvGenParameter::PvGenParameter(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvGenParameter::~PvGenParameter() = default;

PvResult PvGenParameter::GetType(PvGenType& type) {
    type = impl_->type();
    return {};
}
