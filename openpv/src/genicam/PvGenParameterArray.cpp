// SPDX-License-Identifier: MIT
#include <PvGenParameterArray.h>

#include <string>
#include <string_view>
#include <utility>

#include "genicam/PvGenParameter_impl.hpp"
#include "genicam/PvGenParameterArray_impl.hpp"

namespace {

std::unique_ptr<PvGenParameter> make_parameter(std::unique_ptr<PvGenParameter::impl> state) {
    switch (state->type()) {
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
    return nullptr;
}

template <class kind>
kind* find_kind(PvGenParameterArray& array, PvString const& name) {
    return dynamic_cast<kind*>(array.Get(name));
}

/// Calls `operation(kind&)` on the named parameter.
template <class kind, class function>
PvResult with(PvGenParameterArray::impl& array, PvString const& name, char const* kind_name, function&& operation) {
    PvGenParameter* any = nullptr;
    PvResult const found = array.find(name.GetAscii(), any);
    if (!found.IsOK()) {
        return found;
    }
    auto* const parameter = dynamic_cast<kind*>(any);
    if (parameter == nullptr) {
        return {PvResult::Code::NOT_FOUND, (std::string(name.GetAscii()) + " is not " + kind_name + ".").c_str()};
    }
    return operation(*parameter);
}

}  // namespace

PvResult PvGenParameterArray::impl::find(std::string_view name, PvGenParameter*& parameter) {
    std::lock_guard const lock(mutex_);
    if (auto const known = parameters_.find(name); known != parameters_.end()) {
        parameter = known->second.get();
        return {};
    }
    std::unique_ptr<PvGenParameter::impl> made;
    std::string const text(name);
    PvResult const result = make(text, made);
    if (result.IsOK()) {
        parameter = parameters_.emplace(text, make_parameter(std::move(made))).first->second.get();
    }
    return result;
}

PvGenParameterArray::PvGenParameterArray(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvGenParameterArray::~PvGenParameterArray() = default;

PvGenParameter* PvGenParameterArray::Get(PvString const& name) {
    PvGenParameter* parameter = nullptr;
    impl_->find(name.GetAscii(), parameter);
    return parameter;
}

PvGenInteger* PvGenParameterArray::GetInteger(PvString const& name) {
    return find_kind<PvGenInteger>(*this, name);
}
PvGenFloat* PvGenParameterArray::GetFloat(PvString const& name) {
    return find_kind<PvGenFloat>(*this, name);
}
PvGenEnum* PvGenParameterArray::GetEnum(PvString const& name) {
    return find_kind<PvGenEnum>(*this, name);
}
PvGenBoolean* PvGenParameterArray::GetBoolean(PvString const& name) {
    return find_kind<PvGenBoolean>(*this, name);
}
PvGenCommand* PvGenParameterArray::GetCommand(PvString const& name) {
    return find_kind<PvGenCommand>(*this, name);
}
PvGenString* PvGenParameterArray::GetString(PvString const& name) {
    return find_kind<PvGenString>(*this, name);
}

PvResult PvGenParameterArray::GetIntegerValue(PvString const& name, int64_t& value) {
    return with<PvGenInteger>(*impl_, name, "an integer", [&value](PvGenInteger& it) { return it.GetValue(value); });
}

PvResult PvGenParameterArray::SetIntegerValue(PvString const& name, int64_t value) {
    return with<PvGenInteger>(*impl_, name, "an integer", [value](PvGenInteger& it) { return it.SetValue(value); });
}

PvResult PvGenParameterArray::GetFloatValue(PvString const& name, double& value) {
    return with<PvGenFloat>(*impl_, name, "a float", [&value](PvGenFloat& it) { return it.GetValue(value); });
}

PvResult PvGenParameterArray::SetFloatValue(PvString const& name, double value) {
    return with<PvGenFloat>(*impl_, name, "a float", [value](PvGenFloat& it) { return it.SetValue(value); });
}

PvResult PvGenParameterArray::GetEnumValue(PvString const& name, PvString& value) {
    return with<PvGenEnum>(*impl_, name, "an enumeration", [&value](PvGenEnum& it) { return it.GetValue(value); });
}

PvResult PvGenParameterArray::GetEnumValue(PvString const& name, int64_t& value) {
    return with<PvGenEnum>(*impl_, name, "an enumeration", [&value](PvGenEnum& it) { return it.GetValue(value); });
}

PvResult PvGenParameterArray::SetEnumValue(PvString const& name, PvString const& value) {
    return with<PvGenEnum>(*impl_, name, "an enumeration", [&value](PvGenEnum& it) { return it.SetValue(value); });
}

PvResult PvGenParameterArray::SetEnumValue(PvString const& name, int64_t value) {
    return with<PvGenEnum>(*impl_, name, "an enumeration", [value](PvGenEnum& it) { return it.SetValue(value); });
}

PvResult PvGenParameterArray::GetBooleanValue(PvString const& name, bool& value) {
    return with<PvGenBoolean>(*impl_, name, "a boolean", [&value](PvGenBoolean& it) { return it.GetValue(value); });
}

PvResult PvGenParameterArray::SetBooleanValue(PvString const& name, bool value) {
    return with<PvGenBoolean>(*impl_, name, "a boolean", [value](PvGenBoolean& it) { return it.SetValue(value); });
}

PvResult PvGenParameterArray::GetStringValue(PvString const& name, PvString& value) {
    return with<PvGenString>(*impl_, name, "a string", [&value](PvGenString& it) { return it.GetValue(value); });
}

PvResult PvGenParameterArray::ExecuteCommand(PvString const& name) {
    return with<PvGenCommand>(*impl_, name, "a command", [](PvGenCommand& it) { return it.Execute(); });
}
