// SPDX-License-Identifier: MIT
#include "cli/check_command.hpp"

#include <gmock/gmock.h>

#include <fstream>
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
