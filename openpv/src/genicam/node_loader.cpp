// SPDX-License-Identifier: MIT
#include "genicam/node_loader.hpp"

#include <algorithm>

#include "genicam/register_nodes.hpp"

namespace openpv {
namespace {

/// Consecutive references. Cameras use about ten, and the stack has space for a multiple of 100.
constexpr unsigned max_levels = 100;
/// Node evaluations for one value, far more than any camera needs. A node that is reached on several paths counts
/// several times.
constexpr std::uint64_t max_evaluations = 1'000'000;

/// Bootstrap registers as features, for cameras whose XML does not describe them although the standard requires it.
/// `GevSCPSPacketSize` is that of stream channel 0; its limits admit each size that fits in a jumbo frame.
constexpr char const* standard_nodes = R"xml(
<StringReg Name="DeviceVendorName">
  <Address>0x48</Address><Length>32</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>
<StringReg Name="DeviceModelName">
  <Address>0x68</Address><Length>32</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>
<StringReg Name="DeviceVersion">
  <Address>0x88</Address><Length>32</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>
<StringReg Name="DeviceManufacturerInfo">
  <Address>0xA8</Address><Length>48</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>
<StringReg Name="DeviceID">
  <Address>0xD8</Address><Length>16</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>
<Integer Name="TLParamsLocked"><Value>0</Value><Min>0</Min><Max>1</Max></Integer>
<MaskedIntReg Name="OpenpvPacketSizeRegister">
  <Address>0xD04</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  <Cachable>NoCache</Cachable><LSB>31</LSB><MSB>16</MSB><Endianess>BigEndian</Endianess></MaskedIntReg>
<Integer Name="GevSCPSPacketSize">
  <pIsLocked>TLParamsLocked</pIsLocked><pValue>OpenpvPacketSizeRegister</pValue>
  <Min>220</Min><Max>16404</Max><Inc>4</Inc></Integer>
<Port Name="Device"/>
)xml";

bool is_schema_before_1_1(pugi::xml_node description) {
    int const major = description.attribute("SchemaMajorVersion").as_int(1);
    int const minor = description.attribute("SchemaMinorVersion").as_int(1);
    return major < 1 || (major == 1 && minor < 1);
}

}  // namespace

std::optional<std::string> node_loader::load(pugi::xml_node description) {
    camera_.uses_register_access = is_schema_before_1_1(description);
    create_all(description, 0);
    create_standard_nodes();
    for (std::size_t i = 0; i < elements_.size() && !error_; ++i) {  // formulas within registers are added meanwhile
        link(*elements_[i].first, elements_[i].second);
    }
    for (std::size_t i = 0; i < elements_.size() && !error_; ++i) {
        check(*elements_[i].first, 0);
    }
    if (!error_) {
        link_invalidations();
    }
    return std::move(error_);
}

void node_loader::fail(std::string_view name, char const* what) {
    if (!error_) {
        error_ = "feature " + std::string(name) + " " + what;
    }
}

node* node_loader::add(std::unique_ptr<node> made, pugi::xml_node element) {
    node* const added = nodes_.emplace_back(std::move(made)).get();
    added->name_ = element.attribute("Name").value();
    if (!added->name_.empty()) {
        by_name_.try_emplace(added->name_, added);
    }
    if (element) {
        elements_.emplace_back(added, element);
    }
    return added;
}

void node_loader::create_all(pugi::xml_node parent, unsigned depth) {
    for (pugi::xml_node const element : parent.children()) {
        std::string_view const tag = element.name();
        if (tag == "Group") {
            if (depth >= max_levels) {
                return fail(element.attribute("Comment").value(), "is nested more than 100 levels deep");
            }
            create_all(element, depth + 1);
        } else if (tag == "StructReg") {
            create_struct(element);
        } else {
            create(element);
        }
    }
}

void node_loader::create(pugi::xml_node element) {
    std::string_view const tag = element.name();
    if (tag == "Port") {
        ports_.try_emplace(element.attribute("Name").value(), element);
    }
    auto made = make_value_node(tag);
    made = made != nullptr ? std::move(made) : make_register_node(tag);
    made = made != nullptr ? std::move(made) : make_formula_node(tag);
    if (made != nullptr) {
        add(std::move(made), element);
    }
}

void node_loader::create_standard_nodes() {
    standard_.load_string(standard_nodes, pugi::parse_default | pugi::parse_fragment);
    for (pugi::xml_node const element : standard_.children()) {
        if (!by_name_.contains(std::string_view(element.attribute("Name").value()))) {
            create(element);
        }
    }
}

void node_loader::create_struct(pugi::xml_node element) {
    auto const window = std::make_shared<register_window>();
    node* const structure = add(make_structure(window), element);
    for (pugi::xml_node const entry : element.children("StructEntry")) {
        node* const made = add(make_structure_entry(window), entry);
        dependencies_[made].push_back(structure);
    }
}

node* node_loader::resolve(std::string_view name) {
    auto const found = by_name_.find(name);
    node* const resolved = found != by_name_.end() ? found->second : add(make_missing_node(), {});
    dependencies_[current_].push_back(resolved);
    return resolved;
}

pugi::xml_node const* node_loader::find_port(std::string_view name) const {
    auto const found = ports_.find(name);
    return found != ports_.end() ? &found->second : nullptr;
}

node* node_loader::add_formula(pugi::xml_node element) {
    node* const made = add(make_formula_node(element.name()), element);
    dependencies_[current_].push_back(made);
    return made;
}

void node_loader::link_part(pugi::xml_node element, node& part) {
    node* const outer = current_;
    link(part, element);
    current_ = outer;
    dependencies_[outer].push_back(&part);
}

void node_loader::link(node& one, pugi::xml_node element) {
    current_ = &one;
    link_conditions(one, element);
    one.link(element, *this);
}

void node_loader::link_conditions(node& one, pugi::xml_node element) {
    one.imposed_ = parse_node_access(text_of(element.child("ImposedAccessMode"))).value_or(node_access::read_write);
    auto const condition = [&](char const* tag) {
        pugi::xml_node const linked = element.child(tag);
        return linked ? resolve(text_of(linked)) : nullptr;
    };
    one.implemented_ = condition("pIsImplemented");
    one.available_ = condition("pIsAvailable");
    one.locked_ = condition("pIsLocked");
}

/// Follows each reference once, and adds up the cost of every node.
node_loader::visited node_loader::check(node& one, unsigned level) {
    if (level > max_levels) {
        fail(one.name(), "has more than 100 consecutive references");
        return {};
    }
    auto const [known, is_new] = visited_.try_emplace(&one);
    if (!is_new) {
        if (known->second.in_progress) {
            fail(one.name(), "refers to itself");
        }
        return known->second;
    }
    visited sum{false, 1, 0};
    for (node* const each : dependencies_[&one]) {
        visited const cost = error_ ? visited{} : check(*each, level + 1);
        sum.cost += cost.cost;
        sum.levels = std::max(sum.levels, cost.levels + 1);
        one.unusable_ |= each->unusable_;
    }
    if (sum.levels > max_levels || sum.cost > max_evaluations) {
        fail(one.name(), "refers to too many other nodes");
    }
    return visited_[&one] = sum;
}

/// A write of a node drops what is cached of the registers that name it as invalidator, and of the features that it
/// selects. So does a write of a node that provides its value.
void node_loader::link_invalidations() {
    for (auto const& [one, element] : elements_) {
        for (pugi::xml_node const invalidator : element.children("pInvalidator")) {
            if (auto const found = by_name_.find(text_of(invalidator)); found != by_name_.end()) {
                invalidate(*found->second, *one);
            }
        }
        for (pugi::xml_node const selected : element.children("pSelected")) {
            if (auto const found = by_name_.find(text_of(selected)); found != by_name_.end()) {
                invalidate(*one, *found->second);
            }
        }
    }
}

void node_loader::invalidate(node& changing, node& dropped) {
    node* holder = &dropped;
    while (holder != nullptr && holder->window() == nullptr) {
        holder = holder->value_source();
    }
    if (holder == nullptr) {
        return;
    }
    for (node* one = &changing; one != nullptr; one = one->value_source()) {
        one->invalidates_.push_back(holder->window());
    }
}

}  // namespace openpv
