// SPDX-License-Identifier: MIT
#include "cli/doctor_command.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>

#include "config/configuration_file.hpp"
#include "doctor/camera_search.hpp"
#include "doctor/diagnosis.hpp"
#include "doctor/disk_speed.hpp"
#include "doctor/fix_plan.hpp"
#include "doctor/machine.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t measured_bytes = std::size_t{256} << 20U;  ///< more than the write cache of a disk

char const* word_for(severity level) {
    switch (level) {
        case severity::good:
            return "good   ";
        case severity::advice:
            return "advice ";
        case severity::bad:
            return "BAD    ";
        case severity::unknown:
            return "unknown";
    }
    return {};
}

/// The same findings for programs.
void print_json(std::ostream& out, std::vector<finding> const& findings) {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (finding const& one : findings) {
        std::string level = word_for(one.level);
        std::ranges::transform(level, level.begin(), [](unsigned char c) { return std::tolower(c); });
        all.push_back({{"level", level.substr(0, level.find(' '))},
                       {"what", one.what},
                       {"found", one.found},
                       {"wanted", one.wanted},
                       {"command", one.command},
                       {"until_reboot", one.until_reboot}});
    }
    out << all.dump(2) << '\n';
}

/// Writes the files of the plan and says how they are installed.
void write_plan(std::ostream& out, std::filesystem::path const& directory, std::vector<finding> const& findings) {
    auto const files = fix_plan(findings);
    if (files.empty()) {
        out << "Nothing to write to " << directory.string() << ": no setting has to be made at each boot.\n";
        return;
    }
    for (auto const& [name, text] : files) {
        auto const path = directory / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream file(path);
        file << text;
        file.close();
        if (!file) {
            throw std::system_error(errno, std::generic_category(), path.string() + " cannot be written");
        }
        out << path.string() << '\n';
    }
    out << "Review these files, then install them: sudo cp -r " << directory.string()
        << "/. /etc/ && sudo sysctl --system && sudo systemctl daemon-reload";
    if (files.size() > 1 || files.begin()->first.starts_with("systemd/")) {
        out << " && sudo systemctl enable --now mediagrabber-settings";
    }
    out << '\n';
}

void print(std::ostream& out, finding const& one) {
    out << word_for(one.level) << "  " << one.what << ": " << one.found << '\n';
    if (one.level != severity::good) {
        out << "         wanted: " << one.wanted << "\n         " << one.command
            << (one.until_reboot ? "    # until the next boot\n" : "\n");
        if (auto const lasting = persistent_form(one)) {
            std::istringstream lines(lasting->lines);
            for (std::string line; std::getline(lines, line);) {
                out << "         " << line << "    # at each boot, in /etc/" << lasting->file << '\n';
            }
        }
    }
}

/// The nearest existing parent: a recording creates its directory at start.
std::filesystem::path existing(std::filesystem::path directory) {
    directory = std::filesystem::absolute(directory);
    while (!std::filesystem::is_directory(directory) && directory.has_relative_path()) {
        directory = directory.parent_path();
    }
    return directory;
}

}  // namespace

exit_status doctor_command(doctor_options const& options, std::ostream& out) {
    configuration const configured =
        options.configuration.empty() ? configuration() : load_configuration(options.configuration).values;
    demand const needed = demand_of(configured);
    auto findings = diagnose(examine_machine(options.root, options.interface), needed);
    std::ranges::move(evaluate_cameras(search_cameras(options.interface)), std::back_inserter(findings));
    if (configured.output.format != output_format::none) {
        auto const directory = existing(options.directory.empty() ? std::filesystem::path(configured.output.directory)
                                                                  : options.directory);
        findings.push_back(evaluate_disk(measure_disk(directory, measured_bytes), needed, directory.string()));
    }
    auto const bad = std::ranges::count(findings, severity::bad, &finding::level);
    auto const status = bad == 0 ? exit_status::success : exit_status::unfit;
    if (options.json) {
        print_json(out, findings);
        return status;
    }
    for (finding const& one : findings) {
        print(out, one);
    }
    if (!options.plan.empty()) {
        write_plan(out, options.plan, findings);
    } else if (std::ranges::any_of(findings, &finding::until_reboot)) {
        out << "`mediagrabber doctor --fix-plan DIRECTORY` writes these files of /etc.\n";
    }
    out << (bad == 0 ? "No setting of this machine causes frame loss.\n"
                     : fmt::format("{} settings cause frame loss or wrong timestamps.\n", bad));
    return status;
}

}  // namespace mediagrabber
