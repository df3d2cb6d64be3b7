#include "camera_features.hpp"

#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "aravis_handle.hpp"
#include "aravis_result.hpp"
#include "description_check.hpp"
#include "PvGenEnumEntry_impl.hpp"
#include "PvGenParameter_impl.hpp"
#include "PvGenParameterArray_impl.hpp"
#include "value_limits.hpp"

namespace openpv {
namespace {

enum class direction { read, write };

PvResult refuse(std::string const& what, char const* reason) {
    return {PvResult::Code::NOT_SUPPORTED, (what + ": " + reason + ".").c_str()};
}

/// Whether the feature takes its value from a node that the description does not have; Aravis reads that as 0.
bool has_broken_value(ArvGcFeatureNode* node) {
    ArvDomNode* child = arv_dom_node_get_first_child(ARV_DOM_NODE(node));
    for (; child != nullptr; child = arv_dom_node_get_next_sibling(child)) {
        if (ARV_IS_GC_PROPERTY_NODE(child) &&
            arv_gc_property_node_get_node_type(ARV_GC_PROPERTY_NODE(child)) == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE &&
            arv_gc_property_node_get_linked_node(ARV_GC_PROPERTY_NODE(child)) == nullptr) {
            return true;
        }
    }
    return false;
}

/// Whether the camera's description lets the feature be read, or written, now. May ask the camera.
PvResult check_access(std::string const& what, ArvGcFeatureNode* node, direction wanted) {
    if (has_broken_value(node)) {
        return {PvResult::Code::GENERIC_ERROR,
                (what + ": the camera's description names no node for its value.").c_str()};
    }
    error_slot error;
    bool const implemented = arv_gc_feature_node_is_implemented(node, error.out()) != FALSE;
    if (error.get() != nullptr) {
        return to_result(what, error.get());
    }
    if (!implemented) {
        return refuse(what, "the camera does not implement it");
    }
    bool const available = arv_gc_feature_node_is_available(node, error.out()) != FALSE;
    if (error.get() != nullptr) {
        return to_result(what, error.get());
    }
    if (!available) {
        return refuse(what, "it is not available in the camera's present state");
    }
    ArvGcAccessMode const mode = arv_gc_feature_node_get_actual_access_mode(node);
    if (wanted == direction::read) {
        return mode == ARV_GC_ACCESS_MODE_WO ? refuse(what, "it can only be written") : PvResult();
    }
    if (mode == ARV_GC_ACCESS_MODE_RO) {
        return refuse(what, "it can only be read");
    }
    bool const locked = arv_gc_feature_node_is_locked(node, error.out()) != FALSE;
    if (error.get() != nullptr) {
        return to_result(what, error.get());
    }
    return locked ? refuse(what, "it is locked, as it is while streaming, for example") : PvResult();
}

/// Whether cameras change the value by themselves all the time; some descriptions forget to say so.
bool moves_by_itself(std::string const& name) {
    return name == "GevTimestampValue" || name == "DeviceTemperature";
}

/// While it lives, what is read comes from the camera and not from what was read before.
class fresh_reads {
public:
    explicit fresh_reads(ArvDevice& device) : device_(device) {
        arv_device_set_register_cache_policy(&device_, ARV_REGISTER_CACHE_POLICY_DISABLE);
    }
    fresh_reads(fresh_reads const&) = delete;
    fresh_reads& operator=(fresh_reads const&) = delete;
    ~fresh_reads() { arv_device_set_register_cache_policy(&device_, ARV_REGISTER_CACHE_POLICY_ENABLE); }

private:
    ArvDevice& device_;
};

/// The camera's side of a parameter: finds the node, checks access, translates errors.
class camera_feature : public PvGenParameter::impl {
public:
    camera_feature(std::shared_ptr<camera_link> link, std::string name)
        : link_(std::move(link)), name_(std::move(name)) {}

protected:
    /// Calls `operation(ArvGcFeatureNode*, GError**)`.
    /// \param verb what is being done, for the sentence of a failure: "cannot be read"
    template <class function>
    PvResult access(std::string const& verb, direction wanted, function&& operation) {
        std::string const what = name_ + " " + verb;
        return link_->access(what, [&](ArvDevice& device) -> PvResult {
            ArvGcFeatureNode* const node = find_usable_feature(device, name_);
            if (node == nullptr) {
                return {PvResult::Code::NOT_FOUND, (what + ": the camera has no such feature.").c_str()};
            }
            PvResult const allowed = check_access(what, node, wanted);
            if (!allowed.IsOK()) {
                return allowed;
            }
            std::optional<fresh_reads> fresh;
            if (wanted == direction::read && moves_by_itself(name_)) {
                fresh.emplace(device);
            }
            error_slot error;
            PvResult const result = operation(node, error.out());
            return result.IsOK() ? to_result(what, error.get()) : result;
        });
    }

    /// Reads through `get(ArvGcFeatureNode*, GError**)`; `value` is left alone on failure.
    template <class type, class function>
    PvResult read(type& value, function&& get) {
        type got{};
        PvResult const result = access("cannot be read", direction::read, [&](ArvGcFeatureNode* node, GError** error) {
            got = get(node, error);
            return PvResult();
        });
        if (result.IsOK()) {
            value = std::move(got);
        }
        return result;
    }

    std::string const& name() const { return name_; }
    camera_link& link() { return *link_; }

private:
    std::shared_ptr<camera_link> link_;
    std::string name_;
};

class camera_integer : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeInteger; }

    PvResult get_integer(int64_t& value) override {
        return read(value, [](ArvGcFeatureNode* node, GError** error) -> int64_t {
            return arv_gc_integer_get_value(ARV_GC_INTEGER(node), error);
        });
    }

    PvResult set_integer(int64_t value) override {
        PvResult const result = write(value);
        if (result.IsOK() && name() == "GevSCPSPacketSize") {
            link().packet_size_chosen(true);
        }
        return result;
    }

    PvResult get_integer_limits(integer_limits& limits) override { return read(limits, &camera_integer::limits_of); }

private:
    PvResult write(int64_t value) {
        return access("cannot be set to " + std::to_string(value), direction::write,
                      [&](ArvGcFeatureNode* node, GError** error) {
                          integer_limits const limits = limits_of(node, error);
                          PvResult const allowed = *error == nullptr ? check_limits(name(), value, limits) : PvResult();
                          if (*error == nullptr && allowed.IsOK()) {
                              arv_gc_integer_set_value(ARV_GC_INTEGER(node), value, error);
                          }
                          return allowed;
                      });
    }

    static integer_limits limits_of(ArvGcFeatureNode* node, GError** error) {
        constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
        constexpr int64_t highest = std::numeric_limits<int64_t>::max();
        integer_limits limits;
        limits.minimum = limit(arv_gc_integer_get_min, node, lowest, error);
        limits.maximum = limit(arv_gc_integer_get_max, node, highest, error);
        limits.increment = limit(arv_gc_integer_get_inc, node, 1, error);
        return limits;
    }

    /// For some kinds of register Aravis calls it an error that the description gives no limit.
    static int64_t limit(gint64 (*get)(ArvGcInteger*, GError**), ArvGcFeatureNode* node, int64_t without,
                         GError** error) {
        if (*error != nullptr) {
            return without;
        }
        int64_t const described = get(ARV_GC_INTEGER(node), error);
        if (g_error_matches(*error, ARV_GC_ERROR, ARV_GC_ERROR_PROPERTY_NOT_DEFINED) == FALSE) {
            return described;
        }
        g_clear_error(error);
        return without;
    }
};

class camera_float : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeFloat; }

    PvResult get_float(double& value) override {
        return read(value, [](ArvGcFeatureNode* node, GError** error) {
            return arv_gc_float_get_value(ARV_GC_FLOAT(node), error);
        });
    }

    PvResult set_float(double value) override {
        return access("cannot be set to " + number_to_text(value), direction::write,
                      [&](ArvGcFeatureNode* node, GError** error) {
                          float_limits const limits = limits_of(node, error);
                          PvResult const allowed = *error == nullptr ? check_limits(name(), value, limits) : PvResult();
                          if (*error == nullptr && allowed.IsOK()) {
                              arv_gc_float_set_value(ARV_GC_FLOAT(node), value, error);
                          }
                          return allowed;
                      });
    }

    PvResult get_float_limits(float_limits& limits) override { return read(limits, &camera_float::limits_of); }

private:
    static float_limits limits_of(ArvGcFeatureNode* node, GError** error) {
        float_limits limits;
        limits.minimum = arv_gc_float_get_min(ARV_GC_FLOAT(node), error);
        if (*error == nullptr) {
            limits.maximum = arv_gc_float_get_max(ARV_GC_FLOAT(node), error);
        }
        return limits;
    }
};

class camera_boolean : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeBoolean; }

    PvResult get_boolean(bool& value) override {
        return read(value, [](ArvGcFeatureNode* node, GError** error) {
            return arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), error) != FALSE;
        });
    }

    PvResult set_boolean(bool value) override {
        return access(value ? "cannot be set to true" : "cannot be set to false", direction::write,
                      [value](ArvGcFeatureNode* node, GError** error) {
                          arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), value ? TRUE : FALSE, error);
                          return PvResult();
                      });
    }
};

class camera_command : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeCommand; }

    PvResult execute() override {
        return access("cannot be executed", direction::write, [](ArvGcFeatureNode* node, GError** error) {
            arv_gc_command_execute(ARV_GC_COMMAND(node), error);
            return PvResult();
        });
    }
};

class camera_string : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeString; }

    PvResult get_string(std::string& value) override { return read(value, &camera_string::text_of); }

private:
    static constexpr guint64 longest_text = 4096;

    static std::string text_of(ArvGcFeatureNode* node, GError** error) {
        if (auto* const source = register_of(ARV_DOM_NODE(node))) {
            return text_in(source, error);
        }
        char const* const text = arv_gc_string_get_value(ARV_GC_STRING(node), error);
        return text != nullptr ? text : "";
    }

    /// The register that the text stands in; null when it stands in the description itself.
    static ArvGcRegister* register_of(ArvDomNode* node) {
        if (ARV_IS_GC_REGISTER(node)) {
            return ARV_GC_REGISTER(node);
        }
        ArvDomNode* part = arv_dom_node_get_first_child(node);
        for (; part != nullptr; part = arv_dom_node_get_next_sibling(part)) {
            if (ARV_IS_GC_PROPERTY_NODE(part) &&
                arv_gc_property_node_get_node_type(ARV_GC_PROPERTY_NODE(part)) == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE) {
                ArvGcNode* const linked = arv_gc_property_node_get_linked_node(ARV_GC_PROPERTY_NODE(part));
                return linked != nullptr ? register_of(ARV_DOM_NODE(linked)) : nullptr;
            }
        }
        return nullptr;
    }

    /// Aravis takes a text for terminated, which one that fills its register need not be.
    static std::string text_in(ArvGcRegister* source, GError** error) {
        guint64 const length = arv_gc_register_get_length(source, error);
        if (*error != nullptr || length == 0) {
            return {};
        }
        if (length > longest_text) {
            g_set_error_literal(error, ARV_GC_ERROR, ARV_GC_ERROR_INVALID_LENGTH,
                                "its register is too long for a text");
            return {};
        }
        std::string text(length, '\0');
        arv_gc_register_get(source, text.data(), text.size(), error);
        return text.substr(0, text.find('\0'));
    }
};

class camera_enumeration : public camera_feature {
public:
    using camera_feature::camera_feature;
    PvGenType type() const override { return PvGenTypeEnum; }

    PvResult get_entry(std::string& name) override {
        std::string got;
        PvResult const result = read(got, [](ArvGcFeatureNode* node, GError** error) -> std::string {
            char const* const text = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), error);
            return text != nullptr ? text : "";
        });
        if (result.IsOK() && got.empty()) {
            return {PvResult::Code::GENERIC_ERROR,
                    (this->name() + " cannot be read: its value is none of its entries.").c_str()};
        }
        if (result.IsOK()) {
            name = got;
        }
        return result;
    }

    PvResult get_entry(int64_t& value) override {
        return read(value, [](ArvGcFeatureNode* node, GError** error) -> int64_t {
            return arv_gc_enumeration_get_int_value(ARV_GC_ENUMERATION(node), error);
        });
    }

    PvResult set_entry(std::string const& name) override {
        return set_matching(name, [&name](entry const& candidate) { return candidate.name == name; });
    }

    PvResult set_entry(int64_t value) override {
        return set_matching(std::to_string(value),
                            [value](entry const& candidate) { return candidate.value == value; });
    }

    PvResult list_entries(std::vector<PvGenEnumEntry const*>& entries) override {
        std::vector<entry> usable;
        PvResult const result = read(usable, [](ArvGcFeatureNode* node, GError** error) {
            std::vector<entry> all = entries_of(node, error);
            std::erase_if(all, [&](entry const& each) { return !is_usable(each, error); });
            return all;
        });
        if (result.IsOK()) {
            entries.clear();
            for (entry const& each : usable) {
                entries.push_back(lasting_entry(each));
            }
        }
        return result;
    }

private:
    struct entry {
        std::string name;
        int64_t value = 0;
        ArvGcFeatureNode* node = nullptr;
    };

    /// In the order of the description; Aravis's own list of them is the other way round.
    static std::vector<entry> entries_of(ArvGcFeatureNode* node, GError** error) {
        std::vector<entry> entries;
        ArvDomNode* child = arv_dom_node_get_first_child(ARV_DOM_NODE(node));
        for (; child != nullptr && *error == nullptr; child = arv_dom_node_get_next_sibling(child)) {
            if (ARV_IS_GC_ENUM_ENTRY(child)) {
                entries.push_back(describe(child, error));
            }
        }
        return entries;
    }

    static entry describe(ArvDomNode* node, GError** error) {
        auto* const feature = ARV_GC_FEATURE_NODE(node);
        char const* const name = arv_gc_feature_node_get_name(feature);
        return {name != nullptr ? name : "", arv_gc_enum_entry_get_value(ARV_GC_ENUM_ENTRY(node), error), feature};
    }

    /// Whether the entry is implemented, and available in the camera's present state.
    static bool is_usable(entry const& each, GError** error) {
        return *error == nullptr && arv_gc_feature_node_is_implemented(each.node, error) != FALSE &&
               *error == nullptr && arv_gc_feature_node_is_available(each.node, error) != FALSE;
    }

    template <class function>
    PvResult set_matching(std::string const& wanted, function&& matches) {
        std::string const verb = "cannot be set to " + wanted;
        return access(verb, direction::write, [&](ArvGcFeatureNode* node, GError** error) -> PvResult {
            std::vector<entry> const entries = entries_of(node, error);
            if (*error != nullptr) {
                return {};
            }
            for (entry const& each : entries) {
                if (matches(each)) {
                    return set(verb, node, each, error);
                }
            }
            return {PvResult::Code::INVALID_PARAMETER, (name() + " " + verb + ": it has no such entry.").c_str()};
        });
    }

    PvResult set(std::string const& verb, ArvGcFeatureNode* node, entry const& chosen, GError** error) {
        bool const usable = is_usable(chosen, error);
        if (*error != nullptr) {
            return {};
        }
        if (!usable) {
            return {PvResult::Code::INVALID_PARAMETER,
                    (name() + " " + verb + ": the entry is not available in the camera's present state.").c_str()};
        }
        arv_gc_enumeration_set_int_value(ARV_GC_ENUMERATION(node), chosen.value, error);
        return {};
    }

    /// The object that stands for an entry as long as this feature exists.
    PvGenEnumEntry const* lasting_entry(entry const& wanted) {
        std::lock_guard const lock(mutex_);
        auto& place = lasting_[{wanted.name, wanted.value}];
        if (!place) {
            auto state = std::make_unique<PvGenEnumEntry::impl>();
            state->name = wanted.name;
            state->value = wanted.value;
            place = std::make_unique<PvGenEnumEntry>(std::move(state));
        }
        return place.get();
    }

    std::mutex mutex_;
    std::map<std::pair<std::string, int64_t>, std::unique_ptr<PvGenEnumEntry>> lasting_;
};

/// Kinds are asked from the most special to the most general: in Aravis an enumeration, for one, can be used as an
/// integer too.
std::optional<PvGenType> kind_of(ArvGcNode* node) {
    if (ARV_IS_GC_ENUMERATION(node)) {
        return PvGenTypeEnum;
    }
    if (ARV_IS_GC_BOOLEAN(node)) {
        return PvGenTypeBoolean;
    }
    if (ARV_IS_GC_COMMAND(node)) {
        return PvGenTypeCommand;
    }
    if (ARV_IS_GC_STRING(node)) {
        return PvGenTypeString;
    }
    if (ARV_IS_GC_INTEGER(node)) {
        return PvGenTypeInteger;
    }
    if (ARV_IS_GC_FLOAT(node)) {
        return PvGenTypeFloat;
    }
    return std::nullopt;
}

struct camera_array : PvGenParameterArray::impl {
    explicit camera_array(std::shared_ptr<camera_link> camera) : link(std::move(camera)) {}

    PvResult make(std::string const& name, std::unique_ptr<PvGenParameter::impl>& made) override {
        return link->access(name + " cannot be looked up", [&](ArvDevice& device) -> PvResult {
            ArvGcNode* const node = arv_device_get_feature(&device, name.c_str());
            auto const kind = node != nullptr && ARV_IS_GC_FEATURE_NODE(node) ? kind_of(node) : std::nullopt;
            if (!kind) {
                return {PvResult::Code::NOT_FOUND, ("The camera has no feature " + name + ".").c_str()};
            }
            made = make_kind(*kind, name);
            return {};
        });
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
