#include "feature_refusals.hpp"

#include <algorithm>
#include <stdexcept>

namespace camsim {

namespace {

std::string quoted(std::string const& text) {
    return "\"" + text + "\"";
}

/// The feature of that name among those for which `possible` holds.
/// \throws std::invalid_argument listing the names that would do
template <typename Possible>
feature& named(std::vector<feature>& features, std::string const& name, std::string const& what, Possible possible) {
    auto const found =
        std::ranges::find_if(features, [&](feature const& one) { return one.name == name && possible(one); });
    if (found != features.end()) {
        return *found;
    }
    std::string names;
    for (feature const& one : features) {
        if (possible(one)) {
            names += (names.empty() ? "" : ", ") + one.name;
        }
    }
    throw std::invalid_argument(quoted(name) + " is no " + what + "; these are: " + names);
}

/// Takes a feature out, and every mention of it in the others.
void remove(std::vector<feature>& features, std::string const& name) {
    named(features, name, "feature of this camera", [](feature const&) { return true; });
    std::erase_if(features, [&](feature const& one) { return one.name == name; });
    for (feature& one : features) {
        std::erase(one.selects, name);
        std::erase(one.invalidated_by, name);
        if (one.available_with == name) {
            one.available_with.clear();
        }
        if (one.standard && one.standard->selector == name) {
            one.standard->selector.clear();
            one.standard->stride = 0;  // what is left is the register of the first one
        }
    }
}

/// The values that a selector can take; a single one that changes nothing when nobody selects the feature.
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
    all.push_back([set = kind->set, before = kind->get()] { set(before); });  // ends with what was selected
    return all;
}

/// An entry that is not there cannot be in force: where it was, the first of the others is.
void leave_entry(std::vector<feature> const& features, std::string const& name, enumeration_kind const& kind,
                 std::int64_t refused) {
    for (auto const& select : selections(features, name)) {
        select();
        if (kind.get() == refused) {
            kind.set(kind.entries.front().value);
        }
    }
}

void refuse_entry(std::vector<feature>& features, feature_refusals::entry const& refusal) {
    feature& target = named(features, refusal.feature, "enumeration of this camera's own", [](feature const& one) {
        return std::holds_alternative<enumeration_kind>(one.kind) && !one.standard;
    });
    auto& kind = std::get<enumeration_kind>(target.kind);
    auto const found = std::ranges::find(kind.entries, refusal.name, &enumeration_entry::name);
    if (found == kind.entries.end() || kind.entries.size() == 1) {
        std::string names;
        for (enumeration_entry const& each : kind.entries) {
            names += (names.empty() ? "" : ", ") + each.name;
        }
        throw std::invalid_argument(found == kind.entries.end()
                                        ? quoted(refusal.name) + " is no entry of " + target.name +
                                              "; these are: " + names
                                        : target.name + " has no entry beside " + quoted(refusal.name));
    }
    std::int64_t const value = found->value;
    kind.entries.erase(found);
    leave_entry(features, target.name, kind, value);
}

void refuse_writes(std::vector<feature>& features, std::string const& name) {
    feature& target = named(features, name, "writable feature of this camera's own",
                            [](feature const& one) { return one.access != access_mode::read_only && !one.standard; });
    target.refuses_writes = true;
}

}  // namespace

/// Registers of the GigE Vision standard are there whatever is refused: a feature that is one can be absent from the
/// description, and no more.
///
/// \return the features that are left, as they are left
/// \throws std::invalid_argument when a name is not known, or an enumeration would be left without an entry
std::vector<feature> apply(feature_refusals const& refusals, std::vector<feature> features) {
    for (feature_refusals::entry const& one : refusals.entries) {
        refuse_entry(features, one);
    }
    for (std::string const& name : refusals.writes) {
        refuse_writes(features, name);
    }
    for (std::string const& name : refusals.absent) {
        remove(features, name);
    }
    return features;
}

}  // namespace camsim
