// SPDX-License-Identifier: MIT
/// \file
/// PvGenParameterArray and the features.
#include <PvGenBoolean.h>
#include <PvGenCommand.h>
#include <PvGenEnum.h>
#include <PvGenFloat.h>
#include <PvGenInteger.h>
#include <PvGenString.h>

#include "scripted_objects.hpp"

using scripted::code;
using scripted::feature;
using support::journal;
using support::outside_plugin;

namespace {

template <typename... arguments>
void note(char const* operation, char const* name, char const* format = "", arguments... values) {
    char shown_values[256];
    if constexpr (sizeof...(values) == 0) {
        std::snprintf(shown_values, sizeof shown_values, "%s", format);
    } else {
        std::snprintf(shown_values, sizeof shown_values, format, values...);
    }
    journal().add("%s(%s%s)", operation, name, shown_values);
}

/// Reads a value; the output is written only if the result is OK.
template <typename value_type, typename take>
PvResult read(char const* operation, char const* name, feature& script, value_type& value, take&& value_of) {
    outside_plugin const scope;
    note(operation, name);
    if (script.before_read) {
        script.before_read(script);
    }
    if (script.read == scripted::ok) {
        value = value_of(script);
    }
    return script.read;
}

code prepare_write(feature& script) {
    if (script.before_write) {
        script.before_write(script);
    }
    return script.write;
}

std::string shown(double value) {
    char text[64];
    std::snprintf(text, sizeof text, ", %g", value);
    return text;
}

code write_integer(char const* operation, char const* name, feature& script, int64_t value) {
    outside_plugin const scope;
    note(operation, name, (", " + std::to_string(value)).c_str());
    code const result = prepare_write(script);
    if (result == scripted::ok) {
        script.integer = value;
    }
    return result;
}

code write_real(char const* operation, char const* name, feature& script, double value) {
    outside_plugin const scope;
    note(operation, name, shown(value).c_str());
    code const result = prepare_write(script);
    if (result == scripted::ok) {
        script.real = value;
    }
    return result;
}

code write_flag(char const* operation, char const* name, feature& script, bool value) {
    outside_plugin const scope;
    note(operation, name, value ? ", true" : ", false");
    code const result = prepare_write(script);
    if (result == scripted::ok) {
        script.flag = value;
    }
    return result;
}

code write_entry(char const* operation, char const* name, feature& script, std::string const& entry) {
    outside_plugin const scope;
    note(operation, name, (", " + entry).c_str());
    code const result = prepare_write(script);
    auto const value = script.entry_value(entry);
    if (result != scripted::ok) {
        return result;
    }
    if (!value) {
        return PvResult::Code::INVALID_PARAMETER;
    }
    script.integer = *value;
    return result;
}

code write_entry(char const* operation, char const* name, feature& script, int64_t value) {
    outside_plugin const scope;
    char text[64];
    std::snprintf(text, sizeof text, value > 0xFFFF ? ", 0x%08lX" : ", %ld", value);
    note(operation, name, text);
    code const result = prepare_write(script);
    if (result != scripted::ok) {
        return result;
    }
    int64_t const before = script.integer;
    script.integer = value;
    if (script.entry_name().empty()) {
        script.integer = before;
        return PvResult::Code::INVALID_PARAMETER;
    }
    return result;
}

code execute(char const* operation, char const* name, feature& script) {
    outside_plugin const scope;
    note(operation, name);
    if (script.before_write) {
        script.before_write(script);
    }
    return script.execute;
}

/// \return the feature of that name, of any type; null: there is none
feature* find(PvGenParameterArray::impl& array, PvString const& name) {
    outside_plugin const scope;
    auto const found = array.script->find(name.GetAscii());
    return found == array.script->end() ? nullptr : &found->second;
}

feature* find(PvGenParameterArray::impl& array, PvString const& name, PvGenType type) {
    auto* const script = find(array, name);
    return script != nullptr && script->type == type ? script : nullptr;
}

std::unique_ptr<PvGenParameter> make(std::string const& name, feature& script) {
    auto state = std::make_unique<PvGenParameter::impl>(PvGenParameter::impl{name, &script});
    for (auto const& [entry, value] : script.entries) {
        state->entries.push_back(std::make_unique<PvGenEnumEntry>(
            std::make_unique<PvGenEnumEntry::impl>(PvGenEnumEntry::impl{entry, value})));
    }
    switch (script.type) {
        case PvGenTypeInteger:
            return std::make_unique<PvGenInteger>(std::move(state));
        case PvGenTypeEnum:
            return std::make_unique<PvGenEnum>(std::move(state));
        case PvGenTypeBoolean:
            return std::make_unique<PvGenBoolean>(std::move(state));
        case PvGenTypeString:
            return std::make_unique<PvGenString>(std::move(state));
        case PvGenTypeCommand:
            return std::make_unique<PvGenCommand>(std::move(state));
        case PvGenTypeFloat:
            return std::make_unique<PvGenFloat>(std::move(state));
    }
    return std::make_unique<PvGenParameter>(std::move(state));
}

constexpr code absent = PvResult::Code::NOT_FOUND;

}  // namespace

PvGenParameter::PvGenParameter(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvGenParameter::~PvGenParameter() = default;
PvResult PvGenParameter::GetType(PvGenType& type) {
    type = impl_->script->type;
    return impl_->script->type_result;
}

PvResult PvGenInteger::GetValue(int64_t& value) {
    return read("PvGenInteger::GetValue", impl_->name.c_str(), *impl_->script, value,
                [](auto& f) { return f.integer; });
}
PvResult PvGenInteger::SetValue(int64_t value) {
    return write_integer("PvGenInteger::SetValue", impl_->name.c_str(), *impl_->script, value);
}
PvResult PvGenInteger::GetMin(int64_t& value) {
    note("PvGenInteger::GetMin", impl_->name.c_str());
    value = impl_->script->min;
    return impl_->script->min_result;
}
PvResult PvGenInteger::GetMax(int64_t& value) {
    note("PvGenInteger::GetMax", impl_->name.c_str());
    value = impl_->script->max;
    return impl_->script->max_result;
}
PvResult PvGenInteger::GetIncrement(int64_t& value) {
    note("PvGenInteger::GetIncrement", impl_->name.c_str());
    value = impl_->script->increment;
    return impl_->script->increment_result;
}

PvResult PvGenFloat::GetValue(double& value) {
    return read("PvGenFloat::GetValue", impl_->name.c_str(), *impl_->script, value, [](auto& f) { return f.real; });
}
PvResult PvGenFloat::SetValue(double value) {
    return write_real("PvGenFloat::SetValue", impl_->name.c_str(), *impl_->script, value);
}
PvResult PvGenFloat::GetMin(double& value) {
    note("PvGenFloat::GetMin", impl_->name.c_str());
    value = impl_->script->real_min;
    return impl_->script->min_result;
}
PvResult PvGenFloat::GetMax(double& value) {
    note("PvGenFloat::GetMax", impl_->name.c_str());
    value = impl_->script->real_max;
    return impl_->script->max_result;
}

PvResult PvGenBoolean::GetValue(bool& value) {
    return read("PvGenBoolean::GetValue", impl_->name.c_str(), *impl_->script, value, [](auto& f) { return f.flag; });
}
PvResult PvGenBoolean::SetValue(bool value) {
    return write_flag("PvGenBoolean::SetValue", impl_->name.c_str(), *impl_->script, value);
}

PvResult PvGenString::GetValue(PvString& value) {
    return read("PvGenString::GetValue", impl_->name.c_str(), *impl_->script, value,
                [](auto& f) { return PvString(f.text.c_str()); });
}

PvResult PvGenCommand::Execute() {
    return execute("Execute", impl_->name.c_str(), *impl_->script);
}

PvResult PvGenEnum::GetValue(PvString& value) {
    return read("PvGenEnum::GetValue", impl_->name.c_str(), *impl_->script, value,
                [](auto& f) { return PvString(f.entry_name().c_str()); });
}
PvResult PvGenEnum::GetValue(int64_t& value) {
    return read("PvGenEnum::GetValue", impl_->name.c_str(), *impl_->script, value, [](auto& f) { return f.integer; });
}
PvResult PvGenEnum::SetValue(PvString const& value) {
    return write_entry("PvGenEnum::SetValue", impl_->name.c_str(), *impl_->script, std::string(value.GetAscii()));
}
PvResult PvGenEnum::SetValue(int64_t value) {
    return write_entry("PvGenEnum::SetValue", impl_->name.c_str(), *impl_->script, value);
}
PvResult PvGenEnum::GetEntriesCount(int64_t& count) {
    count = static_cast<int64_t>(impl_->entries.size());
    return impl_->script->entries_result;
}
PvResult PvGenEnum::GetEntryByIndex(int64_t index, PvGenEnumEntry const** entry) {
    if (impl_->script->entry_result != scripted::ok || index < 0 ||
        static_cast<size_t>(index) >= impl_->entries.size()) {
        return PvResult::Code::INVALID_PARAMETER;
    }
    *entry = impl_->entries[static_cast<size_t>(index)].get();
    return scripted::ok;
}

PvGenEnumEntry::PvGenEnumEntry(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvGenEnumEntry::~PvGenEnumEntry() = default;
PvResult PvGenEnumEntry::GetName(PvString& name) const {
    name = impl_->name.c_str();
    return scripted::ok;
}
PvResult PvGenEnumEntry::GetValue(int64_t& value) const {
    value = impl_->value;
    return scripted::ok;
}

PvGenParameterArray::PvGenParameterArray(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvGenParameterArray::~PvGenParameterArray() = default;

PvGenParameter* PvGenParameterArray::Get(PvString const& name) {
    outside_plugin const scope;
    auto* const script = find(*impl_, name);
    if (script == nullptr) {
        return nullptr;
    }
    auto& made = impl_->parameters[name.GetAscii()];
    PvGenType type{};
    if (made == nullptr || (made->GetType(type), type != script->type)) {
        made = make(name.GetAscii(), *script);
    }
    return made.get();
}
PvGenInteger* PvGenParameterArray::GetInteger(PvString const& name) {
    return dynamic_cast<PvGenInteger*>(Get(name));
}
PvGenFloat* PvGenParameterArray::GetFloat(PvString const& name) {
    return dynamic_cast<PvGenFloat*>(Get(name));
}
PvGenEnum* PvGenParameterArray::GetEnum(PvString const& name) {
    return dynamic_cast<PvGenEnum*>(Get(name));
}
PvGenBoolean* PvGenParameterArray::GetBoolean(PvString const& name) {
    return dynamic_cast<PvGenBoolean*>(Get(name));
}
PvGenCommand* PvGenParameterArray::GetCommand(PvString const& name) {
    return dynamic_cast<PvGenCommand*>(Get(name));
}
PvGenString* PvGenParameterArray::GetString(PvString const& name) {
    return dynamic_cast<PvGenString*>(Get(name));
}

PvResult PvGenParameterArray::GetIntegerValue(PvString const& name, int64_t& value) {
    auto* const script = find(*impl_, name, PvGenTypeInteger);
    return script == nullptr
               ? PvResult(absent)
               : read("GetIntegerValue", name.GetAscii(), *script, value, [](auto& f) { return f.integer; });
}
PvResult PvGenParameterArray::SetIntegerValue(PvString const& name, int64_t value) {
    auto* const script = find(*impl_, name, PvGenTypeInteger);
    return script == nullptr ? absent : write_integer("SetIntegerValue", name.GetAscii(), *script, value);
}
PvResult PvGenParameterArray::GetFloatValue(PvString const& name, double& value) {
    auto* const script = find(*impl_, name, PvGenTypeFloat);
    return script == nullptr ? PvResult(absent)
                             : read("GetFloatValue", name.GetAscii(), *script, value, [](auto& f) { return f.real; });
}
PvResult PvGenParameterArray::SetFloatValue(PvString const& name, double value) {
    auto* const script = find(*impl_, name, PvGenTypeFloat);
    return script == nullptr ? absent : write_real("SetFloatValue", name.GetAscii(), *script, value);
}
PvResult PvGenParameterArray::GetEnumValue(PvString const& name, PvString& value) {
    auto* const script = find(*impl_, name, PvGenTypeEnum);
    return script == nullptr ? PvResult(absent) : read("GetEnumValue", name.GetAscii(), *script, value, [](auto& f) {
        return PvString(f.entry_name().c_str());
    });
}
PvResult PvGenParameterArray::GetEnumValue(PvString const& name, int64_t& value) {
    auto* const script = find(*impl_, name, PvGenTypeEnum);
    return script == nullptr ? PvResult(absent)
                             : read("GetEnumValue", name.GetAscii(), *script, value, [](auto& f) { return f.integer; });
}
PvResult PvGenParameterArray::SetEnumValue(PvString const& name, PvString const& value) {
    auto* const script = find(*impl_, name, PvGenTypeEnum);
    if (script == nullptr) {
        return absent;
    }
    outside_plugin const scope;
    return write_entry("SetEnumValue", name.GetAscii(), *script, std::string(value.GetAscii()));
}
PvResult PvGenParameterArray::SetEnumValue(PvString const& name, int64_t value) {
    auto* const script = find(*impl_, name, PvGenTypeEnum);
    return script == nullptr ? absent : write_entry("SetEnumValue", name.GetAscii(), *script, value);
}
PvResult PvGenParameterArray::GetBooleanValue(PvString const& name, bool& value) {
    auto* const script = find(*impl_, name, PvGenTypeBoolean);
    return script == nullptr ? PvResult(absent)
                             : read("GetBooleanValue", name.GetAscii(), *script, value, [](auto& f) { return f.flag; });
}
PvResult PvGenParameterArray::SetBooleanValue(PvString const& name, bool value) {
    auto* const script = find(*impl_, name, PvGenTypeBoolean);
    return script == nullptr ? absent : write_flag("SetBooleanValue", name.GetAscii(), *script, value);
}
PvResult PvGenParameterArray::GetStringValue(PvString const& name, PvString& value) {
    auto* const script = find(*impl_, name, PvGenTypeString);
    return script == nullptr ? PvResult(absent) : read("GetStringValue", name.GetAscii(), *script, value, [](auto& f) {
        return PvString(f.text.c_str());
    });
}
PvResult PvGenParameterArray::ExecuteCommand(PvString const& name) {
    auto* const script = find(*impl_, name, PvGenTypeCommand);
    return script == nullptr ? absent : execute("ExecuteCommand", name.GetAscii(), *script);
}
