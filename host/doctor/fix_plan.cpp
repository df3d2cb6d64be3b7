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

}  // namespace

std::map<std::string, std::string> fix_plan(std::span<finding const> findings) {
    std::string sysctl;
    std::string unit;
    for (finding const& one : findings) {
        if (!one.until_reboot) {
            continue;
        }
        if (one.command.starts_with(sysctl_command)) {
            sysctl += comment_on(one);
            std::istringstream settings(one.command.substr(sysctl_command.size()));
            for (std::string setting; settings >> setting;) {
                sysctl += setting + "\n";
            }
        } else {
            unit += comment_on(one) + "ExecStart=/bin/sh -c " + quoted(one.command) + "\n";
        }
    }
    std::map<std::string, std::string> files;
    if (!sysctl.empty()) {
        files[sysctl_file] = sysctl;
    }
    if (!unit.empty()) {
        files[unit_file] =
            "[Unit]\nDescription=Settings of this machine for cameras\nAfter=network-pre.target "
            "systemd-udev-settle.service\n"
            "Before=network-online.target\n\n[Service]\nType=oneshot\nRemainAfterExit=yes\n" +
            unit + "\n[Install]\nWantedBy=multi-user.target\n";
    }
    return files;
}

}  // namespace mediagrabber
