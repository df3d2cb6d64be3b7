// SPDX-License-Identifier: MIT
/// \file
/// Nodes without a register or a formula of their own: Integer, Float, Boolean, Enumeration, Command, String.

#include <algorithm>
#include <deque>

#include "genicam/node.hpp"
#include "genicam/node_loader.hpp"

namespace openpv {
namespace {

/// Value of an Integer or Float: one source, or one of several that another node selects.
template <class number>
class value_choice {
public:
    void link(pugi::xml_node element, node_loader& loader) {
        has_value_ = loader.link_number(element, "Value", "pValue", value_);
        for (pugi::xml_node const copy : element.children("pValueCopy")) {
            copies_.push_back(loader.resolve(text_of(copy)));
        }
        if (has_value_ || !element.child("pIndex")) {
            return;
        }
        index_ = loader.resolve(text_of(element.child("pIndex")));
        for (char const* const tag : {"ValueIndexed", "pValueIndexed"}) {
            for (pugi::xml_node const one : element.children(tag)) {
                choice& made = choices_.emplace_back();
                made.index = parse_integer(one.attribute("Index").value()).value_or(0);
                if (*tag == 'p') {
                    made.source.set(loader.resolve(text_of(one)));
                } else {
                    made.source.set(parse_number<number>(text_of(one)));
                }
            }
        }
        has_default_ = loader.link_number(element, "ValueDefault", "pValueDefault", default_);
    }

    /// \return the source that is selected now; null, with a failure, if no source has the index
    number_source<number>* select(evaluation& state) {
        if (has_value_) {
            return &value_;
        }
        std::int64_t index = 0;
        if (index_ != nullptr && !index_->read(state, index)) {
            return nullptr;
        }
        auto const found = std::ranges::find(choices_, index, &choice::index);
        if (found != choices_.end()) {
            return &found->source;
        }
        if (!has_default_) {
            state.fail(PvResult::Code::GENERIC_ERROR, "the GenICam XML gives no value for it");
            return nullptr;
        }
        return &default_;
    }

    bool read(evaluation& state, number& value) {
        auto* const source = select(state);
        return source != nullptr && source->read(state, value);
    }

    bool write(evaluation& state, number value) {
        auto* const source = select(state);
        return source != nullptr && source->write(state, value) &&
               std::ranges::all_of(copies_, [&](node* copy) { return copy->write(state, value); });
    }

    node* source() const { return value_.source(); }

private:
    struct choice {
        std::int64_t index = 0;
        number_source<number> source;
    };

    bool has_value_ = false;
    bool has_default_ = false;
    number_source<number> value_;
    std::vector<node*> copies_;
    node* index_ = nullptr;
    std::deque<choice> choices_;
    number_source<number> default_;
};

class integer_value : public integer_node {
public:
    using integer_node::get_limits;
    using integer_node::read;

    bool read(evaluation& state, std::int64_t& value) override { return value_.read(state, value); }

    /// Limits that the XML does not give are those of the node that provides the value.
    bool get_limits(evaluation& state, integer_limits& limits) override {
        integer_limits inherited{std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), 1};
        bool const complete = has_minimum_ && has_maximum_ && has_increment_;
        if (!complete && value_.source() != nullptr && !value_.source()->get_limits(state, inherited)) {
            return false;
        }
        limits = inherited;
        return (!has_minimum_ || minimum_.read(state, limits.minimum)) &&
               (!has_maximum_ || maximum_.read(state, limits.maximum)) &&
               (!has_increment_ || increment_.read(state, limits.increment));
    }

protected:
    using integer_node::write_value;
    bool write_value(evaluation& state, std::int64_t value) override { return value_.write(state, value); }
    void link(pugi::xml_node element, node_loader& loader) override {
        value_.link(element, loader);
        has_minimum_ = loader.link_number(element, "Min", "pMin", minimum_);
        has_maximum_ = loader.link_number(element, "Max", "pMax", maximum_);
        has_increment_ = loader.link_number(element, "Inc", "pInc", increment_);
    }
    node* value_source() const override { return value_.source(); }

private:
    value_choice<std::int64_t> value_;
    number_source<std::int64_t> minimum_;
    number_source<std::int64_t> maximum_;
    number_source<std::int64_t> increment_;
    bool has_minimum_ = false;
    bool has_maximum_ = false;
    bool has_increment_ = false;
};

class float_value : public float_node {
public:
    using float_node::get_limits;
    using float_node::read;

    bool read(evaluation& state, double& value) override { return value_.read(state, value); }

    bool get_limits(evaluation& state, float_limits& limits) override {
        float_limits inherited{std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max()};
        bool const complete = has_minimum_ && has_maximum_;
        if (!complete && value_.source() != nullptr && !value_.source()->get_limits(state, inherited)) {
            return false;
        }
        limits = inherited;
        return (!has_minimum_ || minimum_.read(state, limits.minimum)) &&
               (!has_maximum_ || maximum_.read(state, limits.maximum));
    }

protected:
    using float_node::write_value;
    bool write_value(evaluation& state, double value) override { return value_.write(state, value); }
    void link(pugi::xml_node element, node_loader& loader) override {
        value_.link(element, loader);
        has_minimum_ = loader.link_number(element, "Min", "pMin", minimum_);
        has_maximum_ = loader.link_number(element, "Max", "pMax", maximum_);
    }
    node* value_source() const override { return value_.source(); }

private:
    value_choice<double> value_;
    number_source<double> minimum_;
    number_source<double> maximum_;
    bool has_minimum_ = false;
    bool has_maximum_ = false;
};

class string_value : public node {
public:
    using node::read;
    std::optional<PvGenType> type() const override { return PvGenTypeString; }
    bool read(evaluation& state, std::string& value) override {
        if (source_ != nullptr) {
            return source_->read(state, value);
        }
        value = text_;
        return true;
    }

protected:
    using node::write_value;
    bool write_value(evaluation& state, std::string const& value) override {
        return source_ != nullptr ? source_->write(state, value) : fail_as(state, "writable");
    }
    void link(pugi::xml_node element, node_loader& loader) override {
        if (pugi::xml_node const linked = element.child("pValue")) {
            source_ = loader.resolve(text_of(linked));
        }
        text_ = element.child("Value").text().get();
    }
    node* value_source() const override { return source_; }

private:
    node* source_ = nullptr;
    std::string text_;
};

/// Other elements with a name: a category, a port.
class other_node : public node {};

class missing_node : public node {
public:
    bool read(evaluation& state, std::int64_t& /*value*/) override { return missing(state); }
    bool read(evaluation& state, double& /*value*/) override { return missing(state); }
    bool read(evaluation& state, std::string& /*value*/) override { return missing(state); }
    bool get_limits(evaluation& state, integer_limits& /*limits*/) override { return missing(state); }
    bool get_limits(evaluation& state, float_limits& /*limits*/) override { return missing(state); }

protected:
    bool write_value(evaluation& state, std::int64_t /*value*/) override { return missing(state); }
    bool write_value(evaluation& state, double /*value*/) override { return missing(state); }
    bool write_value(evaluation& state, std::string const& /*value*/) override { return missing(state); }

private:
    static bool missing(evaluation& state) {
        return state.fail(PvResult::Code::GENERIC_ERROR,
                          "its value links to a node that is missing from the camera's GenICam XML");
    }
};

}  // namespace

void enumeration_node::link(pugi::xml_node element, node_loader& loader) {
    loader.link_number(element, "Value", "pValue", value_);
    for (pugi::xml_node const each : element.children("EnumEntry")) {
        auto& entry = *entries_.emplace_back(std::make_unique<enumeration_entry>());
        entry.entry_name_ = each.attribute("Name").value();
        entry.value_ = parse_integer(text_of(each.child("Value"))).value_or(0);
        loader.link_part(each, entry);
    }
}

bool boolean_node::read(evaluation& state, std::int64_t& value) {
    std::int64_t raw = 0;
    if (!value_.read(state, raw)) {
        return false;
    }
    value = raw == on_ ? 1 : 0;
    return true;
}

bool boolean_node::write_value(evaluation& state, std::int64_t value) {
    return value_.write(state, value != 0 ? on_ : off_);
}

void boolean_node::link(pugi::xml_node element, node_loader& loader) {
    on_ = parse_integer(text_of(element.child("OnValue"))).value_or(1);
    off_ = parse_integer(text_of(element.child("OffValue"))).value_or(0);
    loader.link_number(element, "Value", "pValue", value_);
    std::string_view const text = text_of(element.child("Value"));
    if (text == "true" || text == "false") {
        value_.set(text == "true" ? on_ : off_);
    }
}

bool command_node::execute(evaluation& state) {
    std::int64_t value = 0;
    return command_.read(state, value) && write(state, value);
}

void command_node::link(pugi::xml_node element, node_loader& loader) {
    loader.link_number(element, "Value", "pValue", value_);
    loader.link_number(element, "CommandValue", "pCommandValue", command_);
}

std::unique_ptr<node> make_value_node(std::string_view tag) {
    if (tag == "Integer") {
        return std::make_unique<integer_value>();
    }
    if (tag == "Float") {
        return std::make_unique<float_value>();
    }
    if (tag == "Boolean") {
        return std::make_unique<boolean_node>();
    }
    if (tag == "Enumeration") {
        return std::make_unique<enumeration_node>();
    }
    if (tag == "Command") {
        return std::make_unique<command_node>();
    }
    if (tag == "String") {
        return std::make_unique<string_value>();
    }
    return tag == "Category" || tag == "Port" ? std::make_unique<other_node>() : nullptr;
}

std::unique_ptr<node> make_missing_node() {
    return std::make_unique<missing_node>();
}

}  // namespace openpv
