// SPDX-License-Identifier: MIT
#include "settings/feature_settings.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <set>

#include "report/failure.hpp"
#include "report/interruption.hpp"
#include "settings/selector_values.hpp"

namespace gevctl {

namespace {

/// Ends also a sequence that only reads.
bool ends_reading(failure const& error) {
    return error.status() == exit_status::lost || error.status() == exit_status::interrupted;
}

/// Restores selectors, also after a failure.
/// \return as `selector_values::restore`
std::vector<std::string> restore_after(failure const& error, selector_values& selectors) {
    // Each attempt would wait for the camera.
    return error.status() == exit_status::lost ? selectors.changed() : selectors.restore();
}

/// A sequence of passes over some settings of a camera.
class application {
public:
    application(camera_features& camera, settings_outcome& result)
        : camera_(camera), selectors_(camera), result_(result) {
        std::ranges::transform(result.settings, std::back_inserter(settings_), [](auto& each) { return &each; });
    }

    /// Reads all settings. What needs control that another program has is marked.
    void compare() {
        run([this] { read(); });
    }

    void apply() {
        writes_ = true;
        run([this] { result_.passes = write(); });
    }

private:
    /// Runs an operation. A failure that ends it is a part of the account.
    template <class function>
    void run(function const& operation) {
        try {
            operation();
            result_.not_restored = selectors_.restore();
        } catch (failure const& error) {
            result_.aborted = error;
            result_.not_restored = restore_after(error, selectors_);
        }
        for (setting_outcome* const each : settings_) {
            if (each->comparable && !each->differs()) {
                each->reason.clear();
            }
        }
    }

    /// Every other failure concerns one setting.
    bool is_fatal(failure const& error) const {
        return ends_reading(error) || (writes_ && error.status() == exit_status::controlled);
    }

    void read() {
        for (setting_outcome* const each : settings_) {
            read(*each);
        }
        selectors_.restore();  // what remains is restored, or reported, at the end
    }

    /// \return the number of passes
    unsigned write() {
        std::set<std::set<setting_outcome*>> known;
        unsigned passes = 0;
        bool going_on = true;
        while (going_on) {
            ++passes;
            bool const wrote = write_what_differs();
            std::set<setting_outcome*> differing;
            std::ranges::copy_if(settings_, std::inserter(differing, differing.end()), &setting_outcome::differs);
            going_on = wrote && known.insert(differing).second;
            if (wrote && !going_on) {
                read();
            }
        }
        return passes;
    }

    /// \return whether the setting could be read
    bool read(setting_outcome& one) {
        check_interruption();
        try {
            selectors_.select(one.setting.selectors);
            feature_info const& feature = camera_.require(one.setting.name);
            if (camera_.is_write_only(feature)) {
                one.comparable = false;
                one.reason = "it can only be written";
                return false;
            }
            one.present = camera_.read(feature);
            if (!one.before) {
                one.before = one.present;
            }
            return true;
        } catch (failure const& error) {
            if (is_fatal(error)) {
                throw;
            }
            one.present.reset();
            one.comparable = error.status() != exit_status::controlled;
            one.reason = error.what();
            return false;
        }
    }

    bool write_what_differs() {
        bool wrote = false;
        for (setting_outcome* const each : settings_) {
            if ((read(*each) || !each->comparable) && each->differs()) {
                wrote = write(*each) || wrote;
            }
        }
        selectors_.restore();
        return wrote;
    }

    /// \return whether the camera accepted the value
    bool write(setting_outcome& one) {
        try {
            camera_.write(camera_.require(one.setting.name), one.setting.value);
        } catch (failure const& error) {
            if (is_fatal(error)) {
                throw;
            }
            one.reason = error.what();
            return false;
        }
        one.written = true;
        one.reason = one.comparable ? "the camera accepted " + to_text(one.setting.value) + " and has another value"
                                    : "it can only be written";
        return true;
    }

    camera_features& camera_;
    selector_values selectors_;
    settings_outcome& result_;
    std::vector<setting_outcome*> settings_;
    bool writes_ = false;
};

settings_outcome outcome_of(std::vector<feature_setting> const& settings) {
    settings_outcome result;
    for (feature_setting const& each : settings) {
        result.settings.push_back({each, {}, {}, false, true, {}});
    }
    return result;
}

/// Features of the connection, which another connection must not get.
bool is_of_connection(std::string const& name) {
    static constexpr std::array names{"GevCCP",
                                      "GevSCPHostPort",
                                      "GevSCDA",
                                      "GevMCDA",
                                      "GevMCPHostPort",
                                      "TLParamsLocked",
                                      "GevHeartbeatTimeout",
                                      "GevGVCPHeartbeatDisable",
                                      "GevSCPSFireTestPacket"};
    return std::ranges::find(names, name) != names.end();
}

/// Features that distinguish a camera from others. A file that is applied to a second camera must not contain them.
bool is_of_identity(std::string const& name) {
    return name == "DeviceUserID" || name.starts_with("GevPersistent") || name.starts_with("GevCurrentIPConfiguration");
}

/// Tables of one feature in a file. Bounds time and memory for a camera that declares selectors of selectors.
constexpr std::size_t max_selections = 256;

/// Reads the settings of all features, table by table.
class settings_reader {
public:
    settings_reader(camera_features& camera, bool all) : camera_(camera), selectors_(camera), all_(all) {
        for (std::string const& name : camera_.catalogue().tree()) {
            has_streamable_ = has_streamable_ || camera_.require(name).streamable;
        }
    }

    read_outcome read() {
        try {
            read_all();
        } catch (failure const& error) {
            restore_after(error, selectors_);
            throw;
        }
        result_.not_restored = selectors_.restore();
        return std::move(result_);
    }

private:
    bool is_wanted(feature_info const& one) const {
        if (one.type == PvGenTypeCommand || !one.selects.empty() || is_of_connection(one.name)) {
            return false;
        }
        return all_ || one.streamable || (!has_streamable_ && !is_of_identity(one.name));
    }

    void read_all() {
        for (std::string const& name : camera_.catalogue().tree()) {
            feature_info const& one = camera_.require(name);
            if (is_wanted(one)) {
                read_under_selectors(one);
            }
        }
    }

    void read_under_selectors(feature_info const& one) {
        for (selection const& each : selections_of(one)) {
            check_interruption();
            try {
                selectors_.select(each);
                auto const access = camera_.access_to(one);
                if (access.readable && access.settable) {
                    result_.settings.push_back({each, one.name, camera_.read(one), {}});
                }
            } catch (failure const& error) {
                if (ends_reading(error)) {
                    throw;
                }
                note(result_.missing, to_text(each, one.name) + ": " + error.what());
            }
        }
    }

    /// All values of the feature's selectors.
    std::vector<selection> selections_of(feature_info const& one) {
        std::vector<selection> made{{}};
        for (std::string const& name : one.selected_by) {
            auto const values = values_of(camera_.require(name), one.name);
            if (made.size() * values.size() > max_selections) {
                note(result_.left_out,
                     one.name + ": its selectors have more than " + std::to_string(max_selections) + " combinations");
                return {};
            }
            std::vector<selection> longer;
            for (selection const& each : made) {
                for (std::string const& value : values) {
                    longer.push_back(each);
                    longer.back().emplace_back(name, value);
                }
            }
            made = std::move(longer);
        }
        return made;
    }

    std::vector<std::string> values_of(feature_info const& selector, std::string const& selected) {
        try {
            switch (selector.type) {
                case PvGenTypeEnum:
                    return camera_.range_of(selector).entries;
                case PvGenTypeBoolean:
                    return {"false", "true"};
                case PvGenTypeInteger:
                    return integers_of(selector, selected);
                case PvGenTypeFloat:
                case PvGenTypeString:
                case PvGenTypeCommand:
                    break;
            }
            note(result_.left_out, selected + ": the values of " + selector.name + ", which is of type " +
                                       name_of(selector.type) + ", cannot be listed");
        } catch (failure const& error) {
            if (ends_reading(error)) {
                throw;
            }
            note(result_.missing, selected + ": " + error.what());
        }
        return {};
    }

    std::vector<std::string> integers_of(feature_info const& selector, std::string const& selected) {
        // A table with more rows, for example a look-up table, does not belong in a file for people.
        constexpr std::int64_t max_values = 64;
        auto const range = camera_.range_of(selector);
        auto const first = range.minimum ? std::get<std::int64_t>(*range.minimum) : 0;
        auto const last = range.maximum ? std::get<std::int64_t>(*range.maximum) : first + max_values;
        auto const step = range.increment ? std::get<std::int64_t>(*range.increment) : 1;
        if (first < 0 || last < first || (last - first) / step >= max_values) {
            note(result_.left_out,
                 selected + ": " + selector.name + " has more than " + std::to_string(max_values) + " values");
            return {};
        }
        std::vector<std::string> values;
        for (std::int64_t i = 0; i <= (last - first) / step; ++i) {
            values.push_back(std::to_string(first + i * step));
        }
        return values;
    }

    static void note(std::vector<std::string>& list, std::string const& text) {
        if (std::ranges::find(list, text) == list.end()) {
            list.push_back(text);
        }
    }

    camera_features& camera_;
    selector_values selectors_;
    bool all_;
    bool has_streamable_ = false;
    read_outcome result_;
};

}  // namespace

std::vector<feature_setting> check_settings(camera_features const& camera, std::vector<feature_setting> settings) {
    std::string errors;
    for (feature_setting& each : settings) {
        try {
            feature_info const& one = camera.require(each.name);
            if (one.type == PvGenTypeCommand) {
                throw failure(exit_status::usage, each.name + " is a command, which a file cannot set");
            }
            each.value = camera.convert(one, each.value);
            for (auto const& [selector, value] : each.selectors) {
                feature_info const& info = camera.require(selector);
                camera.parse(info, value);
                if (info.selects.empty()) {
                    throw failure(exit_status::usage, selector + " is not a selector, so it cannot name a table");
                }
            }
        } catch (failure const& error) {
            errors += (errors.empty() ? "" : "\n") + each.place + ": " + error.what();
        }
    }
    if (!errors.empty()) {
        throw failure(exit_status::usage, errors);
    }
    return settings;
}

settings_outcome compare_settings(camera_features& camera, std::vector<feature_setting> const& settings) {
    settings_outcome result = outcome_of(settings);
    application(camera, result).compare();
    return result;
}

settings_outcome apply_settings(camera_features& camera, std::vector<feature_setting> const& settings) {
    settings_outcome result = outcome_of(settings);
    application(camera, result).apply();
    return result;
}

read_outcome read_settings(camera_features& camera, bool all) {
    return settings_reader(camera, all).read();
}

}  // namespace gevctl
