#include <PvGenEnumEntry.h>

#include <utility>

#include "PvGenEnumEntry_impl.hpp"

PvGenEnumEntry::PvGenEnumEntry(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvGenEnumEntry::~PvGenEnumEntry() = default;

PvResult PvGenEnumEntry::GetName(PvString& name) const {
    name = impl_->name.c_str();
    return {};
}

PvResult PvGenEnumEntry::GetValue(int64_t& value) const {
    value = impl_->value;
    return {};
}
