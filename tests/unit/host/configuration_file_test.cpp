#include "configuration_file.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

configuration read(std::string const& text) {
    return parse_configuration(text, "run.toml").values;
}

/// What is said about a text that is refused, "" when it is taken.
std::string complaint(std::string const& text) {
    try {
        parse_configuration(text, "run.toml");
        return {};
    } catch (configuration_error const& error) {
        return error.what();
    }
}

std::string complaint_about_file(std::filesystem::path const& file) {
    try {
        load_configuration(file);
        return {};
    } catch (configuration_error const& error) {
        return error.what();
    }
}

}  // namespace

TEST(ConfigurationFile, ThatIsEmptyLeavesTheCameraAsItIs) {
    auto const values = read("");
    EXPECT_EQ(values.effective_mask(), 1U);
    EXPECT_FALSE(values.width || values.frame_rate || values.exposure_time_us || values.gain_db || values.packet_size);
    EXPECT_EQ(values.exposure_mode, control_mode::untouched);
    EXPECT_EQ(values.frames, 0U);
    EXPECT_EQ(values.give_up_after, 0U);
}

TEST(ConfigurationFile, EveryValueGetsToItsPlace) {
    auto const values = read(R"(
        [camera]
        model = "M"
        serial = "S"
        active_mask = 6
        [image]
        width = 10
        height = 11
        offset_x = 12
        offset_y = 13
        format = "mono12p"
        convert_to = "mono8"
        rotate = 180
        [transport]
        packet_size = 1500
        [timing]
        frame_rate = 25.5
        clock_correction = -7
        [exposure]
        mode = "manual"
        time_us = 250.5
        limits_us = [10, 20.5]
        [gain]
        mode = "auto"
        db = 3.5
        limits_db = [-1, 12]
        [auto]
        brightness = 0.25
        area = true
        [tone]
        enable = true
        gamma = 0.45
        [memory]
        buffers = 5
        export_buffers = 6
        [run]
        frames = 100
        grace_time_s = 1.5
        retry_interval_s = 0.25
        give_up_after = "never"
        [output]
        directory = "there"
        compression = "lzw"
        [log]
        level = "debug"
        sinks = ["stdout", "syslog"]
        instance = 3
        [[line]]
        pin = "Out2"
        source = "exposure_active"
        inverted = true
        [[line]]
        pin = "Out1"
        source = "low"
    )");
    EXPECT_EQ(values.model, "M");
    EXPECT_EQ(values.serial, "S");
    EXPECT_EQ(values.active_mask, 6U);
    EXPECT_EQ(values.width, 10);
    EXPECT_EQ(values.height, 11);
    EXPECT_EQ(values.offset_x, 12);
    EXPECT_EQ(values.offset_y, 13);
    EXPECT_EQ(values.format, 2);
    EXPECT_EQ(values.convert_to, 1);
    EXPECT_EQ(values.rotate, 180);
    EXPECT_EQ(values.packet_size, 1500U);
    EXPECT_EQ(values.frame_rate, 25.5F);
    EXPECT_EQ(values.clock_correction, -7);
    EXPECT_EQ(values.exposure_mode, control_mode::manual);
    EXPECT_EQ(values.exposure_time_us, 250.5F);
    EXPECT_EQ(values.exposure_limits_us->low, 10.0F);
    EXPECT_EQ(values.exposure_limits_us->high, 20.5F);
    EXPECT_EQ(values.gain_mode, control_mode::automatic);
    EXPECT_EQ(values.gain_db, 3.5F);
    EXPECT_EQ(values.gain_limits_db->low, -1.0F);
    EXPECT_EQ(values.gain_limits_db->high, 12.0F);
    EXPECT_EQ(values.brightness, 0.25F);
    EXPECT_TRUE(values.auto_area);
    EXPECT_TRUE(values.tone_enabled);
    EXPECT_EQ(values.gamma, 0.45F);
    EXPECT_EQ(values.buffers, 5U);
    EXPECT_EQ(values.export_buffers, 6U);
    EXPECT_EQ(values.frames, 100U);
    EXPECT_EQ(values.grace_time_s, 1.5);
    EXPECT_EQ(values.retry_interval_s, 0.25);
    EXPECT_FALSE(values.give_up_after);
    EXPECT_EQ(values.directory, "there");
    EXPECT_EQ(values.compression, tiff_compression::lzw);
    EXPECT_EQ(values.log_level, 4U);
    EXPECT_EQ(values.log_sinks, 3U);
    EXPECT_EQ(values.log_instance, 3U);
    ASSERT_EQ(values.lines.size(), 2U);
    EXPECT_EQ(values.lines[0].pin, 6U);
    EXPECT_EQ(values.lines[0].source, line_source::exposure_active);
    EXPECT_TRUE(values.lines[0].inverted);
    EXPECT_EQ(values.lines[1].pin, 5U);
    EXPECT_EQ(values.lines[1].source, line_source::low);
    EXPECT_FALSE(values.lines[1].inverted);
}

TEST(ConfigurationFile, ForgetsTheFirstCameraWhenAModelIsGiven) {
    EXPECT_EQ(read("camera.model = \"M\"").effective_mask(), 0U);
    EXPECT_EQ(read("camera.active_mask = 4").effective_mask(), 4U);
}

TEST(ConfigurationFile, RemembersWhereAValueWasSet) {
    auto const loaded = parse_configuration("[image]\n  width = 7\n[[line]]\npin = \"Out1\"\nsource = \"low\"\n", "f");
    EXPECT_EQ(loaded.origins.at("image.width").line, 2U);
    EXPECT_EQ(loaded.origins.at("image.width").column, 11U);
    EXPECT_EQ(loaded.origins.at("line.0.pin").line, 4U);
    EXPECT_FALSE(loaded.origins.contains("image.height"));
}

// ---- What is wrong, and where -------------------------------------------------------------------

TEST(ConfigurationFile, SaysWhereAnUnknownKeyStandsAndWhichThereAre) {
    EXPECT_EQ(complaint("[timing]\n\n  frame_rat = 5\n"),
              "run.toml:3:3: timing.frame_rat: unknown, expected one of clock_correction, frame_rate");
}

TEST(ConfigurationFile, SaysWhichTablesThereAre) {
    EXPECT_THAT(complaint("[pictures]\nwidth = 5\n"), StartsWith("run.toml:1:2: pictures: unknown, expected one of"));
    EXPECT_THAT(complaint("[pictures]\n"), HasSubstr(", image, line, log, memory, "));
}

TEST(ConfigurationFile, SaysWhichKeysALineHas) {
    EXPECT_EQ(complaint("[[line]]\npin = \"Out1\"\nsource = \"low\"\nlevel = 1\n"),
              "run.toml:4:1: line.level: unknown, expected one of inverted, pin, source");
}

TEST(ConfigurationFile, SaysWhereAValueStandsAndWhatItHasToBe) {
    EXPECT_EQ(complaint("image.width = 0"),
              "run.toml:1:15: image.width: 0 is refused, expected an integer from 1 to 65535 (pixels)");
    EXPECT_EQ(complaint("[log]\nlevel = \"loud\""),
              "run.toml:2:9: log.level: 'loud' is refused, expected one of \"nothing\", \"error\", \"warning\","
              " \"info\", \"debug\"");
}

TEST(ConfigurationFile, ShortensALongValueInAComplaint) {
    EXPECT_LT(complaint("log.level = \"" + std::string(5000, 'x') + "\"").size(), 300U);
}

TEST(ConfigurationFile, ListsAllFaultsInTheOrderOfTheFile) {
    auto const text = complaint("[run]\nframes = -1\n[image]\nwidth = 0\nheigth = 5\n[auto]\narea = 1\n");
    EXPECT_THAT(text, StartsWith("run.toml:2:10: run.frames"));
    EXPECT_THAT(text, HasSubstr("\nrun.toml:4:9: image.width"));
    EXPECT_THAT(text, HasSubstr("\nrun.toml:5:1: image.heigth"));
    EXPECT_THAT(text, HasSubstr("\nrun.toml:7:8: auto.area"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST(ConfigurationFile, ThatIsNoTomlIsRefusedAtThePlace) {
    EXPECT_THAT(complaint("[image]\nwidth = = 5\n"), StartsWith("run.toml:2:9: "));
    EXPECT_THAT(complaint("[image\n"), StartsWith("run.toml:1:"));
    EXPECT_THAT(complaint("[image]\nwidth = 1\nwidth = 2\n"), StartsWith("run.toml:3:"));
    EXPECT_THAT(complaint("\xff\xfe"), StartsWith("run.toml:1:1: "));
}

TEST(ConfigurationFile, WantsTablesWhereTablesBelong) {
    EXPECT_THAT(complaint("image = 5"), StartsWith("run.toml:1:9: image: 5 is no table, expected [image]"));
    EXPECT_THAT(complaint("line = 5"), StartsWith("run.toml:1:8: line: expected one [[line]] table"));
    EXPECT_THAT(complaint("[line]\npin = \"Out1\""), HasSubstr("line: expected one [[line]] table"));
    EXPECT_THAT(complaint("[image.width]\nx = 1"), HasSubstr("image.width: a table is refused"));
}

TEST(ConfigurationFile, WantsPinAndSourceOfALineAndEachLineOnce) {
    EXPECT_THAT(complaint("[[line]]\npin = \"Out1\"\n"), StartsWith("run.toml:1:1: line.source: missing, expected"));
    EXPECT_THAT(complaint("[[line]]\nsource = \"low\"\n"), StartsWith("run.toml:1:1: line.pin: missing, expected"));
    std::string const line = "[[line]]\npin = \"Out1\"\nsource = \"low\"\n";
    EXPECT_EQ(complaint(line), "");
    EXPECT_THAT(complaint(line + line), StartsWith("run.toml:4:1: line.pin: this output has a [[line]] table already"));
}

TEST(ConfigurationFile, RefusesACameraThatNothingSelects) {
    EXPECT_THAT(complaint("camera.serial = \"S\""), StartsWith("run.toml:1:17: camera.serial: a serial number alone"));
    EXPECT_THAT(complaint("camera.active_mask = 0"), StartsWith("run.toml:1:22: camera.active_mask: 0 selects no"));
    EXPECT_EQ(complaint("[camera]\nactive_mask = 0\nmodel = \"M\""), "");
}

TEST(ConfigurationFile, RefusesColoursFromAGreyPicture) {
    EXPECT_THAT(complaint("image.convert_to = \"bayer_rg8\""), StartsWith("run.toml:1:20: image.convert_to:"));
    EXPECT_EQ(complaint("[image]\nformat = \"bayer_rg8\"\nconvert_to = \"bayer_rg8\""), "");
}

TEST(ConfigurationFile, RefusesLimitsThatAreOneAndTheSameForTheCamera) {
    EXPECT_THAT(complaint("gain.limits_db = [6.0, 6.00000001]"), HasSubstr("the low one below the high one"));
}

// ---- Files --------------------------------------------------------------------------------------

TEST(ConfigurationFile, IsReadFromDisk) {
    temporary_directory const directory;
    auto const file = directory.path() / "run.toml";
    std::ofstream(file) << "[image]\nwidth = 99\n";
    EXPECT_EQ(load_configuration(file).values.width, 99);
    EXPECT_EQ(complaint_about_file(file), "");
}

TEST(ConfigurationFile, ThatIsNotThereIsNamed) {
    EXPECT_EQ(complaint_about_file("/nowhere/run.toml"),
              "/nowhere/run.toml: can't be opened: No such file or directory");
}

TEST(ConfigurationFile, ThatIsNoFileIsRefused) {
    temporary_directory const directory;
    EXPECT_THAT(complaint_about_file(directory.path()), HasSubstr(": is not a regular file"));
    EXPECT_EQ(complaint_about_file("/dev/zero"), "/dev/zero: is not a regular file");
}

TEST(ConfigurationFile, ThatIsTooLargeIsRefused) {
    temporary_directory const directory;
    auto const file = directory.path() / "run.toml";
    std::ofstream(file) << "# " << std::string(largest_configuration_file - 3, 'x') << '\n';
    EXPECT_EQ(complaint_about_file(file), "");
    std::ofstream(file, std::ios::app) << "#";
    EXPECT_THAT(complaint_about_file(file), HasSubstr(": is larger than 1 MiB"));
}

TEST(ConfigurationFile, BringsATableThatItNames) {
    temporary_directory const directory;
    auto const file = directory.path() / "run.toml";
    auto const table = directory.path() / "tables" / "bright.csv";
    std::filesystem::create_directory(table.parent_path());
    std::ofstream out(table);
    for (int i = 0; i < 256; ++i) {
        out << 4095 - i << '\n';
    }
    out.close();
    std::ofstream(file) << "[tone]\nenable = true\nlut = \"tables/../tables/bright.csv\"\nlut_bits = 12\n";
    auto const values = load_configuration(file).values;
    EXPECT_EQ(values.lut_file, table.string());
    ASSERT_NE(values.lut, nullptr);
    EXPECT_EQ((*values.lut)[5], 4090);
    EXPECT_EQ(load_configuration(file).values.lut, values.lut) << "the same contents, the same address";
}

TEST(ConfigurationFile, SaysWhatIsWrongWithATableThatItNames) {
    temporary_directory const directory;
    auto const file = directory.path() / "run.toml";
    auto const table = directory.path() / "bright.csv";
    std::ofstream(file) << "[tone]\nlut = \"bright.csv\"\n";
    EXPECT_EQ(complaint_about_file(file),
              file.string() + ":2:7: tone.lut: " + table.string() + ": can't be opened: No such file or directory");
    std::ofstream(table) << "1\n2\n";
    EXPECT_EQ(complaint_about_file(file),
              file.string() + ":2:7: tone.lut: " + table.string() + ": has 2 entries, expected 256 to 65536");
}

TEST(ConfigurationFile, DoubtsATableThatMakesEverythingBlack) {
    loaded_configuration loaded;
    loaded.values.lut = kept_table(lookup_table(256, 255));
    EXPECT_THAT(remarks(loaded), ElementsAre(HasSubstr("tone.lut makes everything nearly black")));
    loaded.values.lut = kept_table(lookup_table(256, 4095));
    EXPECT_THAT(remarks(loaded), testing::IsEmpty());
}

// ---- Values without effect ----------------------------------------------------------------------

TEST(ConfigurationFile, SaysWhereAnAddressOfThePageIsNone) {
    EXPECT_THAT(complaint("[web]\naddress = \"8080\""),
                StartsWith("run.toml:2:11: web.address: \"8080\" is refused, expected ADDRESS:PORT"));
}

TEST(ConfigurationFile, MeansATokenFileRelativeToItself) {
    auto const values =
        parse_configuration("[web]\naddress = \"127.0.0.1:80\"\ntoken_file = \"token\"", "/etc/recorder/run.toml")
            .values;
    EXPECT_EQ(values.web_token_file, "/etc/recorder/token");
}

TEST(UnusedValues, NameATokenWithoutAPage) {
    EXPECT_THAT(unused_values(parse_configuration("[web]\ntoken_file = \"token\"", "run.toml")),
                ElementsAre("web.token_file has no effect: it needs web.address"));
}

TEST(UnusedValues, AreRemarkedUponWithWhatTheyNeed) {
    auto const loaded = parse_configuration(
        "exposure.time_us = 5\nexposure.limits_us = [1, 2]\ngain.db = 1\ngain.limits_db = [1, 2]\n"
        "auto.brightness = 0.5\ntone.gamma = 1",
        "f");
    EXPECT_THAT(unused_values(loaded),
                ElementsAre("exposure.time_us has no effect: it needs exposure.mode = \"manual\"",
                            "exposure.limits_us has no effect: it needs exposure.mode = \"auto\"",
                            "gain.db has no effect: it needs gain.mode = \"manual\"",
                            "gain.limits_db has no effect: it needs gain.mode = \"auto\"",
                            "auto.brightness has no effect: it needs exposure.mode or gain.mode = \"auto\"",
                            "tone.gamma has no effect: it needs tone.enable = true"));
}

TEST(UnusedValues, AreNoneWhereEverythingIsUsed) {
    auto const loaded = parse_configuration(
        "[exposure]\nmode = \"manual\"\ntime_us = 5\n[gain]\nmode = \"auto\"\nlimits_db = [1, 2]\n"
        "[auto]\nbrightness = 0.5\n[tone]\nenable = true\ngamma = 1",
        "f");
    EXPECT_TRUE(unused_values(loaded).empty());
}
