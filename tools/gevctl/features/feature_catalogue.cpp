// SPDX-License-Identifier: MIT
#include "features/feature_catalogue.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <numeric>

namespace gevctl {

namespace {

using openpv::text_of;

/// Bounds recursion over groups, categories and conditions of an XML that nobody has checked. Cameras use about five.
constexpr unsigned max_depth = 50;
/// Features that an explanation names.
constexpr std::size_t max_conditions = 4;

/// \param parent path of the category that contains `name`; empty: the root
std::string path_of(std::string const& parent, std::string const& name) {
    return parent.empty() ? name : parent + "/" + name;
}

struct level_name {
    char const* in_xml;
    char const* in_options;
    visibility level;
};
constexpr std::array level_names{
    level_name{"Beginner", "beginner", visibility::beginner},
    level_name{"Expert", "expert", visibility::expert},
    level_name{"Guru", "guru", visibility::guru},
    level_name{"Invisible", "invisible", visibility::invisible},
};

visibility level_of(pugi::xml_node element) {
    std::string_view const text = text_of(element.child("Visibility"));
    auto const* const found = std::ranges::find(level_names, text, &level_name::in_xml);
    return found != level_names.end() ? found->level : visibility::beginner;
}

std::string lower(std::string_view text) {
    std::string made(text);
    std::ranges::transform(made, made.begin(), [](unsigned char each) { return std::tolower(each); });
    return made;
}

/// A longer text is not a mistyped name.
constexpr std::size_t max_similar_length = 100;

/// Edits that turn one text into the other. Both are at most `max_similar_length` long.
std::size_t distance(std::string_view one, std::string_view other) {
    std::array<std::size_t, max_similar_length + 1> row{};
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            std::size_t const replaced = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row[other.size()];
}

}  // namespace

char const* name_of(PvGenType type) {
    switch (type) {
        case PvGenTypeInteger:
            return "integer";
        case PvGenTypeEnum:
            return "enumeration";
        case PvGenTypeBoolean:
            return "boolean";
        case PvGenTypeString:
            return "string";
        case PvGenTypeCommand:
            return "command";
        case PvGenTypeFloat:
            return "float";
    }
    return "unknown";
}

std::optional<visibility> parse_visibility(std::string_view text) {
    auto const* const found = std::ranges::find(level_names, text, &level_name::in_options);
    return found != level_names.end() ? std::optional(found->level) : std::nullopt;
}

feature_catalogue::feature_catalogue(std::string_view xml, openpv::node_graph const& graph) {
    document_.load_buffer(xml.data(), xml.size());
    index(document_.child("RegisterDescription"), graph, 0);
    for (std::string const& name : order_) {
        for (std::string const& selected : features_.find(name)->second.selects) {
            if (auto const found = features_.find(selected); found != features_.end()) {
                found->second.selected_by.push_back(name);
            }
        }
    }
    add_category("Root", "", 0);
}

void feature_catalogue::index(pugi::xml_node parent, openpv::node_graph const& graph, unsigned depth) {
    for (pugi::xml_node const element : parent.children()) {
        std::string_view const tag = element.name();
        if ((tag == "Group" || tag == "StructReg") && depth < max_depth) {
            index(element, graph, depth + 1);
        }
        std::string const name = element.attribute("Name").value();
        if (name.empty() || !elements_.try_emplace(name, element).second) {
            continue;
        }
        openpv::node const* const node = graph.find_usable(name);
        if (auto const type = node != nullptr ? node->type() : std::nullopt) {
            add_feature(element, *type);
        }
    }
}

void feature_catalogue::add_feature(pugi::xml_node element, PvGenType type) {
    feature_info one;
    one.name = element.attribute("Name").value();
    one.type = type;
    one.tooltip = text_of(element.child("ToolTip"));
    if (one.tooltip.empty()) {
        one.tooltip = text_of(element.child("Description"));
    }
    one.unit = text_of(element.child("Unit"));
    one.increment = text_of(element.child("Inc"));
    one.representation = text_of(element.child("Representation"));
    one.level = level_of(element);
    one.streamable = text_of(element.child("Streamable")) == "Yes";
    for (pugi::xml_node const selected : element.children("pSelected")) {
        one.selects.emplace_back(text_of(selected));
    }
    order_.push_back(one.name);
    features_.emplace(one.name, std::move(one));
}

void feature_catalogue::add_category(std::string const& name, std::string const& path, unsigned depth) {
    auto const category = elements_.find(name);
    if (category == elements_.end() || depth >= max_depth || !visited_categories_.insert(name).second) {
        return;
    }
    for (pugi::xml_node const child : category->second.children("pFeature")) {
        std::string const child_name(text_of(child));
        auto const element = elements_.find(child_name);
        if (element != elements_.end() && std::string_view(element->second.name()) == "Category") {
            add_category(child_name, path_of(path, child_name), depth + 1);
        } else if (auto const one = features_.find(child_name);
                   one != features_.end() && one->second.category.empty()) {
            one->second.category = path.empty() ? "Root" : path;
            tree_.push_back(child_name);
        }
    }
}

feature_info const* feature_catalogue::find(std::string_view name) const {
    auto const found = features_.find(name);
    return found != features_.end() ? &found->second : nullptr;
}

std::vector<std::string> feature_catalogue::similar(std::string_view name) const {
    constexpr std::size_t max_names = 3;
    std::string const wanted = lower(name.substr(0, max_similar_length));
    std::vector<std::pair<std::size_t, std::string>> near;
    for (std::string const& each : tree_) {
        std::string const candidate = lower(each).substr(0, max_similar_length);
        std::size_t const edits = distance(wanted, candidate);
        bool const contained = wanted.size() > 3 && candidate.find(wanted) != std::string::npos;
        if (edits <= 1 + wanted.size() / 4 || contained) {
            near.emplace_back(contained ? 1 : edits, each);
        }
    }
    std::ranges::stable_sort(near, {}, &std::pair<std::size_t, std::string>::first);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < std::min(near.size(), max_names); ++i) {
        names.push_back(near[i].second);
    }
    return names;
}

std::vector<std::string> feature_catalogue::find_conditions(std::string const& name, char const* condition) const {
    std::vector<std::string> found;
    std::set<std::string> visited;
    auto element = elements_.find(name);
    // The condition is the feature's own, or that of the node that provides its value.
    while (element != elements_.end() && found.empty() && visited.insert(element->first).second) {
        for (pugi::xml_node const linked : element->second.children(condition)) {
            collect_conditions(std::string(text_of(linked)), visited, 0, found);
        }
        element = elements_.find(text_of(element->second.child("pValue")));
    }
    return found;
}

/// Follows formulas to features that people know.
void feature_catalogue::collect_conditions(std::string const& name, std::set<std::string>& visited, unsigned depth,
                                           std::vector<std::string>& found) const {
    auto const element = elements_.find(name);
    if (element == elements_.end() || depth >= max_depth || found.size() >= max_conditions ||
        !visited.insert(name).second) {
        return;
    }
    auto const known = features_.find(name);
    bool const is_formula = static_cast<bool>(element->second.child("Formula"));
    bool const is_register = static_cast<bool>(element->second.child("pPort"));
    if (known != features_.end() && (!known->second.category.empty() || (!is_formula && !is_register))) {
        found.push_back(name);
        return;
    }
    for (pugi::xml_node const part : element->second.children()) {
        std::string_view const tag = part.name();
        if (tag == "pVariable" || tag == "pValue") {
            collect_conditions(std::string(text_of(part)), visited, depth + 1, found);
        }
    }
}

}  // namespace gevctl
