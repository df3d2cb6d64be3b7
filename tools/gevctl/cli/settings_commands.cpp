// SPDX-License-Identifier: MIT
#include "cli/settings_commands.hpp"

#include <filesystem>
#include <map>
#include <ostream>

#include "cli/camera_argument.hpp"
#include "settings/feature_file.hpp"
#include "settings/feature_settings.hpp"

namespace gevctl {

namespace {

std::string quoted(feature_value const& value) {
    return std::holds_alternative<std::string>(value) ? "\"" + to_text(value) + "\"" : to_text(value);
}

std::string camera_for(feature_file const& file, std::vector<std::string> const& words) {
    return words.size() > 1 ? words.front() : file.camera;
}

bool was_changed(setting_outcome const& one) {
    return one.written && !one.differs() && one.before && one.present && !is_same(*one.before, *one.present);
}

/// Settings by what became of them.
struct setting_counts {
    explicit setting_counts(settings_outcome const& result) : all(result.settings.size()) {
        for (setting_outcome const& each : result.settings) {
            not_comparable += each.comparable || each.written ? 0U : 1U;
            unverified += !each.comparable && each.written ? 1U : 0U;
            differing += each.comparable && each.differs() ? 1U : 0U;
            changed += each.comparable && each.written && !each.differs() ? 1U : 0U;
        }
    }

    std::size_t all = 0;
    std::size_t not_comparable = 0;
    std::size_t unverified = 0;  ///< write-only and written
    std::size_t differing = 0;
    std::size_t changed = 0;
};

/// Prints a line for each setting that is not what the file has, or that was not compared.
void print_differences(settings_outcome const& result, std::ostream& out) {
    for (setting_outcome const& each : result.settings) {
        if (!each.differs()) {
            continue;
        }
        out << to_text(each.setting) << ": ";
        if (each.comparable) {
            out << "the camera has " << (each.present ? quoted(*each.present) : "no value") << ", "
                << each.setting.place << " has " << quoted(each.setting.value);
        } else {
            out << each.setting.place << " has " << quoted(each.setting.value) << ", not compared";
        }
        out << (each.reason.empty() ? "" : ": " + each.reason) << '\n';
    }
}

void print_changes(settings_outcome const& result, std::ostream& out) {
    for (setting_outcome const& each : result.settings) {
        if (was_changed(each)) {
            out << to_text(each.setting) << ": " << quoted(*each.before) << " -> " << quoted(*each.present) << '\n';
        } else if (!each.comparable && each.written) {
            out << to_text(each.setting) << ": " << quoted(each.setting.value) << " written, cannot be read back\n";
        }
    }
}

void print_account(settings_outcome const& result, std::ostream& out) {
    setting_counts const count(result);
    out << count.all - count.differing - count.unverified - count.not_comparable << " of " << count.all
        << " settings are as in the file, " << count.changed << " of them changed; ";
    if (count.unverified != 0) {
        out << count.unverified << " written that cannot be read back; ";
    }
    if (count.not_comparable != 0) {
        out << count.not_comparable << " not compared; ";
    }
    out << count.differing << (count.differing == 1 ? " differs\n" : " differ\n");
}

void print_not_restored(std::vector<std::string> const& selectors, std::ostream& errors) {
    for (std::string const& each : selectors) {
        errors << "gevctl: a selector is not restored: " << each << '\n';
    }
}

/// Reports a sequence that ended early, and what is known of the settings.
/// \throws failure as the one that ended the sequence
void check_aborted(settings_outcome const& result, std::ostream& out) {
    if (!result.aborted) {
        return;
    }
    print_changes(result, out);
    for (setting_outcome const& each : result.settings) {
        if (each.differs()) {
            out << to_text(each.setting) << (each.written ? ": written, not read back\n" : ": not applied\n");
        }
    }
    exit_status const status = result.aborted->status();
    throw failure(status, std::string(status == exit_status::lost ? "the camera stopped responding: " : "") +
                              result.aborted->what() + ". Apply the file again to complete it");
}

/// \return the exit status of a comparison
exit_status status_of(settings_outcome const& result) {
    setting_counts const count(result);
    if (count.differing != 0) {
        return exit_status::differs;
    }
    if (!result.not_restored.empty()) {
        return exit_status::refused;
    }
    return count.not_comparable != 0 ? exit_status::incomplete : exit_status::success;
}

exit_status diff_camera(std::string const& name, feature_file const& file, std::ostream& out, std::ostream& errors) {
    opened_camera camera(find_camera(name));
    auto const result = compare_settings(camera.features, check_settings(camera.features, file.settings));
    print_not_restored(result.not_restored, errors);
    if (result.aborted) {
        throw failure(*result.aborted);
    }
    print_differences(result, out);
    return status_of(result);
}

/// Whether the first of two words of `diff` is a file.
bool is_file(std::string const& word) {
    std::error_code ignored;
    bool const exists = std::filesystem::exists(word, ignored) && !std::filesystem::is_directory(word, ignored);
    return exists || word == "-" || word.find('/') != std::string::npos || word.ends_with(".toml");
}

using settings_by_name = std::map<std::string, feature_value>;

settings_by_name by_name(feature_file const& file) {
    settings_by_name made;
    for (feature_setting const& each : file.settings) {
        made.insert_or_assign(to_text(each), each.value);
    }
    return made;
}

exit_status diff_files(std::string const& one_path, std::string const& other_path, std::ostream& out) {
    auto const one = by_name(read_feature_file(one_path));
    auto const other = by_name(read_feature_file(other_path));
    bool differs = false;
    auto const print = [&](std::string const& name, std::string const& left, std::string const& right) {
        out << name << ": " << one_path << " has " << left << ", " << other_path << " has " << right << '\n';
        differs = true;
    };
    for (auto const& [name, value] : one) {
        auto const found = other.find(name);
        if (found == other.end()) {
            print(name, quoted(value), "no value");
        } else if (!is_same(value, found->second)) {
            print(name, quoted(value), quoted(found->second));
        }
    }
    for (auto const& [name, value] : other) {
        if (!one.contains(name)) {
            print(name, "no value", quoted(value));
        }
    }
    return differs ? exit_status::differs : exit_status::success;
}

}  // namespace

exit_status dump_command(dump_options const& options, std::ostream& out, std::ostream& errors) {
    opened_camera camera(find_camera(options.camera));
    auto const found = read_settings(camera.features, options.all);
    auto const& identity = camera.connection.camera().identity;
    std::vector<std::string> header{"Features of " + identity.vendor + " " + identity.model + " " + identity.serial +
                                        ", firmware " + identity.version,
                                    "Apply with: gevctl apply FILE"};
    for (auto const* const list : {&found.left_out, &found.missing}) {
        for (std::string const& note : *list) {
            header.push_back("Missing: " + note);
            errors << "gevctl: " << note << '\n';
        }
    }
    print_not_restored(found.not_restored, errors);
    write_feature_file(out, header, found.settings);
    if (!found.missing.empty()) {
        errors << "gevctl: the file is incomplete: " << found.missing.size() << " values could not be read\n";
        return exit_status::incomplete;
    }
    return found.not_restored.empty() ? exit_status::success : exit_status::refused;
}

exit_status apply_command(apply_options const& options, std::ostream& out, std::ostream& errors) {
    auto const file = read_feature_file(options.words.back());
    opened_camera camera(find_camera(camera_for(file, options.words)));
    auto const settings = check_settings(camera.features, file.settings);
    auto const result =
        options.dry_run ? compare_settings(camera.features, settings) : apply_settings(camera.features, settings);
    print_not_restored(result.not_restored, errors);
    if (options.dry_run && result.aborted) {
        throw failure(*result.aborted);
    }
    check_aborted(result, out);
    print_changes(result, out);
    print_differences(result, options.dry_run ? out : errors);
    print_account(result, out);
    return status_of(result);
}

exit_status diff_command(std::vector<std::string> const& words, std::ostream& out, std::ostream& errors) {
    if (words.size() == 2 && is_file(words.front())) {
        return diff_files(words[0], words[1], out);
    }
    auto const file = read_feature_file(words.back());
    return diff_camera(camera_for(file, words), file, out, errors);
}

}  // namespace gevctl
