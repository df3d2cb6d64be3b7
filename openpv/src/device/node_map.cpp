// SPDX-License-Identifier: MIT
#include "device/node_map.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "genicam/node_graph.hpp"
#include "genicam/PvGenParameter_impl.hpp"
#include "genicam/PvGenParameterArray_impl.hpp"
#include "genicam/value_limits.hpp"

namespace openpv {
namespace {

/// Whether the camera changes the value continuously. Some GenICam XMLs declare such features cachable.
bool is_volatile(std::string const& name) {
    return name == "GevTimestampValue" || name == "DeviceTemperature";
}

/// Base of the camera's parameters: finds the node, checks access, translates failures.
class camera_feature : public PvGenParameter::impl {
public:
    camera_feature(std::shared_ptr<camera_link> link, std::string name)
        : link_(std::move(link)), name_(std::move(name)), volatile_(is_volatile(name_)) {}

protected:
    /// Calls `operation(node&, evaluation&)`, which returns whether it succeeded.
    /// \param verb called after a failure only: returns the end of the sentence, "cannot be read"
    template <class verb_function, class function>
    PvResult access(direction wanted, verb_function&& verb, function&& operation) {
        auto const session = link_->session();
        auto const what = [&] { return name_ + " " + verb(); };
        if (!session || !session->alive()) {
            return camera_session::not_connected(what());
        }
        node* const found = session->features().find_usable(name_);
        if (found == nullptr) {
            return {PvResult::Code::NOT_FOUND, (what() + ": the camera does not have this feature.").c_str()};
        }
        evaluation state;
        state.uncached = volatile_ && wanted == direction::read;
        if (check_access(state, *found, wanted) && operation(*found, state)) {
            return {};
        }
        return session->alive() ? to_failure(what(), state) : camera_session::not_connected(what());
    }

    /// `value` is unchanged on failure.
    template <class value_type, class function>
    PvResult read(value_type& value, function&& get) {
        value_type got{};
        PvResult const result = access(
            direction::read, [] { return std::string("cannot be read"); },
            [&](node& from, evaluation& state) { return get(from, state, got); });
        if (result.IsOK()) {
            value = std::move(got);
        }
        return result;
    }

    template <class value_type>
    PvResult read(value_type& value) {
        return read(value, [](node& from, evaluation& state, value_type& got) { return from.read(state, got); });
    }

    template <class limits_type>
    PvResult read_limits(limits_type& limits) {
        return read(limits, [](node& of, evaluation& state, limits_type& got) { return of.get_limits(state, got); });
    }

    /// Checks limits before it writes.
    template <class limits_type, class number>
    PvResult write_within_limits(number value) {
        return access(
            direction::write, [value] { return "cannot be set to " + to_text(value); },
            [&](node& to, evaluation& state) {
                limits_type limits;
                return to.get_limits(state, limits) && is_within(limits, value, state) && to.write(state, value);
            });
    }

    std::string const& name() const { return name_; }
    camera_link& link() { return *link_; }

private:
    static std::string to_text(std::int64_t value) { return std::to_string(value); }
    static std::string to_text(double value) { return number_to_text(value); }

    template <class limits_type, class number>
    static bool is_within(limits_type const& limits, number value, evaluation& state) {
        std::string const reason = find_limit_error(value, limits);
        return reason.empty() || state.fail(PvResult::Code::INVALID_PARAMETER, reason);
    }

    std::shared_ptr<camera_link> link_;
    std::string name_;
    bool volatile_;
};

class camera_integer : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeInteger; }

    PvResult get_integer(std::int64_t& value) override { return read(value); }

    PvResult set_integer(std::int64_t value) override {
        PvResult const result = write_within_limits<integer_limits>(value);
        if (result.IsOK() && name() == "GevSCPSPacketSize") {
            link().packet_size_chosen(true);
        }
        return result;
    }

    PvResult get_integer_limits(integer_limits& limits) override { return read_limits(limits); }
};

class camera_float : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeFloat; }

    PvResult get_float(double& value) override { return read(value); }
    PvResult set_float(double value) override { return write_within_limits<float_limits>(value); }
    PvResult get_float_limits(float_limits& limits) override { return read_limits(limits); }
};

class camera_boolean : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeBoolean; }

    PvResult get_boolean(bool& value) override {
        std::int64_t number = 0;
        PvResult const result = read(number);
        if (result.IsOK()) {
            value = number != 0;
        }
        return result;
    }

    PvResult set_boolean(bool value) override {
        return access(
            direction::write, [value] { return std::string("cannot be set to ") + (value ? "true" : "false"); },
            [value](node& to, evaluation& state) { return to.write(state, std::int64_t{value}); });
    }
};

class camera_command : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeCommand; }

    PvResult execute() override {
        return access(
            direction::write, [] { return std::string("cannot be executed"); },
            [](node& command, evaluation& state) {
                auto* const one = dynamic_cast<command_node*>(&command);
                return one != nullptr && one->execute(state);
            });
    }
};

class camera_string : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeString; }
    PvResult get_string(std::string& value) override { return read(value); }
};

class camera_enumeration : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeEnum; }

    PvResult get_entry(std::string& name) override {
        return read(name, [](node& from, evaluation& state, std::string& got) {
            std::int64_t value = 0;
            if (!from.read(state, value)) {
                return false;
            }
            for (auto const& each : entries_of(from)) {
                if (each->value() == value) {
                    got = each->entry_name();
                    return true;
                }
            }
            return state.fail(PvResult::Code::GENERIC_ERROR, "its value matches none of its entries");
        });
    }

    PvResult get_entry(std::int64_t& value) override { return read(value); }

    PvResult set_entry(std::string const& name) override {
        return set_matching(name, [&name](enumeration_entry const& each) { return each.entry_name() == name; });
    }

    PvResult set_entry(std::int64_t value) override {
        return set_matching(std::to_string(value),
                            [value](enumeration_entry const& each) { return each.value() == value; });
    }

    PvResult list_entries(std::vector<PvGenEnumEntry const*>& entries) override {
        using usable_entries = std::vector<entry_key>;
        usable_entries usable;
        PvResult const result = read(usable, [](node& from, evaluation& state, usable_entries& got) {
            for (auto const& each : entries_of(from)) {
                bool yes = false;
                if (!is_usable(state, *each, yes)) {
                    return false;
                }
                if (yes) {
                    got.emplace_back(each->entry_name(), each->value());
                }
            }
            return true;
        });
        if (result.IsOK()) {
            entries.clear();
            for (entry_key const& each : usable) {
                entries.push_back(persistent_entry(each));
            }
        }
        return result;
    }

private:
    using entry_key = std::pair<std::string, std::int64_t>;  ///< name and value

    static std::vector<std::unique_ptr<enumeration_entry>> const& entries_of(node& from) {
        static std::vector<std::unique_ptr<enumeration_entry>> const none;
        auto* const enumeration = dynamic_cast<enumeration_node*>(&from);
        return enumeration != nullptr ? enumeration->entries() : none;
    }

    template <class function>
    PvResult set_matching(std::string const& wanted, function&& matches) {
        return access(
            direction::write, [&wanted] { return "cannot be set to " + wanted; },
            [&](node& to, evaluation& state) {
                for (auto const& each : entries_of(to)) {
                    if (matches(*each)) {
                        return set(to, *each, state);
                    }
                }
                return state.fail(PvResult::Code::INVALID_PARAMETER, "the enumeration does not have this entry");
            });
    }

    static bool set(node& to, enumeration_entry const& chosen, evaluation& state) {
        bool usable = false;
        if (!is_usable(state, chosen, usable)) {
            return false;
        }
        if (!usable) {
            return state.fail(PvResult::Code::INVALID_PARAMETER,
                              "the entry is not available in the camera's current state");
        }
        return to.write(state, chosen.value());
    }

    /// \return the public object of an entry; it lives as long as this feature
    PvGenEnumEntry const* persistent_entry(entry_key const& wanted) {
        std::lock_guard const lock(mutex_);
        auto& known = entries_[wanted];
        if (!known) {
            auto state = std::make_unique<PvGenEnumEntry::impl>();
            state->name = wanted.first;
            state->value = wanted.second;
            known = std::make_unique<PvGenEnumEntry>(std::move(state));
        }
        return known.get();
    }

    std::mutex mutex_;  ///< guards `entries_`
    std::map<entry_key, std::unique_ptr<PvGenEnumEntry>> entries_;
};

struct camera_array : PvGenParameterArray::impl {
    explicit camera_array(std::shared_ptr<camera_link> camera) : link(std::move(camera)) {}

    PvResult make(std::string const& name, std::unique_ptr<PvGenParameter::impl>& made) override {
        auto const session = link->session();
        if (!session || !session->alive()) {
            return camera_session::not_connected(name + " cannot be looked up");
        }
        node* const found = session->features().find(name);
        auto const kind = found != nullptr ? found->type() : std::nullopt;
        if (!kind) {
            return {PvResult::Code::NOT_FOUND, ("The camera has no feature \"" + name + "\".").c_str()};
        }
        made = make_kind(*kind, name);
        return {};
    }

    std::unique_ptr<PvGenParameter::impl> make_kind(PvGenType kind, std::string const& name) {
        switch (kind) {
            case PvGenTypeInteger:
                return std::make_unique<camera_integer>(link, name);
            case PvGenTypeEnum:
                return std::make_unique<camera_enumeration>(link, name);
            case PvGenTypeBoolean:
                return std::make_unique<camera_boolean>(link, name);
            case PvGenTypeString:
                return std::make_unique<camera_string>(link, name);
            case PvGenTypeCommand:
                return std::make_unique<camera_command>(link, name);
            case PvGenTypeFloat:
                return std::make_unique<camera_float>(link, name);
        }
        return nullptr;
    }

    std::shared_ptr<camera_link> link;
};

}  // namespace

std::unique_ptr<PvGenParameterArray> make_camera_parameters(std::shared_ptr<camera_link> link) {
    return std::make_unique<PvGenParameterArray>(std::make_unique<camera_array>(std::move(link)));
}

}  // namespace openpv
