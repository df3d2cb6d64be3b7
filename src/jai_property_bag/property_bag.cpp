// SPDX-License-Identifier: MIT
#include "property_bag.hpp"

#include "errors.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_BAG";

void property_bag::setBool(property key, bool value) {
    values_.insert_or_assign(key, property_data{.asBool = value, .type = property_data::type_bool});
}

void property_bag::setInt64(property key, int64_t value) {
    values_.insert_or_assign(key, property_data{.asInt64 = value, .type = property_data::type_int64});
}

void property_bag::setDouble(property key, double value) {
    values_.insert_or_assign(key, property_data{.asDouble = value, .type = property_data::type_double});
}

/// A type other than the expected one means that the code that writes the key and the code that reads it disagree: a
/// programming error.
property_bag::property_data const* property_bag::find(property key, property_data::type_tag type) const {
    auto const found = values_.find(key);
    if (found == values_.end()) {
        return nullptr;
    }
    if (found->second.type != type) {
        MG_LOG_E("fail: external_error (property-type:%u)\n", unsigned{found->second.type});
        throw external_error();
    }
    return &found->second;
}

bool property_bag::getBool(property key, bool& value) const {
    auto const* const data = find(key, property_data::type_bool);
    if (data != nullptr) {
        value = data->asBool;
    }
    return data != nullptr;
}

bool property_bag::getInt64(property key, int64_t& value) const {
    auto const* const data = find(key, property_data::type_int64);
    if (data != nullptr) {
        value = data->asInt64;
    }
    return data != nullptr;
}

bool property_bag::getDouble(property key, double& value) const {
    auto const* const data = find(key, property_data::type_double);
    if (data != nullptr) {
        value = data->asDouble;
    }
    return data != nullptr;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
