// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Nodes of a camera's GenICam XML, resolved for evaluation.

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <PvResult.h>
#include <PvTypes.h>
#include <pugixml.hpp>

#include "genicam/PvGenParameter_impl.hpp"

namespace openpv {

class node;
class node_loader;
class register_window;

/// One use of a node: how to evaluate, and why it failed. A value on the caller's stack, so that threads may evaluate
/// the same node at once.
struct evaluation {
    bool uncached = false;                    ///< reads every register from the camera
    std::uint32_t code = PvResult::Code::OK;  ///< of `PvResult::Code`
    std::string reason;                       ///< of the first failure, without full stop

    /// Records a failure, unless there is one already. \return false
    bool fail(std::uint32_t failure, std::string why) {
        if (code == PvResult::Code::OK) {
            code = failure;
            reason = std::move(why);
        }
        return false;
    }
};

/// Access mode as bits, so that a feature's mode is the intersection of the modes of its nodes.
enum class node_access : std::uint8_t { none = 0, read_only = 1, write_only = 2, read_write = 3 };
constexpr node_access operator&(node_access one, node_access other) {
    return static_cast<node_access>(static_cast<unsigned>(one) & static_cast<unsigned>(other));
}
/// \return nothing for a text that is not an access mode
std::optional<node_access> parse_node_access(std::string_view text);

/// \param text decimal, or hexadecimal with prefix 0x; saturates outside the 64-bit range
/// \return nothing for a text that is not an integer
std::optional<std::int64_t> parse_integer(std::string_view text);
std::optional<double> parse_double(std::string_view text);
/// Without spaces at both ends. Valid as long as the XML document.
std::string_view text_of(pugi::xml_node element);

/// Truncates; fails for values that no 64-bit integer has.
bool to_integer(evaluation& state, double value, std::int64_t& whole);
/// As `to_integer`, but rounds to the nearest integer.
bool to_nearest_integer(evaluation& state, double value, std::int64_t& whole);

/// Part of a feature's evaluation: a feature, a register, a formula.
///
/// Nodes refer to each other by pointers, which the graph resolves when it is loaded; the graph owns them. After
/// loading, nodes do not change except for cached register contents and values that the XML itself contains; both are
/// thread-safe. Operations return whether they succeeded; the reason of a failure is in the `evaluation`.
class node {
public:
    using integer_limits = PvGenParameter::impl::integer_limits;
    using float_limits = PvGenParameter::impl::float_limits;

    node() = default;
    node(node const&) = delete;
    node& operator=(node const&) = delete;
    virtual ~node() = default;

    std::string const& name() const { return name_; }  ///< empty for a node without a name
    /// \return nothing if the node is not a feature, for example a category
    virtual std::optional<PvGenType> type() const { return std::nullopt; }
    virtual bool is_float() const { return false; }  ///< whether its value is a double

    virtual bool read(evaluation& state, std::int64_t& value);
    virtual bool read(evaluation& state, double& value);
    virtual bool read(evaluation& state, std::string& value);
    /// Writes the value, and drops the cached registers that it invalidates. Checks the limits of registers only.
    bool write(evaluation& state, std::int64_t value);
    bool write(evaluation& state, double value);
    bool write(evaluation& state, std::string const& value);

    virtual bool get_limits(evaluation& state, integer_limits& limits);
    virtual bool get_limits(evaluation& state, float_limits& limits);

    /// Whether this node, and each node that provides its value, is implemented, available, or locked.
    bool is_implemented(evaluation& state, bool& value) const;
    bool is_available(evaluation& state, bool& value) const;
    bool is_locked(evaluation& state, bool& value) const;
    node_access access() const;

    /// Whether a register that it depends on has an invalid length. Then the camera does not have the feature.
    bool is_unusable() const { return unusable_; }

protected:
    virtual bool write_value(evaluation& state, std::int64_t value);
    virtual bool write_value(evaluation& state, double value);
    virtual bool write_value(evaluation& state, std::string const& value);
    /// Reads what the node's element contains, and resolves its references.
    virtual void link(pugi::xml_node /*element*/, node_loader& /*loader*/) {}
    virtual node* value_source() const { return nullptr; }  ///< the node that `pValue` names
    virtual node_access own_access() const { return node_access::read_write; }
    virtual register_window* window() { return nullptr; }  ///< the register that contains the value

    bool fail_as(evaluation& state, char const* what) const;

private:
    friend class node_loader;

    bool state_of(evaluation& state, node* node::*condition, bool without, bool& value) const;
    void changed() const;

    std::string name_;
    node_access imposed_ = node_access::read_write;
    node* implemented_ = nullptr;
    node* available_ = nullptr;
    node* locked_ = nullptr;
    bool unusable_ = false;
    std::vector<register_window*> invalidates_;  ///< whose cached content a write makes invalid
};

/// A node whose value is an integer. Its double is the same number.
class integer_node : public node {
public:
    using node::get_limits;
    using node::read;
    std::optional<PvGenType> type() const override { return PvGenTypeInteger; }
    bool read(evaluation& state, double& value) override;
    bool get_limits(evaluation& state, float_limits& limits) override;

protected:
    using node::write_value;
    bool write_value(evaluation& state, double value) override;
};

/// A node whose value is a double. Its integer is truncated.
class float_node : public node {
public:
    using node::get_limits;
    using node::read;
    std::optional<PvGenType> type() const override { return PvGenTypeFloat; }
    bool is_float() const override { return true; }
    bool read(evaluation& state, std::int64_t& value) override;
    bool get_limits(evaluation& state, integer_limits& limits) override;

protected:
    using node::write_value;
    bool write_value(evaluation& state, std::int64_t value) override;
};

/// A number of a node: a constant, a local value, or the value of another node.
template <class number>
class number_source {
public:
    bool read(evaluation& state, number& value) const {
        if (source_ != nullptr) {
            return source_->read(state, value);
        }
        value = local_;
        return true;
    }
    bool write(evaluation& state, number value) {
        if (source_ != nullptr) {
            return source_->write(state, value);
        }
        local_ = value;
        return true;
    }

    void set(number value) { local_ = value; }
    void set(node* source) { source_ = source; }
    node* source() const { return source_; }

private:
    node* source_ = nullptr;
    std::atomic<number> local_{};
};

/// Entry of an enumeration. Only the enumeration uses it.
class enumeration_entry : public node {
public:
    std::int64_t value() const { return value_; }
    std::string const& entry_name() const { return entry_name_; }

private:
    friend class enumeration_node;
    std::string entry_name_;
    std::int64_t value_ = 0;
};

class enumeration_node : public integer_node {
public:
    using integer_node::read;
    std::optional<PvGenType> type() const override { return PvGenTypeEnum; }
    bool read(evaluation& state, std::int64_t& value) override { return value_.read(state, value); }
    /// In the order of the GenICam XML.
    std::vector<std::unique_ptr<enumeration_entry>> const& entries() const { return entries_; }

protected:
    using integer_node::write_value;
    bool write_value(evaluation& state, std::int64_t value) override { return value_.write(state, value); }
    void link(pugi::xml_node element, node_loader& loader) override;
    node* value_source() const override { return value_.source(); }

private:
    number_source<std::int64_t> value_;
    std::vector<std::unique_ptr<enumeration_entry>> entries_;
};

class boolean_node : public integer_node {
public:
    using integer_node::read;
    std::optional<PvGenType> type() const override { return PvGenTypeBoolean; }
    bool read(evaluation& state, std::int64_t& value) override;  ///< 1 if it is true, else 0

protected:
    using integer_node::write_value;
    bool write_value(evaluation& state, std::int64_t value) override;
    void link(pugi::xml_node element, node_loader& loader) override;
    node* value_source() const override { return value_.source(); }

private:
    number_source<std::int64_t> value_;
    std::int64_t on_ = 1;
    std::int64_t off_ = 0;
};

class command_node : public node {
public:
    std::optional<PvGenType> type() const override { return PvGenTypeCommand; }
    bool execute(evaluation& state);

protected:
    using node::write_value;
    bool write_value(evaluation& state, std::int64_t value) override { return value_.write(state, value); }
    void link(pugi::xml_node element, node_loader& loader) override;
    node* value_source() const override { return value_.source(); }

private:
    number_source<std::int64_t> value_;
    number_source<std::int64_t> command_;
};

/// \return a node for an element with this tag, for example "Integer"; null for other elements
std::unique_ptr<node> make_value_node(std::string_view tag);
std::unique_ptr<node> make_formula_node(std::string_view tag);
/// A node in place of one that the GenICam XML refers to and does not contain. Its operations fail.
std::unique_ptr<node> make_missing_node();

}  // namespace openpv
