// SPDX-License-Identifier: MIT
#include "cli/check_command.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "config/configuration_file.hpp"
#include "config/configuration_schema.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

class CheckCommand : public testing::Test {
protected:
    std::string check(std::string const& text) {
        std::ofstream(file) << text;
        std::ostringstream out;
        EXPECT_EQ(check_command(file, out), exit_status::success);
        return out.str();
    }

    temporary_directory const directory;
    std::filesystem::path const file = directory.path() / "run.toml";
};

}  // namespace

TEST_F(CheckCommand, PrintsEveryKeyWithItsOrigin) {
    auto const shown = check("[image]\nwidth = 640\n");
    EXPECT_THAT(shown, HasSubstr("image.width = 640 "));
    EXPECT_THAT(shown, HasSubstr(" # " + file.string() + ":2:9, pixels\n"));
    EXPECT_THAT(shown, HasSubstr("# image.height "));
    EXPECT_THAT(shown, HasSubstr(" # not configured: as set in the camera\n"));
    EXPECT_THAT(shown, HasSubstr("image.format = \"Mono8\" "));
    for (auto const& key : configuration_schema()) {
        EXPECT_THAT(shown, HasSubstr(key.path + " "));
    }
}

TEST_F(CheckCommand, PrintsAnEquivalentConfiguration) {
    auto const shown = check(
        "camera.model = \"a\\nb\"\n[image]\nwidth = 640\n[gain]\nauto = \"Continuous\"\nlimits_db = [0.1, 3]\n"
        "[[line]]\npin = \"Out1\"\nsource = \"Low\"\n[[line]]\npin = \"Out2\"\nsource = \"Low\"\ninverted = true\n");
    EXPECT_EQ(check(shown).substr(0, 20), shown.substr(0, 20));
    auto const first = load_configuration(file).values;
    auto const second = parse_configuration(shown, "shown").values;
    for (auto const effect : {change_effect::live_update, change_effect::reconfiguration, change_effect::restart,
                              change_effect::next_start}) {
        EXPECT_TRUE(changed_keys(first, second, effect).empty());
    }
    EXPECT_EQ(second.camera.model, "a\nb");
    EXPECT_EQ(second.lines.size(), 2U);
}

TEST_F(CheckCommand, WarnsAboutValuesWithoutEffect) {
    EXPECT_THAT(check("tone.gamma = 2\n"), HasSubstr("# tone.gamma has no effect: it requires tone.enable = true\n"));
}

TEST_F(CheckCommand, ThrowsForAFileWithErrors) {
    std::ofstream(file) << "[image]\nwidth = 0\n";
    std::ostringstream out;
    EXPECT_THROW(check_command(file, out), configuration_error);
    EXPECT_EQ(out.str(), "");
}

TEST_F(CheckCommand, PrintsTheValuesForPrograms) {
    std::ofstream(file) << "[image]\nwidth = 640\n[[line]]\npin = \"Out1\"\nsource = \"Low\"\n[tone]\ngamma = 2\n";
    std::ostringstream out;
    EXPECT_EQ(check_as_json(file, out), exit_status::success);
    auto const found = nlohmann::json::parse(out.str());
    EXPECT_EQ(found["file"], file.string());
    EXPECT_TRUE(found["errors"].empty());
    EXPECT_EQ(found["values"].size(), configuration_schema().size());
    EXPECT_EQ(found["values"]["image.width"],
              (nlohmann::json{{"value", 640}, {"unit", "pixels"}, {"origin", {{"line", 2}, {"column", 9}}}}));
    EXPECT_TRUE(found["values"]["image.height"]["value"].is_null());
    EXPECT_TRUE(found["values"]["image.format"]["origin"].is_null());
    EXPECT_EQ(found["line"][0]["pin"], "Out1");
    EXPECT_EQ(found["remarks"][0], "tone.gamma has no effect: it requires tone.enable = true");
}

TEST_F(CheckCommand, PrintsErrorsForPrograms) {
    std::ofstream(file) << "[image]\nwidth = 0\n";
    std::ostringstream out;
    EXPECT_EQ(check_as_json(file, out), exit_status::usage);
    auto const errors = nlohmann::json::parse(out.str())["errors"];
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0]["line"], 2);
    EXPECT_EQ(errors[0]["column"], 9);
    EXPECT_THAT(errors[0]["text"].get<std::string>(), HasSubstr("image.width: 0 is not valid"));
}

TEST_F(CheckCommand, PrintsADefaultConfigurationThatItAccepts) {
    std::ostringstream sample;
    print_default_configuration(sample);
    auto const shown = check(sample.str());
    EXPECT_THAT(shown, testing::Not(HasSubstr(file.string())));
    std::istringstream lines(sample.str());
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 100U + (line.starts_with("# ") ? 0U : 100U)) << line;
    }
}

/// Each key with the # removed, alone in its table.
TEST_F(CheckCommand, PrintsEveryKeyWithAValidValue) {
    std::ostringstream sample;
    print_default_configuration(sample);
    std::istringstream lines(sample.str());
    std::string table;
    std::size_t keys = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('[')) {
            table = line.substr(1, line.size() - 2);
        } else if (line == "#[[line]]") {
            break;
        } else if (line.starts_with('#') && !line.starts_with("# ")) {
            ++keys;
            std::string const path = table + "." + line.substr(1, line.find(' ') - 1);
            auto const& schema = configuration_schema();
            auto const key = std::ranges::find(schema, path, &configuration_key::path);
            ASSERT_NE(key, schema.end()) << path;
            configuration values;
            auto const parsed = toml::parse("value" + line.substr(line.find(' ')));
            EXPECT_TRUE(key->read(*parsed.get("value"), values)) << line;
        }
    }
    EXPECT_EQ(keys, configuration_schema().size());
}
