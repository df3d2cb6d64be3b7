// SPDX-License-Identifier: MIT
#include "config/renamed_keys.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>

#include "config/configuration_file.hpp"
#include "config/configuration_schema.hpp"
#include "config/settings.hpp"

using namespace mediagrabber;

namespace {

std::string file_error(std::string const& text) {
    try {
        parse_configuration(text, "run.toml");
        return {};
    } catch (configuration_error const& error) {
        return error.what();
    }
}

std::string setting_error(std::string const& path, std::string const& value) {
    configuration values;
    try {
        apply_settings({{.path = path, .value = value}}, values, change_effect::next_start);
        return {};
    } catch (setting_refused const& error) {
        return error.what();
    }
}

bool is_key(std::string_view path) {
    return std::ranges::any_of(configuration_schema(), [&](auto const& key) { return key.path == path; });
}

/// A valid file apart from the value, which is in its third line.
std::string assignment(std::string_view path, std::string_view value) {
    std::string const key(path);
    std::string const quoted = " = \"" + std::string(value) + "\"\n";
    if (key.starts_with("line.")) {
        return "[[line]]\npin = \"Out1\"\n" + key.substr(key.find('.') + 1) + quoted;
    }
    std::string const format = key == "image.convert_to" ? "image.format = \"BayerRG8\"\n" : "\n";
    return "\n" + format + key + quoted;
}

}  // namespace

TEST(RenamedKeys, LeadToKeysThatExist) {
    for (renamed_key const& one : renamed_keys()) {
        EXPECT_TRUE(is_key(one.new_path)) << one.new_path;
        EXPECT_FALSE(is_key(one.old_path)) << one.old_path;
    }
}

TEST(RenamedKeys, AreRefusedInAFileWithTheirPositionAndTheNewName) {
    for (renamed_key const& one : renamed_keys()) {
        std::string const path(one.old_path);
        EXPECT_EQ(file_error("# comment\n" + path + " = 1\n"), "run.toml:2:" + std::to_string(path.find('.') + 2) +
                                                                   ": \"" + path + "\" was renamed to \"" +
                                                                   std::string(one.new_path) + "\"");
    }
}

TEST(RenamedKeys, AreRefusedAsASettingWithTheNewName) {
    for (renamed_key const& one : renamed_keys()) {
        std::string const path(one.old_path);
        EXPECT_EQ(setting_error(path, "1"), "\"" + path + "\" was renamed to \"" + std::string(one.new_path) + "\"");
    }
}

TEST(RenamedKeys, CoverEveryKeyThatChanged) {
    std::set<std::string_view> old;
    for (renamed_key const& one : renamed_keys()) {
        old.insert(one.old_path);
    }
    EXPECT_EQ(old, (std::set<std::string_view>{"image.rotate", "transport.packet_size", "timing.frame_rate",
                                               "timing.clock_correction", "exposure.mode", "gain.mode", "output.keep_s",
                                               "output.keep_when_lost", "mqtt.queue"}));
}

TEST(RenamedValues, CoverEveryValueThatChanged) {
    std::set<std::string> old;
    for (renamed_value const& one : renamed_values()) {
        old.insert(std::string(one.path) + " " + std::string(one.old_value));
    }
    std::set<std::string> expected{"line.source low", "line.source exposure_active"};
    for (std::string const& key : {std::string("image.format"), std::string("image.convert_to")}) {
        expected.insert({key + " mono8", key + " mono12p", key + " mono12", key + " bayer_rg8"});
    }
    for (std::string const& key : {std::string("exposure.auto"), std::string("gain.auto")}) {
        expected.insert({key + " untouched", key + " manual", key + " auto"});
    }
    EXPECT_EQ(old, expected);
}

TEST(RenamedValues, AreRefusedInAFileWithTheNewValue) {
    for (renamed_value const& one : renamed_values()) {
        auto const error = file_error(assignment(one.path, one.old_value));
        EXPECT_THAT(error, testing::StartsWith("run.toml:3:"));
        EXPECT_THAT(error,
                    testing::HasSubstr(": " + std::string(one.path) + ": the value \"" + std::string(one.old_value) +
                                       "\" was renamed to \"" + std::string(one.new_value) + "\""));
    }
}

TEST(RenamedValues, LeadToValuesThatAreValid) {
    for (renamed_value const& one : renamed_values()) {
        EXPECT_EQ(file_error(assignment(one.path, one.new_value)), "") << one.path;
    }
}

TEST(RenamedValues, AreRefusedAsASettingWithTheNewValue) {
    for (renamed_value const& one : renamed_values()) {
        std::string const path(one.path);
        if (path.starts_with("line.")) {
            continue;  // no setting
        }
        EXPECT_EQ(setting_error(path, std::string(one.old_value)),
                  path + ": the value \"" + std::string(one.old_value) + "\" was renamed to \"" +
                      std::string(one.new_value) + "\"");
    }
}
