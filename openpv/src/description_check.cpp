#include "description_check.hpp"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "aravis_handle.hpp"

namespace openpv {
namespace {

/// References from node to node; cameras have some ten of them in a row.
constexpr unsigned most_levels = 100;
/// Nodes that one value takes, those that it takes several times counted as often.
constexpr uint64_t most_evaluations = 1'000'000;
constexpr uint64_t longest_register = 1 << 20;  ///< bytes

/// Whether a value takes that of the node referred to. Others are lists: what belongs to a category or a selector, or
/// what has to be forgotten when something is written; they may well lead in circles.
bool is_evaluated(ArvGcPropertyNodeType type) {
    switch (type) {
        case ARV_GC_PROPERTY_NODE_TYPE_P_VALUE:
        case ARV_GC_PROPERTY_NODE_TYPE_P_ADDRESS:
        case ARV_GC_PROPERTY_NODE_TYPE_P_IS_IMPLEMENTED:
        case ARV_GC_PROPERTY_NODE_TYPE_P_IS_LOCKED:
        case ARV_GC_PROPERTY_NODE_TYPE_P_IS_AVAILABLE:
        case ARV_GC_PROPERTY_NODE_TYPE_P_MINIMUM:
        case ARV_GC_PROPERTY_NODE_TYPE_P_MAXIMUM:
        case ARV_GC_PROPERTY_NODE_TYPE_P_INCREMENT:
        case ARV_GC_PROPERTY_NODE_TYPE_P_LENGTH:
        case ARV_GC_PROPERTY_NODE_TYPE_P_VARIABLE:
        case ARV_GC_PROPERTY_NODE_TYPE_P_COMMAND_VALUE:
        case ARV_GC_PROPERTY_NODE_TYPE_P_VALUE_DEFAULT:
            return true;
        default:
            return false;
    }
}

char const* name_of(ArvDomNode* node) {
    char const* const name =
        ARV_IS_GC_FEATURE_NODE(node) ? arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(node)) : nullptr;
    return name != nullptr ? name : "";
}

/// The node that a part of a feature leads to; null when it leads nowhere.
ArvDomNode* taken_by(ArvDomNode* part) {
    // A formula for a register's address may stand inside the register.
    bool const is_formula = ARV_IS_GC_SWISS_KNIFE(part) && ARV_IS_GC_REGISTER(arv_dom_node_get_parent_node(part));
    if (ARV_IS_GC_ENUM_ENTRY(part) || is_formula) {
        return part;
    }
    if (!ARV_IS_GC_PROPERTY_NODE(part)) {
        return nullptr;
    }
    auto* const property = ARV_GC_PROPERTY_NODE(part);
    bool const has_no_type =
        ARV_IS_GC_INDEX_NODE(part) || ARV_IS_GC_VALUE_INDEXED_NODE(part);  // Aravis gives them none
    if (!has_no_type && !is_evaluated(arv_gc_property_node_get_node_type(property))) {
        return nullptr;
    }
    ArvGcNode* const linked = arv_gc_property_node_get_linked_node(property);
    return linked != nullptr ? ARV_DOM_NODE(linked) : nullptr;
}

/// Calls `take(ArvDomNode*)` for each node whose value a node takes.
template <class function>
void for_each_taken(ArvDomNode* node, function&& take) {
    ArvDomNode* part = arv_dom_node_get_first_child(node);
    for (; part != nullptr; part = arv_dom_node_get_next_sibling(part)) {
        if (ArvDomNode* const taken = taken_by(part)) {
            take(taken);
        }
    }
    if (ARV_IS_GC_STRUCT_ENTRY_NODE(node)) {
        for_each_taken(arv_dom_node_get_parent_node(node), take);  // the register that it is a part of
    }
}

/// Follows every reference once.
class reference_walk {
public:
    /// The node and all inside it.
    void visit_all(ArvDomNode* node, unsigned depth = 0) {
        if (depth > most_levels) {
            return fail(node, "is nested too deep");
        }
        if (ARV_IS_GC_FEATURE_NODE(node)) {
            cost_of(node, 0);
        }
        ArvDomNode* child = arv_dom_node_get_first_child(node);
        for (; child != nullptr && !found_; child = arv_dom_node_get_next_sibling(child)) {
            visit_all(child, depth + 1);
        }
    }

    std::optional<std::string> take_found() { return std::move(found_); }

private:
    struct visited {
        bool under_way = true;
        uint64_t cost = 0;
        unsigned levels = 0;
    };

    void fail(ArvDomNode* node, char const* what) {
        if (!found_) {
            found_ = std::string("feature ") + name_of(node) + " " + what;
        }
    }

    /// \return nodes that the node's value takes, and references in a row
    visited cost_of(ArvDomNode* node, unsigned level) {
        if (level > most_levels) {
            fail(node, "takes too many others in a row");
            return {};
        }
        auto const [place, is_new] = known_.try_emplace(node);
        if (!is_new) {
            if (place->second.under_way) {
                fail(node, "takes its own value");
            }
            return place->second;
        }
        visited sum{false, 1, 0};
        for_each_taken(node, [&](ArvDomNode* taken) {
            visited const part = found_ ? visited{} : cost_of(taken, level + 1);
            sum.cost += part.cost;
            sum.levels = std::max(sum.levels, part.levels + 1);
        });
        if (sum.levels > most_levels || sum.cost > most_evaluations) {
            fail(node, "takes too many others");
        }
        return known_[node] = sum;
    }

    std::unordered_map<ArvDomNode*, visited> known_;
    std::optional<std::string> found_;
};

/// Looks at the registers that a value takes, those first that others take their lengths from.
class register_walk {
public:
    bool is_sound(ArvDomNode* node) {
        if (std::ranges::find(known_, node) != known_.end()) {
            return true;
        }
        known_.push_back(node);
        bool sound = true;
        for_each_taken(node, [&](ArvDomNode* taken) { sound = sound && is_sound(taken); });
        return sound && (!ARV_IS_GC_REGISTER(node) || has_length(ARV_GC_REGISTER(node)));
    }

private:
    static bool has_length(ArvGcRegister* one) {
        error_slot error;
        guint64 const length = arv_gc_register_get_length(one, error.out());
        return error.get() == nullptr && length > 0 && length <= longest_register;
    }

    std::vector<ArvDomNode*> known_;
};

}  // namespace

std::optional<std::string> find_endless_reference(ArvGc& description) {
    reference_walk walk;
    walk.visit_all(ARV_DOM_NODE(&description));
    return walk.take_found();
}

ArvGcFeatureNode* find_usable_feature(ArvDevice& device, std::string const& name) {
    ArvGcNode* const node = arv_device_get_feature(&device, name.c_str());
    bool const usable = node != nullptr && ARV_IS_GC_FEATURE_NODE(node) && register_walk().is_sound(ARV_DOM_NODE(node));
    return usable ? ARV_GC_FEATURE_NODE(node) : nullptr;
}

}  // namespace openpv
