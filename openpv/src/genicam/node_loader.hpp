// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Builds the nodes of a GenICam XML.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <pugixml.hpp>

#include "genicam/node.hpp"
#include "genicam/register_window.hpp"

namespace openpv {

/// Compares names without making strings of them.
struct text_hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};
using nodes_by_name = std::unordered_map<std::string, node*, text_hash, std::equal_to<>>;

/// Makes the nodes of an XML document, resolves their references, and records which node evaluates which, so that
/// references without end are found. Used once, while a graph is loaded.
class node_loader {
public:
    node_loader(std::vector<std::unique_ptr<node>>& nodes, nodes_by_name& by_name, camera_registers& camera)
        : nodes_(nodes), by_name_(by_name), camera_(camera) {}

    /// \return the reason why the document is invalid; nothing if it is valid
    std::optional<std::string> load(pugi::xml_node description);

    // For nodes, while they are linked.

    /// \return the node with this name; a missing node if the document does not contain it. The current node depends on
    /// it
    node* resolve(std::string_view name);
    /// The number that `value_tag` contains, or that of the node that `link_tag` names.
    /// \return whether the element has one of both
    template <class number>
    bool link_number(pugi::xml_node element, char const* value_tag, char const* link_tag, number_source<number>& made);
    /// Links a node that is part of another node's element, and of which the current node depends.
    void link_part(pugi::xml_node element, node& part);
    /// As `link_part`, for a formula within a register's element. \return the node
    node* add_formula(pugi::xml_node element);

    camera_registers& camera() { return camera_; }
    /// \return the port's element; null if no port has this name
    pugi::xml_node const* find_port(std::string_view name) const;
    /// Marks the current node as one that the camera does not have.
    void mark_unusable() { current_->unusable_ = true; }

private:
    struct visited {
        bool in_progress = true;
        std::uint64_t cost = 0;
        unsigned levels = 0;
    };

    void create_all(pugi::xml_node parent, unsigned depth);
    void create(pugi::xml_node element);
    void create_struct(pugi::xml_node element);
    void create_standard_nodes();
    node* add(std::unique_ptr<node> made, pugi::xml_node element);
    void link(node& one, pugi::xml_node element);
    void link_conditions(node& one, pugi::xml_node element);
    void link_invalidations();
    void invalidate(node& changing, node& dropped);
    visited check(node& one, unsigned level);
    void fail(std::string_view name, char const* what);

    pugi::xml_document standard_;  ///< elements that the camera's XML lacks
    std::vector<std::unique_ptr<node>>& nodes_;
    nodes_by_name& by_name_;
    camera_registers& camera_;
    std::vector<std::pair<node*, pugi::xml_node>> elements_;
    std::unordered_map<std::string_view, pugi::xml_node> ports_;
    std::unordered_map<node*, std::vector<node*>> dependencies_;
    std::unordered_map<node*, visited> visited_;
    node* current_ = nullptr;
    std::optional<std::string> error_;
};

/// \return 0 if `text` is not a number
template <class number>
number parse_number(std::string_view text) {
    if constexpr (std::is_same_v<number, double>) {
        return parse_double(text).value_or(0);
    } else {
        return parse_integer(text).value_or(0);
    }
}

template <class number>
bool node_loader::link_number(pugi::xml_node element, char const* value_tag, char const* link_tag,
                              number_source<number>& made) {
    if (pugi::xml_node const linked = element.child(link_tag)) {
        made.set(resolve(text_of(linked)));
        return true;
    }
    pugi::xml_node const constant = element.child(value_tag);
    if (!constant) {
        return false;
    }
    made.set(parse_number<number>(text_of(constant)));
    return true;
}

}  // namespace openpv
