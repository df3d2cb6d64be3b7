// SPDX-License-Identifier: MIT
#include "cli/feature_commands.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <map>
#include <optional>
#include <ostream>
#include <thread>
#include <utility>

#include <nlohmann/json.hpp>

#include "cli/camera_argument.hpp"
#include "report/interruption.hpp"
#include "report/table.hpp"

namespace gevctl {

namespace {

using json = nlohmann::ordered_json;

void require_names(std::vector<std::string> const& words, char const* usage) {
    if (words.empty()) {
        throw failure(exit_status::usage, std::string("no feature is named. Usage: ") + usage);
    }
}

/// The text before and after the first equals sign.
std::pair<std::string, std::string> split_assignment(std::string const& word) {
    std::size_t const equals = word.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw failure(exit_status::usage,
                      "\"" + word + "\" is not an assignment. Use NAME=VALUE; the camera, if named, comes first");
    }
    return {word.substr(0, equals), word.substr(equals + 1)};
}

std::string access_text(feature_access const& access) {
    if (!access.readable && !access.settable) {
        return "na";
    }
    std::string const text = access.readable ? (access.settable ? "rw" : "ro") : "wo";
    return access.settable && !access.writable ? text + " locked" : text;
}

/// What the camera has now. Parts that cannot be read are empty.
struct feature_report {
    feature_info const* info;
    feature_access access;
    std::optional<feature_value> value;
    feature_range range;
};

feature_report report_on(camera_features& features, feature_info const& one) {
    feature_report report{&one, {}, {}, {}};
    try {
        report.access = features.access_to(one);
        if (report.access.readable) {
            report.value = features.read(one);
        }
        if (report.access.settable) {
            report.range = features.range_of(one);
        }
    } catch (failure const& error) {
        if (error.status() == exit_status::lost) {
            throw;
        }
        report.access.reason = error.what();
    }
    return report;
}

json report_json(feature_report const& report) {
    feature_info const& one = *report.info;
    json made{
        {"name", one.name},
        {"category", one.category},
        {"type", name_of(one.type)},
        {"readable", report.access.readable},
        {"writable", report.access.writable},
        {"streamable", one.streamable},
    };
    auto const add = [&made](char const* key, std::optional<feature_value> const& value) {
        if (value) {
            made[key] = to_json(*value);
        }
    };
    add("value", report.value);
    add("minimum", report.range.minimum);
    add("maximum", report.range.maximum);
    add("increment", report.range.increment);
    for (auto const& [key, text] :
         {std::pair("unit", &one.unit), {"tooltip", &one.tooltip}, {"reason", &report.access.reason}}) {
        if (!text->empty()) {
            made[key] = *text;
        }
    }
    for (auto const& [key, names] :
         {std::pair("entries", &report.range.entries), {"selects", &one.selects}, {"selected_by", &one.selected_by}}) {
        if (!names->empty()) {
            made[key] = *names;
        }
    }
    return made;
}

/// Features that a NAME or CATEGORY means, in the order of the tree. An empty text means all.
std::vector<feature_info const*> features_named(camera_features const& features, std::string const& name,
                                                visibility level) {
    std::vector<feature_info const*> found;
    if (feature_info const* const one = features.catalogue().find(name)) {
        return {one};
    }
    for (std::string const& each : features.catalogue().tree()) {
        feature_info const& one = features.require(each);
        std::string const path = "/" + one.category + "/";
        if (one.level <= level && (name.empty() || path.find("/" + name + "/") != std::string::npos)) {
            found.push_back(&one);
        }
    }
    if (found.empty()) {
        features.require(name);  // throws, with similar names
    }
    return found;
}

void print_tree(camera_features& features, std::vector<feature_info const*> const& all, std::ostream& out) {
    table rows({"FEATURE", "TYPE", "ACCESS", "VALUE", "UNIT", "RANGE"});
    std::string category;
    for (feature_info const* const each : all) {
        if (each->category != category) {
            category = each->category;
            rows.add({category + ":"});
        }
        auto const report = report_on(features, *each);
        std::string const& reason = report.access.reason;
        rows.add({"  " + each->name, name_of(each->type), access_text(report.access),
                  report.value ? features.show(*each, *report.value) : "", each->unit,
                  reason.empty() ? to_text(report.range) : reason});
    }
    rows.print(out);
}

void print_one(camera_features& features, feature_info const& one, std::ostream& out) {
    auto const report = report_on(features, one);
    auto const line = [&out](char const* label, std::string const& text) {
        if (!text.empty()) {
            out << "  " << label << text << '\n';
        }
    };
    auto const join = [](std::vector<std::string> const& names) {
        std::string text;
        for (std::string const& each : names) {
            text += (text.empty() ? "" : ", ") + each;
        }
        return text;
    };
    out << one.name << '\n';
    line("tooltip:     ", one.tooltip);
    line("category:    ", one.category);
    line("type:        ", name_of(one.type));
    line("access:      ",
         access_text(report.access) + (report.access.reason.empty() ? "" : ", " + report.access.reason));
    line("value:       ", report.value ? features.show(one, *report.value) : "");
    line("unit:        ", one.unit);
    line("range:       ", to_text(report.range));
    line("streamable:  ", one.streamable ? "yes" : "no");
    line("selects:     ", join(one.selects));
    line("selected by: ", join(one.selected_by));
}

std::string present_time() {
    auto const now = std::chrono::system_clock::now();
    auto const whole = std::chrono::floor<std::chrono::seconds>(now);
    std::time_t const seconds = std::chrono::system_clock::to_time_t(whole);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> date{};
    std::array<char, 16> fraction{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(fraction.data(), fraction.size(), ".%03dZ",
                  static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(now - whole).count()));
    return std::string(date.data()) + fraction.data();
}

}  // namespace

exit_status get_command(feature_options options, std::ostream& out) {
    opened_camera camera(take_camera(options.words, first_word::may_be_feature));
    require_names(options.words, "gevctl get [CAMERA] NAME...");
    require_features(camera, options.words);
    json all = json::object();
    for (std::string const& name : options.words) {
        feature_info const& one = camera.features.require(name);
        auto const value = camera.features.read(one);
        if (options.json) {
            all[name] = to_json(value);
        } else {
            out << name << '=' << camera.features.show(one, value) << '\n';
        }
    }
    if (options.json) {
        out << all.dump(2) << '\n';
    }
    return exit_status::success;
}

exit_status set_command(feature_options options, std::ostream& out, std::ostream& errors) {
    bool const has_camera = !options.words.empty() && options.words.front().find('=') == std::string::npos;
    std::vector<std::pair<std::string, std::string>> assignments;
    for (std::size_t i = has_camera ? 1 : 0; i < options.words.size(); ++i) {
        assignments.push_back(split_assignment(options.words[i]));
    }
    if (assignments.empty()) {
        require_names({}, "gevctl set [CAMERA] NAME=VALUE...");
    }
    opened_camera camera(find_camera(has_camera ? options.words.front() : std::string()));
    std::vector<std::pair<feature_info const*, feature_value>> wanted;  // checked before the first write
    for (auto const& [name, text] : assignments) {
        feature_info const& one = camera.features.require(name);
        wanted.emplace_back(&one, camera.features.parse(one, text));
    }
    auto status = exit_status::success;
    for (auto const& [one, value] : wanted) {
        check_interruption();
        camera.features.write(*one, value);
        if (!camera.features.access_to(*one).readable) {
            continue;  // write-only
        }
        auto const present = camera.features.read(*one);
        out << one->name << '=' << camera.features.show(*one, present) << '\n';
        if (!is_same(present, value)) {
            errors << "gevctl: the camera accepted " << one->name << '=' << to_text(value) << " and has "
                   << to_text(present) << '\n';
            status = exit_status::differs;
        }
    }
    return status;
}

exit_status execute_command(feature_options options, std::ostream& out) {
    opened_camera camera(take_camera(options.words, first_word::may_be_feature));
    require_names(options.words, "gevctl execute [CAMERA] NAME...");
    require_features(camera, options.words);
    for (std::string const& name : options.words) {
        check_interruption();
        camera.features.execute(camera.features.require(name));
        out << name << " executed\n";
    }
    return exit_status::success;
}

exit_status features_command(tree_options options, std::ostream& out) {
    auto const level = parse_visibility(options.visibility);
    opened_camera camera(take_camera(options.words, first_word::may_be_feature));
    if (options.words.size() > 1) {
        throw failure(exit_status::usage, "\"" + options.words[0] +
                                              "\" is not a camera that was found, and only one"
                                              " feature or category can be named");
    }
    std::string const name = options.words.empty() ? std::string() : options.words.front();
    auto const all = features_named(camera.features, name, level.value_or(visibility::expert));
    if (options.entries) {
        for (std::string const& each : camera.features.range_of(camera.features.require(name)).entries) {
            out << each << '\n';
        }
    } else if (options.names) {
        for (feature_info const* const each : all) {
            out << each->name << '\n';
        }
    } else if (options.json) {
        json made = json::array();
        for (feature_info const* const each : all) {
            made.push_back(report_json(report_on(camera.features, *each)));
        }
        out << made.dump(2) << '\n';
    } else if (all.size() == 1 && all.front()->name == name) {
        print_one(camera.features, *all.front(), out);
    } else {
        print_tree(camera.features, all, out);
    }
    return exit_status::success;
}

namespace {

/// A feature that cannot be read now has a reason instead of a value.
struct watched_value {
    std::optional<feature_value> value;
    std::string reason;
    bool operator==(watched_value const&) const = default;
};

watched_value read_watched(camera_features& features, feature_info const& one) {
    try {
        return {features.read(one), {}};
    } catch (failure const& error) {
        if (error.status() != exit_status::refused) {
            throw;
        }
        return {{}, error.what()};
    }
}

}  // namespace

exit_status watch_command(watch_options options, std::ostream& out) {
    auto& words = options.features.words;
    opened_camera camera(take_camera(words, first_word::may_be_feature));
    require_names(words, "gevctl watch [CAMERA] NAME...");
    require_features(camera, words);
    std::map<std::string, watched_value> known;
    while (out) {
        json changes;
        for (std::string const& name : words) {
            feature_info const& one = camera.features.require(name);
            auto const now = read_watched(camera.features, one);
            auto const found = known.find(name);
            if (found != known.end() && found->second == now) {
                continue;
            }
            known[name] = now;
            if (options.features.json) {
                changes["time"] = present_time();
                changes[name] = now.value ? to_json(*now.value) : json();
            } else if (now.value) {
                out << present_time() << ' ' << name << '=' << camera.features.show(one, *now.value) << std::endl;
            } else {
                out << present_time() << ' ' << now.reason << std::endl;
            }
        }
        if (!changes.is_null()) {
            out << changes.dump() << std::endl;
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(options.interval_s));
    }
    return exit_status::success;  // the output is closed, which is reported with its own status
}

exit_status user_set_command(user_set_options options, std::ostream& out) {
    auto const is_verb = [](std::string const& word) { return word == "load" || word == "save"; };
    auto& words = options.words;
    bool const has_camera = words.size() == 3 && is_verb(words[1]);
    if (!has_camera && !(words.size() == 2 && is_verb(words[0]))) {
        throw failure(exit_status::usage, "usage: gevctl user-set [CAMERA] load|save NAME [--default]");
    }
    std::string const verb = words[words.size() - 2];
    std::string const set = words.back();
    opened_camera camera(find_camera(has_camera ? words.front() : std::string()));
    auto& features = camera.features;
    feature_info const& selector = features.require("UserSetSelector");
    features.write(selector, features.parse(selector, set));
    check_interruption();
    try {
        features.execute(features.require(verb == "load" ? "UserSetLoad" : "UserSetSave"));
    } catch (failure const& error) {
        if (error.status() != exit_status::refused) {
            throw;
        }
        throw failure(exit_status::refused,
                      std::string(error.what()) + (verb == "load" ? ". A set may have no content until it is saved"
                                                                  : ". Sets of the manufacturer, as Default, cannot be"
                                                                    " changed, and none while the camera acquires"));
    }
    out << "user set " << set << (verb == "load" ? " loaded\n" : " saved\n");
    if (options.make_default) {
        // SFNC 1 has UserSetDefaultSelector.
        auto const* const old_name = features.catalogue().find("UserSetDefaultSelector");
        auto const& chosen = features.catalogue().find("UserSetDefault") == nullptr && old_name != nullptr
                                 ? *old_name
                                 : features.require("UserSetDefault");
        auto const wanted = features.parse(chosen, set);
        features.write(chosen, wanted);
        if (auto const present = features.read(chosen); present != wanted) {
            throw failure(exit_status::refused,
                          "the camera accepted " + chosen.name + "=" + set + " and has " + to_text(present));
        }
        out << "the camera loads user set " << set << " at power-up\n";
    }
    return exit_status::success;
}

}  // namespace gevctl
