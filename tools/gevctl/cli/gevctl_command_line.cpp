// SPDX-License-Identifier: MIT
#include "cli/gevctl_command_line.hpp"

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "cli/action_command.hpp"
#include "cli/address_commands.hpp"
#include "cli/clock_command.hpp"
#include "cli/device_commands.hpp"
#include "cli/feature_commands.hpp"
#include "cli/list_command.hpp"
#include "cli/settings_commands.hpp"
#include "report/interruption.hpp"

namespace gevctl {

namespace {

constexpr char const notes[] =
    "CAMERA is a serial number, a user-defined name, a MAC address or an IPv4 address. It may be left out if only one"
    " camera is found. An address is not searched for, which takes a second less.\n"
    "\n"
    "Examples:\n"
    "  gevctl list\n"
    "  gevctl get CS000001 Width Height ExposureTime\n"
    "  gevctl set CS000001 TriggerSelector=FrameStart TriggerMode=On TriggerSource=Line1\n"
    "  gevctl features 10.0.0.5 AcquisitionControl\n"
    "  gevctl dump > camera.toml\n"
    "  gevctl apply --dry-run camera.toml\n"
    "\n"
    "Exit status:\n"
    "  0  success\n"
    "  1  the camera, or the other file, has other values\n"
    "  2  invalid command line, file, name or value\n"
    "  3  no such camera, or several\n"
    "  4  another program has control of the camera\n"
    "  5  the camera refused, or cannot do it in its current state\n"
    "  6  the camera does not respond\n"
    "  7  something could not be read or compared; nothing else differs\n"
    "  8  the output could not be written\n"
    "A signal ends a command after it has restored selectors and released control: 130 or 143 in a shell.";

/// Declares commands and runs the one that the command line names.
class command_line {
public:
    command_line(std::ostream& out, std::ostream& errors) : out_(out), errors_(errors) {
        app_.footer(notes);
        app_.add_flag("--version", version_, "Print the version");
        app_.require_subcommand(0, 1);
        app_.set_help_all_flag("--help-all", "Print the help of all commands");
        declare_list();
        declare_features();
        declare_settings();
        declare_addresses();
        declare_others();
    }

    exit_status run(int argc, char const* const* argv) {
        auto const status = run_command(argc, argv);
        if (!out_.flush() && status != exit_status::interrupted) {
            if (caught_signal() == SIGPIPE) {
                return exit_status::interrupted;
            }
            errors_ << "gevctl: the output cannot be written\n";
            return status == exit_status::success ? exit_status::output : status;
        }
        return status;
    }

private:
    exit_status run_command(int argc, char const* const* argv) {
        try {
            app_.parse(argc, argv);
        } catch (CLI::ParseError const& error) {
            return app_.exit(error, out_, errors_) == 0 ? exit_status::success : exit_status::usage;
        }
        if (version_) {
            out_ << "gevctl " GEVCTL_VERSION "\n";
            return exit_status::success;
        }
        if (!command_) {
            errors_ << app_.help();
            return exit_status::usage;
        }
        try {
            return command_();
        } catch (failure const& error) {
            out_.flush();
            if (caught_signal() != SIGPIPE) {  // programs in a pipe end silently
                errors_ << "gevctl: " << error.what() << '\n';
            }
            return error.status();
        } catch (std::exception const& error) {
            out_.flush();
            errors_ << "gevctl: " << error.what() << '\n';
            return exit_status::refused;
        }
    }

    /// Adds a command with its options, which live as long as the command line.
    template <class options_type, class function>
    std::pair<CLI::App*, options_type*> add(char const* name, char const* description, function run_command) {
        auto options = std::make_shared<options_type>();
        CLI::App* const made = app_.add_subcommand(name, description);
        made->callback(
            [this, options, run_command] { command_ = [options, run_command] { return run_command(*options); }; });
        return {made, options.get()};
    }

    void declare_list() {
        auto const [list, options] = add<list_options>("list", "List cameras, also in other subnets",
                                                       [this](auto const& given) { return list_command(given, out_); });
        list->add_option("--interface", options->interface, "Search this network interface only");
        list->add_flag("--json", options->json, "Print JSON");
    }

    void declare_features() {
        auto const [get, get_options] = add<feature_options>(
            "get", "Read features", [this](auto const& given) { return get_command(given, out_); });
        get->add_option("words", get_options->words, "[CAMERA] NAME...")->required();
        get->add_flag("--json", get_options->json, "Print JSON");

        auto const [set, set_options] =
            add<feature_options>("set", "Write features in the order given, and print what the camera has then",
                                 [this](auto const& given) { return set_command(given, out_, errors_); });
        set->add_option("words", set_options->words, "[CAMERA] NAME=VALUE...")->required();

        auto const [execute, execute_options] = add<feature_options>(
            "execute", "Execute commands", [this](auto const& given) { return execute_command(given, out_); });
        execute->add_option("words", execute_options->words, "[CAMERA] NAME...")->required();

        auto const [features, tree] = add<tree_options>(
            "features", "Print the features with type, access, value and range, or one feature with its description",
            [this](auto const& given) { return features_command(given, out_); });
        features->add_option("words", tree->words, "[CAMERA] [NAME or CATEGORY]")->expected(0, 2);
        features->add_option("--visibility", tree->visibility, "Deepest level to print")
            ->check(CLI::IsMember({"beginner", "expert", "guru", "invisible"}))
            ->capture_default_str();
        features->add_flag("--names", tree->names, "Print names only");
        features->add_flag("--entries", tree->entries, "Print the entries of NAME that are available, only");
        features->add_flag("--json", tree->json, "Print JSON");

        auto const [watch, watched] =
            add<watch_options>("watch", "Print values when they change, until a signal",
                               [this](auto const& given) { return watch_command(given, out_); });
        watch->add_option("words", watched->features.words, "[CAMERA] NAME...")->required();
        watch->add_option("--interval", watched->interval_s, "Seconds between two readings")
            ->check(CLI::Range(0.001, 3600.0))
            ->capture_default_str();
        watch->add_flag("--json", watched->features.json, "Print a JSON object for each change");
    }

    void declare_settings() {
        auto const [dump, dumped] =
            add<dump_options>("dump", "Print a feature file with the camera's settings",
                              [this](auto const& given) { return dump_command(given, out_, errors_); });
        dump->add_option("camera", dumped->camera, "CAMERA");
        dump->add_flag("--all", dumped->all, "Also features that the camera does not mark as streamable");

        auto const [apply, applied] =
            add<apply_options>("apply", "Apply a feature file: write what differs, and read everything back",
                               [this](auto const& given) { return apply_command(given, out_, errors_); });
        apply->add_option("words", applied->words, "[CAMERA] FILE")->required()->expected(1, 2);
        apply->add_flag("--dry-run", applied->dry_run, "Print what differs, and change nothing");

        auto const [diff, compared] = add<std::vector<std::string>>(
            "diff", "Print the differences between a camera and a feature file, or between two files",
            [this](auto const& given) { return diff_command(given, out_, errors_); });
        diff->add_option("words", *compared, "[CAMERA] FILE, or FILE FILE")->required()->expected(1, 2);

        auto const [user_set, set] = add<user_set_options>(
            "user-set", "Load or save a user set", [this](auto const& given) { return user_set_command(given, out_); });
        user_set->add_option("words", set->words, "[CAMERA] load|save NAME")->required()->expected(2, 3);
        user_set->add_flag("--default", set->make_default, "Also load this set at power-up");
    }

    void declare_addresses() {
        auto const [force, forced] =
            add<force_ip_options>("force-ip", "Change the present address of a camera, also in another subnet",
                                  [this](auto const& given) { return force_ip_command(given, out_); });
        force->add_option("mac", forced->mac, "MAC address")->required();
        force->add_option("address", forced->address, "ADDRESS/PREFIX, for example 10.0.0.5/24")->required();
        force->add_option("--gateway", forced->gateway, "Address of the gateway");
        force->add_option("--interface", forced->interface, "Send on this network interface only");

        auto const [set, permanent] =
            add<set_ip_options>("set-ip", "Set how a camera gets its address at power-up",
                                [this](auto const& given) { return set_ip_command(given, out_, errors_); });
        set->add_option("words", permanent->words, "[CAMERA] dhcp|link-local|persistent [ADDRESS/PREFIX]")
            ->required()
            ->expected(1, 3);
        set->add_option("--gateway", permanent->gateway, "Address of the gateway");
    }

    void declare_others() {
        auto const [action, sent] = add<action_options>(
            "action", "Broadcast an action command", [this](auto const& given) { return action_command(given, out_); });
        action->add_option("--device-key", sent->keys.device_key, "Device key")->required();
        action->add_option("--group-key", sent->keys.group_key, "Group key")->required();
        action->add_option("--mask", sent->keys.group_mask, "Group mask")->required();
        action->add_option("--at", sent->time, "Value of the cameras' timestamp counters at which they act");
        action->add_option("--interface", sent->interface, "Send on this network interface only");
        action->add_flag("--json", sent->json, "Print JSON");

        auto const [clock, compared] =
            add<clock_options>("clock", "Compare the camera's clock with this machine's",
                               [this](auto const& given) { return clock_command(given, out_); });
        clock->add_option("camera", compared->camera, "CAMERA");
        clock->add_option("--seconds", compared->seconds, "Duration of a measurement")
            ->check(CLI::Range(0.1, 86'400.0))
            ->capture_default_str();
        clock->add_flag("--watch", compared->watch, "Repeat until a signal");
        auto* const as_json = clock->add_flag("--json", compared->json, "Print JSON");
        clock->add_flag("--reference", compared->reference, "Print a line for the configuration of mediagrabber")
            ->excludes(as_json);

        struct xml_options {
            std::string camera;
            std::string file;
        };
        auto const [xml, printed] = add<xml_options>("xml", "Print the GenICam XML", [this](auto const& given) {
            return xml_command(given.camera, given.file, out_);
        });
        xml->add_option("camera", printed->camera, "CAMERA");
        xml->add_option("-o,--output", printed->file, "File to write");

        auto const [one, words] =
            add<std::vector<std::string>>("register", "Read or write a register of 32 bits",
                                          [this](auto const& given) { return register_command(given, out_); });
        one->add_option("words", *words, "ADDRESS, CAMERA ADDRESS to read, or CAMERA ADDRESS VALUE to write")
            ->required()
            ->expected(1, 3);

        struct suits_options {
            std::string camera;
            bool json = false;
        };
        auto const [suits, checked] =
            add<suits_options>("suits", "Print which of the features that mediagrabber's plug-in uses the camera has",
                               [this](auto const& given) { return suits_command(given.camera, given.json, out_); });
        suits->add_option("camera", checked->camera, "CAMERA");
        suits->add_flag("--json", checked->json, "Print JSON");
    }

    std::ostream& out_;
    std::ostream& errors_;
    CLI::App app_{"gevctl: lists and configures GigE Vision cameras.", "gevctl"};
    bool version_ = false;
    std::function<exit_status()> command_;
};

}  // namespace

exit_status run_command_line(int argc, char const* const* argv, std::ostream& out, std::ostream& errors) {
    return command_line(out, errors).run(argc, argv);
}

}  // namespace gevctl
