// SPDX-License-Identifier: MIT
/// \file
/// Nodes with formulas: SwissKnife, IntSwissKnife, Converter, IntConverter.

#include <algorithm>

#include "genicam/formula.hpp"
#include "genicam/node.hpp"
#include "genicam/node_loader.hpp"

namespace openpv {
namespace {

/// A variable of a formula: a property of a node.
struct variable {
    enum class property { value, minimum, maximum, increment, entry };
    node* source = nullptr;
    property which = property::value;
    std::string entry;  ///< name of an enumeration's entry

    template <class number>
    bool read(evaluation& state, number& value) const {
        if (which == property::value) {
            return source->read(state, value);
        }
        if (which == property::entry) {
            return read_entry(state, value);
        }
        if constexpr (std::is_same_v<number, double>) {
            if (which != property::increment) {
                node::float_limits limits;
                bool const known = source->get_limits(state, limits);
                value = which == property::minimum ? limits.minimum : limits.maximum;
                return known;
            }
        }
        node::integer_limits limits;
        bool const known = source->get_limits(state, limits);
        value = static_cast<number>(which == property::minimum   ? limits.minimum
                                    : which == property::maximum ? limits.maximum
                                                                 : limits.increment);
        return known;
    }

private:
    template <class number>
    bool read_entry(evaluation& state, number& value) const {
        if (auto* const enumeration = dynamic_cast<enumeration_node*>(source)) {
            for (auto const& each : enumeration->entries()) {
                if (each->entry_name() == entry) {
                    value = static_cast<number>(each->value());
                    return true;
                }
            }
        }
        return state.fail(PvResult::Code::GENERIC_ERROR,
                          "a formula uses the entry " + entry + ", which does not exist");
    }
};

/// A formula with its variables, constants and sub-expressions.
class linked_formula {
public:
    /// \param input name of a variable that each evaluation gives, FROM or TO; null without one
    void link(pugi::xml_node element, char const* formula_tag, char const* input, node_loader& loader) {
        formula_symbols symbols;
        bool doubles = false;
        for (pugi::xml_node const each : element.children("pVariable")) {
            std::string const& name = symbols.variables.emplace_back(each.attribute("Name").value());
            variable& made = variables_.emplace_back(parse_variable(name));
            made.source = loader.resolve(text_of(each));
            doubles |= made.source->is_float();
        }
        for (char const* const tag : {"Constant", "Expression"}) {
            for (pugi::xml_node const each : element.children(tag)) {
                symbols.expressions.emplace_back(each.attribute("Name").value(), text_of(each));
            }
        }
        if (input != nullptr) {
            symbols.variables.emplace_back(input);
        }
        formula_ = formula::compile(text_of(element.child(formula_tag)), symbols, error_);
        if (doubles) {
            formula_.use_doubles();
        }
    }

    void use_doubles() { formula_.use_doubles(); }

    /// \param why receives the reason if the formula failed, null if a variable did; then `state` has the reason
    template <class number, class argument>
    bool evaluate(evaluation& state, argument const& input, number& result, char const*& why) const {
        why = error_.c_str();
        if (!error_.empty()) {
            return false;
        }
        inputs<argument> all(state, variables_, input);
        return formula_.evaluate(all, result, why);
    }

    template <class number, class argument>
    bool evaluate(evaluation& state, std::string const& name, argument const& input, number& result) const {
        char const* why = nullptr;
        if (evaluate(state, input, result, why)) {
            return true;
        }
        return why == nullptr
                   ? false
                   : state.fail(PvResult::Code::GENERIC_ERROR,
                                "the formula of " + (name.empty() ? "its register" : name) + " failed: " + why);
    }

private:
    template <class argument>
    class inputs final : public formula_variables {
    public:
        inputs(evaluation& state, std::vector<variable> const& variables, argument const& input)
            : state_(state), variables_(variables), input_(input) {}
        bool load(std::size_t index, std::int64_t& value) override { return load_any(index, value); }
        bool load(std::size_t index, double& value) override { return load_any(index, value); }

    private:
        template <class number>
        bool load_any(std::size_t index, number& value) {
            return index < variables_.size() ? variables_[index].read(state_, value) : input_(state_, value);
        }

        evaluation& state_;
        std::vector<variable> const& variables_;
        argument const& input_;
    };

    static variable parse_variable(std::string const& name) {
        variable made;
        std::size_t const dot = name.find('.');
        std::string const suffix = dot != std::string::npos ? name.substr(dot) : "";
        if (suffix == ".Min") {
            made.which = variable::property::minimum;
        } else if (suffix == ".Max") {
            made.which = variable::property::maximum;
        } else if (suffix == ".Inc") {
            made.which = variable::property::increment;
        } else if (suffix.starts_with(".Enum.")) {
            made.which = variable::property::entry;
            made.entry = suffix.substr(6);
        }
        return made;
    }

    std::vector<variable> variables_;
    formula formula_;
    std::string error_ = "it is missing";
};

/// For formulas without an argument.
struct no_input {
    template <class number>
    bool operator()(evaluation& /*state*/, number& /*value*/) const {
        return false;
    }
};

template <class number>
struct given_input {
    number given;
    template <class type>
    bool operator()(evaluation& state, type& value) const {
        if constexpr (std::is_same_v<type, std::int64_t> && std::is_same_v<number, double>) {
            return to_integer(state, given, value);
        } else {
            value = static_cast<type>(given);
            return true;
        }
    }
};

struct node_input {
    node* source;
    template <class type>
    bool operator()(evaluation& state, type& value) const {
        return source->read(state, value);
    }
};

template <class base, class number>
class swiss_knife : public base {
public:
    using base::read;
    bool read(evaluation& state, number& value) override {
        return formula_.evaluate(state, this->name(), no_input{}, value);
    }

protected:
    void link(pugi::xml_node element, node_loader& loader) override {
        formula_.link(element, "Formula", nullptr, loader);
    }
    node_access own_access() const override { return node_access::read_only; }

private:
    linked_formula formula_;
};

template <class base, class number, class limits_type>
class converter : public base {
public:
    using base::get_limits;
    using base::read;

    bool read(evaluation& state, number& value) override {
        return has_value(state) && from_node_.evaluate(state, this->name(), node_input{value_}, value);
    }

    /// The converted limits of the value, in order. A limit that cannot be converted is that of the type.
    bool get_limits(evaluation& state, limits_type& limits) override {
        limits_type unlimited;
        unlimited.minimum = std::numeric_limits<number>::lowest();
        unlimited.maximum = std::numeric_limits<number>::max();
        limits_type source;
        if (!has_value(state) || !value_->get_limits(state, source)) {
            return false;
        }
        limits = unlimited;
        if (source.minimum == unlimited.minimum || source.maximum == unlimited.maximum) {
            return true;
        }
        number first{};
        number last{};
        char const* why = nullptr;
        if (!from_node_.evaluate(state, given_input<number>{source.minimum}, first, why) ||
            !from_node_.evaluate(state, given_input<number>{source.maximum}, last, why)) {
            return why != nullptr;
        }
        limits.minimum = std::min(first, last);
        limits.maximum = std::max(first, last);
        return true;
    }

protected:
    using base::write_value;
    bool write_value(evaluation& state, number value) override {
        number converted{};
        return has_value(state) && to_node_.evaluate(state, this->name(), given_input<number>{value}, converted) &&
               value_->write(state, converted);
    }

    void link(pugi::xml_node element, node_loader& loader) override {
        if (pugi::xml_node const linked = element.child("pValue")) {
            value_ = loader.resolve(text_of(linked));
        }
        from_node_.link(element, "FormulaFrom", "TO", loader);
        to_node_.link(element, "FormulaTo", "FROM", loader);
        if (value_ != nullptr && value_->is_float()) {
            from_node_.use_doubles();
        }
    }
    node* value_source() const override { return value_; }

private:
    bool has_value(evaluation& state) const {
        return value_ != nullptr || state.fail(PvResult::Code::GENERIC_ERROR, "the GenICam XML gives no value for it");
    }

    node* value_ = nullptr;
    linked_formula from_node_;
    linked_formula to_node_;
};

}  // namespace

std::unique_ptr<node> make_formula_node(std::string_view tag) {
    if (tag == "SwissKnife") {
        return std::make_unique<swiss_knife<float_node, double>>();
    }
    if (tag == "IntSwissKnife") {
        return std::make_unique<swiss_knife<integer_node, std::int64_t>>();
    }
    if (tag == "Converter") {
        return std::make_unique<converter<float_node, double, node::float_limits>>();
    }
    if (tag == "IntConverter") {
        return std::make_unique<converter<integer_node, std::int64_t, node::integer_limits>>();
    }
    return nullptr;
}

}  // namespace openpv
