// SPDX-License-Identifier: MIT
#include "genicam/node_graph.hpp"

namespace openpv {

std::unique_ptr<node_graph> node_graph::load(std::string_view xml, register_port& port, std::string& error) {
    pugi::xml_document document;
    pugi::xml_parse_result const parsed = document.load_buffer(xml.data(), xml.size());
    if (!parsed) {
        error = "it cannot be parsed at byte " + std::to_string(parsed.offset) + ": " + parsed.description();
        return nullptr;
    }
    pugi::xml_node const description = document.child("RegisterDescription");
    if (!description) {
        error = "it has no RegisterDescription";
        return nullptr;
    }
    std::unique_ptr<node_graph> graph(new node_graph(port));
    node_loader loader(graph->nodes_, graph->by_name_, graph->camera_);
    if (auto const invalid = loader.load(description)) {
        error = *invalid;
        return nullptr;
    }
    return graph;
}

node* node_graph::find(std::string_view name) const {
    auto const found = by_name_.find(name);
    return found != by_name_.end() ? found->second : nullptr;
}

node* node_graph::find_usable(std::string_view name) const {
    node* const found = find(name);
    return found != nullptr && !found->is_unusable() ? found : nullptr;
}

bool is_usable(evaluation& state, node const& one, bool& usable) {
    return one.is_implemented(state, usable) && (!usable || one.is_available(state, usable));
}

bool check_access(evaluation& state, node const& one, direction wanted) {
    bool yes = false;
    constexpr std::uint32_t refused = PvResult::Code::NOT_SUPPORTED;
    if (!one.is_implemented(state, yes)) {
        return false;
    }
    if (!yes) {
        return state.fail(refused, "the camera does not implement it");
    }
    if (!one.is_available(state, yes)) {
        return false;
    }
    if (!yes) {
        return state.fail(refused, "it is not available in the camera's current state");
    }
    node_access const mode = one.access();
    if (mode == node_access::none) {
        return state.fail(refused, "it can be neither read nor written");
    }
    if (wanted == direction::read) {
        return mode != node_access::write_only || state.fail(refused, "it is write-only");
    }
    if (mode == node_access::read_only) {
        return state.fail(refused, "it is read-only");
    }
    if (!one.is_locked(state, yes)) {
        return false;
    }
    return !yes || state.fail(refused, "it is locked. Some features are locked while streaming; stop the stream first");
}

PvResult to_failure(std::string const& what, evaluation const& state) {
    return {state.code, (what + ": " + state.reason + ".").c_str()};
}

}  // namespace openpv
