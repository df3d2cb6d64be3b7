// SPDX-License-Identifier: MIT
#include <PvGenEnum.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "genicam/PvGenParameter_impl.hpp"

PvResult PvGenEnum::GetValue(PvString& value) {
    std::string name;
    PvResult const result = impl_->get_entry(name);
    if (result.IsOK()) {
        value = name.c_str();
    }
    return result;
}

PvResult PvGenEnum::GetValue(int64_t& value) {
    return impl_->get_entry(value);
}
PvResult PvGenEnum::SetValue(PvString const& value) {
    return impl_->set_entry(std::string(value.GetAscii()));
}
PvResult PvGenEnum::SetValue(int64_t value) {
    return impl_->set_entry(value);
}

PvResult PvGenEnum::GetEntriesCount(int64_t& count) {
    std::vector<PvGenEnumEntry const*> entries;
    PvResult const result = impl_->list_entries(entries);
    if (result.IsOK()) {
        count = static_cast<int64_t>(entries.size());
    }
    return result;
}

PvResult PvGenEnum::GetEntryByIndex(int64_t index, PvGenEnumEntry const** entry) {
    if (entry == nullptr) {
        return {PvResult::Code::INVALID_PARAMETER, "The entry cannot be returned: the pointer is null."};
    }
    std::vector<PvGenEnumEntry const*> entries;
    PvResult const result = impl_->list_entries(entries);
    if (!result.IsOK()) {
        return result;
    }
    if (index < 0 || index >= static_cast<int64_t>(entries.size())) {
        return {PvResult::Code::NOT_FOUND,
                ("The entry cannot be found: index " + std::to_string(index) + " is not below the " +
                 std::to_string(entries.size()) + " entries that can be set now.")
                    .c_str()};
    }
    *entry = entries[static_cast<std::size_t>(index)];
    return {};
}

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
