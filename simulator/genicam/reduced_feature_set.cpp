// SPDX-License-Identifier: MIT
#include "genicam/reduced_feature_set.hpp"

#include <algorithm>
#include <stdexcept>

namespace camsim {

namespace {

std::string quoted(std::string const& text) {
    return "\"" + text + "\"";
}

/// Finds a feature by name among those for which `eligible` holds.
/// \throws std::invalid_argument that lists the eligible names
template <typename predicate>
feature& named(std::vector<feature>& features, std::string const& name, std::string const& what, predicate eligible) {
    auto const found =
        std::ranges::find_if(features, [&](feature const& one) { return one.name == name && eligible(one); });
    if (found != features.end()) {
        return *found;
    }
    std::string names;
    for (feature const& one : features) {
        if (eligible(one)) {
            names += (names.empty() ? "" : ", ") + one.name;
        }
    }
    throw std::invalid_argument(quoted(name) + " is not " + what + "; valid names: " + names);
}

/// Removes a feature and all references to it.
void remove(std::vector<feature>& features, std::string const& name) {
    named(features, name, "a feature of this camera", [](feature const&) { return true; });
    std::erase_if(features, [&](feature const& one) { return one.name == name; });
    for (feature& one : features) {
        std::erase(one.selects, name);
        std::erase(one.invalidated_by, name);
        if (one.available_with == name) {
            one.available_with.clear();
        }
        if (one.standard && one.standard->selector == name) {
            one.standard->selector.clear();
            one.standard->stride = 0;  // the register of the first selection remains
        }
    }
}

/// Functions that select each value of a feature's selector in turn, and finally the present one. One function that
/// does nothing if the feature has no selector.
std::vector<std::function<void()>> selections(std::vector<feature> const& features, std::string const& name) {
    auto const selector = std::ranges::find_if(
        features, [&](feature const& one) { return std::ranges::find(one.selects, name) != one.selects.end(); });
    auto const* const kind = selector == features.end() ? nullptr : std::get_if<enumeration_kind>(&selector->kind);
    if (kind == nullptr) {
        return {[] {}};
    }
    std::vector<std::function<void()>> all;
    for (enumeration_entry const& each : kind->entries) {
        all.push_back([set = kind->set, value = each.value] { set(value); });
    }
    all.push_back([set = kind->set, before = kind->get()] { set(before); });
    return all;
}

/// Sets an enumeration to its first entry wherever its value is a removed entry.
void replace_value(std::vector<feature> const& features, std::string const& name, enumeration_kind const& kind,
                   std::int64_t removed) {
    for (auto const& select : selections(features, name)) {
        select();
        if (kind.get() == removed) {
            kind.set(kind.entries.front().value);
        }
    }
}

void remove_entry(std::vector<feature>& features, reduced_feature_set::entry const& missing) {
    feature& target =
        named(features, missing.feature, "an enumeration outside the bootstrap registers",
              [](feature const& one) { return std::holds_alternative<enumeration_kind>(one.kind) && !one.standard; });
    auto& kind = std::get<enumeration_kind>(target.kind);
    auto const found = std::ranges::find(kind.entries, missing.name, &enumeration_entry::name);
    if (found == kind.entries.end() || kind.entries.size() == 1) {
        std::string names;
        for (enumeration_entry const& each : kind.entries) {
            names += (names.empty() ? "" : ", ") + each.name;
        }
        throw std::invalid_argument(
            found == kind.entries.end()
                ? quoted(missing.name) + " is not an entry of " + target.name + "; valid entries: " + names
                : quoted(missing.name) + " is the only entry of " + target.name + " and cannot be removed");
    }
    std::int64_t const value = found->value;
    kind.entries.erase(found);
    replace_value(features, target.name, kind, value);
}

void refuse_writes(std::vector<feature>& features, std::string const& name) {
    feature& target = named(features, name, "a writable feature outside the bootstrap registers",
                            [](feature const& one) { return one.access != access_mode::read_only && !one.standard; });
    target.refuses_writes = true;
}

}  // namespace

std::vector<feature> apply(reduced_feature_set const& reduction, std::vector<feature> features) {
    for (reduced_feature_set::entry const& one : reduction.missing_entries) {
        remove_entry(features, one);
    }
    for (std::string const& name : reduction.refused_writes) {
        refuse_writes(features, name);
    }
    for (std::string const& name : reduction.missing_features) {
        remove(features, name);
    }
    return features;
}

}  // namespace camsim
