// SPDX-License-Identifier: MIT
#include "doctor/fix_plan.hpp"

#include <sstream>
#include <string_view>

namespace mediagrabber {

namespace {

// A file in /etc replaces the one of the same name in /usr/lib, so it must not have the name of the package's file.
// The name sorts after that, so that its values win.
constexpr char sysctl_file[] = "sysctl.d/61-mediagrabber-local.conf";
constexpr char unit_file[] = "systemd/system/mediagrabber-settings.service";
constexpr std::string_view sysctl_command = "sysctl -w ";

std::string comment_on(finding const& one) {
    return "# " + one.what + " was: " + one.found + "\n# wanted: " + one.wanted + "\n";
}

/// systemd replaces % and, in double quotes, \ and ".
std::string quoted(std::string const& command) {
    std::string made = "\"";
    for (char const c : command) {
        made += c == '%' ? "%%" : c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return made + "\"";
}

/// The lines of sysctl.d or of the unit that have the effect of a command.
std::string lines_for(std::string const& command) {
    if (!command.starts_with(sysctl_command)) {
        // After "-", a command that fails does not stop the others.
        return "ExecStart=-/bin/sh -c " + quoted(command) + "\n";
    }
    std::string lines;
    std::istringstream settings(command.substr(sysctl_command.size()));
    for (std::string setting; settings >> setting;) {
        lines += setting + "\n";
    }
    return lines;
}

}  // namespace

std::optional<persistent_setting> persistent_form(finding const& one) {
    if (!one.until_reboot) {
        return std::nullopt;
    }
    return persistent_setting{.file = one.command.starts_with(sysctl_command) ? sysctl_file : unit_file,
                              .lines = lines_for(one.command)};
}

std::map<std::string, std::string> fix_plan(std::span<finding const> findings) {
    std::map<std::string, std::string> files;
    for (finding const& one : findings) {
        if (auto const setting = persistent_form(one)) {
            files[setting->file] += comment_on(one) + setting->lines;
        }
    }
    if (auto const unit = files.find(unit_file); unit != files.end()) {
        // Interfaces exist once udev has settled. Nothing else starts that service.
        unit->second =
            "[Unit]\nDescription=Settings of this machine for cameras\nWants=systemd-udev-settle.service\n"
            "After=network-pre.target systemd-udev-settle.service\n"
            "Before=network-online.target\n\n[Service]\nType=oneshot\nRemainAfterExit=yes\n" +
            unit->second + "\n[Install]\nWantedBy=multi-user.target\n";
    }
    return files;
}

}  // namespace mediagrabber
