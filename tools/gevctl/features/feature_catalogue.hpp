// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// What a camera's GenICam XML states about its features for people.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <PvTypes.h>
#include <pugixml.hpp>

#include "genicam/node_graph.hpp"

namespace gevctl {

/// In GenICam's order: each level includes those before it.
enum class visibility { beginner, expert, guru, invisible };

/// A feature's description. It does not change while the camera runs.
struct feature_info {
    std::string name;
    PvGenType type = PvGenTypeInteger;
    std::string category;  ///< path from the root, for example `ImageFormatControl/Region`; empty: not in the tree
    std::string tooltip;
    std::string unit;
    std::string increment;       ///< `Inc` of the XML; empty: not given, or a feature of its own
    std::string representation;  ///< for example `HexNumber`; empty: not given
    visibility level = visibility::beginner;
    bool streamable = false;
    std::vector<std::string> selects;
    std::vector<std::string> selected_by;
};

/// \return for example `float`
char const* name_of(PvGenType type);
/// \return null if `text` is not a level
std::optional<visibility> parse_visibility(std::string_view text);

/// Descriptions of all features of a camera, and the category tree.
///
/// The GenICam XML is not trusted: nested categories are followed to a limit, and each feature is listed once.
class feature_catalogue {
public:
    /// \param xml valid: a graph has been loaded from it
    feature_catalogue(std::string_view xml, openpv::node_graph const& graph);

    /// Names of the features in the tree, in its order.
    std::vector<std::string> const& tree() const { return tree_; }
    /// \return null if the camera does not describe a feature of this name, also outside the tree
    feature_info const* find(std::string_view name) const;
    /// Names of all features that are similar to `name`, at most three, for error messages.
    std::vector<std::string> similar(std::string_view name) const;
    /// \param condition `pIsAvailable` or `pIsLocked`
    /// \return the features that decide over a condition of `name`, as far as the XML shows them
    std::vector<std::string> find_conditions(std::string const& name, char const* condition) const;

private:
    void index(pugi::xml_node parent, openpv::node_graph const& graph, unsigned depth);
    void add_feature(pugi::xml_node element, PvGenType type);
    void add_category(std::string const& name, std::string const& path, unsigned depth);
    void collect_conditions(std::string const& name, std::set<std::string>& visited, unsigned depth,
                            std::vector<std::string>& found) const;

    pugi::xml_document document_;
    std::map<std::string, pugi::xml_node, std::less<>> elements_;
    std::map<std::string, feature_info, std::less<>> features_;
    std::vector<std::string> order_;  ///< of the features in the XML
    std::set<std::string> visited_categories_;
    std::vector<std::string> tree_;
};

}  // namespace gevctl
