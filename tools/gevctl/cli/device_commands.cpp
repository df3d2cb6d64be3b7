// SPDX-License-Identifier: MIT
#include "cli/device_commands.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <limits>
#include <optional>
#include <ostream>

#include <nlohmann/json.hpp>

#include "cli/camera_argument.hpp"
#include "genicam/node.hpp"
#include "report/table.hpp"

namespace gevctl {

namespace {

/// What a recording needs a feature for.
enum class need { required, optional };

/// What a recording does with a feature.
enum class use { read, write, both };

struct used_feature {
    char const* name;
    std::optional<PvGenType> type;  ///< null: any
    use how;
    need kind;
    char const* lost_without_it;
};

/// In the order in which a recording uses them. tests/system/end_to_end/reduced_feature_set_test.py records without
/// most of them.
constexpr std::array used_features{
    used_feature{"PixelFormat", PvGenTypeEnum, use::both, need::required, "the recording ends at the start"},
    used_feature{"Width", PvGenTypeInteger, use::both, need::required, "frames have no size and are not saved"},
    used_feature{"Height", PvGenTypeInteger, use::both, need::required, "frames have no size and are not saved"},
    used_feature{"OffsetX", PvGenTypeInteger, use::both, need::required, "frames have no size and are not saved"},
    used_feature{"OffsetY", PvGenTypeInteger, use::both, need::required,
                 "no region can be set; the camera may refuse to start"},
    used_feature{"ExposureTime", PvGenTypeFloat, use::both, need::required, "the recording ends at the start"},
    used_feature{"AcquisitionStart", PvGenTypeCommand, use::write, need::required, "no frame arrives"},
    used_feature{"AcquisitionStop", PvGenTypeCommand, use::write, need::optional,
                 "the camera is not stopped at the end of a run"},
    used_feature{"AcquisitionFrameRate", PvGenTypeFloat, use::both, need::optional, "the frame rate stays as it is"},
    used_feature{"PayloadSize", PvGenTypeInteger, use::read, need::optional,
                 "the size of buffers is calculated from the image and the chunks"},
    used_feature{"GevSCPSPacketSize", PvGenTypeInteger, use::both, need::optional, "the packet size stays as it is"},
    used_feature{"GevSCCFGUnconditionalStreaming", PvGenTypeBoolean, use::both, need::optional,
                 "the stream depends on the control channel"},
    used_feature{"ChunkModeActive", PvGenTypeBoolean, use::both, need::optional,
                 "no exposure counter and chunk timestamp in frames"},
    used_feature{"ChunkSelector", PvGenTypeEnum, use::both, need::optional,
                 "no exposure counter and chunk timestamp in frames"},
    used_feature{"ChunkEnable", PvGenTypeBoolean, use::write, need::optional,
                 "no exposure counter and chunk timestamp in frames"},
    used_feature{"GevTimestampTickFrequency", PvGenTypeInteger, use::read, need::optional,
                 "frames have the time of their arrival"},
    used_feature{"GevTimestampValue", PvGenTypeInteger, use::read, need::optional,
                 "frames have the time of their arrival"},
    used_feature{"ExposureAuto", PvGenTypeEnum, use::both, need::optional, "no automatic exposure"},
    used_feature{"AutoShutterControlExposureMin", PvGenTypeInteger, use::both, need::optional,
                 "no lower limit of the automatic exposure"},
    used_feature{"AutoShutterControlExposureMax", PvGenTypeInteger, use::both, need::optional,
                 "no upper limit of the automatic exposure"},
    used_feature{"Gain", PvGenTypeFloat, use::both, need::optional, "the gain stays as it is"},
    used_feature{"GainAuto", PvGenTypeEnum, use::both, need::optional, "no automatic gain"},
    used_feature{"AutoGainControlGainRawMin", PvGenTypeInteger, use::both, need::optional,
                 "no lower limit of the automatic gain"},
    used_feature{"AutoGainControlGainRawMax", PvGenTypeInteger, use::both, need::optional,
                 "no upper limit of the automatic gain"},
    used_feature{"ALCReference", PvGenTypeInteger, use::both, need::optional, "no target of the automatic level"},
    used_feature{"ALCAreaEnable", PvGenTypeEnum, use::both, need::optional,
                 "the automatic level measures the area that the camera chooses"},
    used_feature{"GainSelector", PvGenTypeEnum, use::both, need::optional, "the gain that is selected is set"},
    used_feature{"JAIGamma", PvGenTypeEnum, use::both, need::optional, "no gamma"},
    used_feature{"JAILUTMode", PvGenTypeEnum, use::both, need::optional, "no look-up table and no gamma"},
    used_feature{"LUTSelector", PvGenTypeEnum, use::write, need::optional,
                 "no look-up table for cameras with a colour filter array"},
    used_feature{"LUTIndex", PvGenTypeInteger, use::both, need::optional, "no look-up table"},
    used_feature{"LUTValue", PvGenTypeInteger, use::both, need::optional, "no look-up table"},
    used_feature{"LineSelector", PvGenTypeEnum, use::write, need::optional, "no output lines"},
    used_feature{"LineSource", PvGenTypeEnum, use::write, need::optional, "no output lines"},
    used_feature{"LineInverter", PvGenTypeBoolean, use::write, need::optional, "lines are not inverted"},
    used_feature{"DeviceTemperature", std::nullopt, use::read, need::optional,
                 "no temperature in the log and in the metrics"},
};

/// Pixel formats that the plug-in converts.
constexpr std::array pixel_formats{"Mono8", "Mono12Packed", "Mono12", "BayerRG8"};

/// \return why the plug-in cannot use the camera's feature; empty if it can
std::string find_problem(camera_features& features, used_feature const& used) {
    feature_info const* const one = features.catalogue().find(used.name);
    if (one == nullptr) {
        return "no";
    }
    if (used.type && one->type != *used.type) {
        return std::string("of type ") + name_of(one->type) + " instead of " + name_of(*used.type);
    }
    if (used.how != use::write && features.is_write_only(*one)) {
        return "write-only";
    }
    if (used.how != use::read && features.is_read_only(*one)) {
        return "read-only";
    }
    if (one->name != "PixelFormat") {
        return {};
    }
    auto const entries = features.range_of(*one).entries;
    bool const has_format = std::ranges::any_of(
        pixel_formats, [&](char const* each) { return std::ranges::find(entries, each) != entries.end(); });
    return has_format ? "" : "none of Mono8, Mono12Packed, Mono12, BayerRG8";
}

std::uint32_t parse_word(std::string const& text, char const* what) {
    auto const number = openpv::parse_integer(text);
    if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max()) {
        throw failure(exit_status::usage,
                      "\"" + text + "\" is not a valid " + what + ": use 32 bits, decimal or as in 0x0A00");
    }
    return static_cast<std::uint32_t>(*number);
}

}  // namespace

exit_status xml_command(std::string const& camera, std::string const& file, std::ostream& out) {
    auto const xml = camera_connection(find_camera(camera)).load_xml();
    if (file.empty()) {
        out << xml;
        return exit_status::success;
    }
    std::ofstream written(file, std::ios::binary | std::ios::trunc);
    written << xml;
    written.close();
    if (!written) {
        throw failure(exit_status::usage, "the file " + file + " cannot be written");
    }
    return exit_status::success;
}

exit_status register_command(std::vector<std::string> words, std::ostream& out) {
    // A serial number may be a number, too: with two words, CAMERA ADDRESS and ADDRESS VALUE would look the same.
    std::string const camera = words.size() > 1 ? words.front() : std::string();
    if (!camera.empty()) {
        words.erase(words.begin());
    }
    std::uint32_t const address = parse_word(words.front(), "register address");
    if (address % 4 != 0) {
        throw failure(exit_status::usage, "the address of a register must be a multiple of 4");
    }
    std::optional<std::uint32_t> const value =
        words.size() > 1 ? std::optional(parse_word(words[1], "register value")) : std::nullopt;
    camera_connection connection(find_camera(camera));
    if (value) {
        connection.write_register(address, *value);
    }
    std::uint32_t const present = connection.read_register(address);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "0x%04X: 0x%08X (%u)\n", static_cast<unsigned>(address),
                  static_cast<unsigned>(present), static_cast<unsigned>(present));
    out << text.data();
    return exit_status::success;
}

exit_status suits_command(std::string const& camera_name, bool as_json, std::ostream& out) {
    opened_camera camera(find_camera(camera_name));
    auto json = nlohmann::ordered_json::array();
    table rows({"FEATURE", "NEED", "CAMERA", "WITHOUT IT"});
    bool suits = true;
    for (used_feature const& each : used_features) {
        std::string const problem = find_problem(camera.features, each);
        bool const required = each.kind == need::required;
        suits = suits && (problem.empty() || !required);
        rows.add(
            {each.name, required ? "required" : "optional", problem.empty() ? "yes" : problem, each.lost_without_it});
        json.push_back({{"feature", each.name},
                        {"required", required},
                        {"present", camera.features.catalogue().find(each.name) != nullptr},
                        {"usable", problem.empty()},
                        {"lost_without_it", each.lost_without_it}});
        if (!problem.empty()) {
            json.back()["problem"] = problem;
        }
    }
    if (as_json) {
        out << json.dump(2) << '\n';
    } else {
        rows.print(out);
        out << (suits ? "\nThe camera has all required features.\n" : "\nThe camera lacks required features.\n");
    }
    return suits ? exit_status::success : exit_status::differs;
}

}  // namespace gevctl
