// SPDX-License-Identifier: MIT
#include "config/configuration_file.hpp"

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

/// The error message for a text, "" if it is valid.
std::string error_for(std::string const& text) {
    try {
        parse_configuration(text, "run.toml");
        return {};
    } catch (configuration_error const& error) {
        return error.what();
    }
}

std::string error_for_file(std::filesystem::path const& file) {
    try {
        load_configuration(file);
        return {};
    } catch (configuration_error const& error) {
        return error.what();
    }
}

}  // namespace

TEST(ConfigurationFile, KeepsItsTextForRecordings) {
    EXPECT_EQ(read("# night shift\nimage.width = 7\n").file_text, "# night shift\nimage.width = 7\n");
}

TEST(ConfigurationFile, LeavesTheCameraUnchangedWhenEmpty) {
    auto const values = read("");
    EXPECT_EQ(values.camera.effective_mask(), 1U);
    EXPECT_FALSE(values.image.width || values.timing.frame_rate_hz || values.exposure.time_us || values.gain.db ||
                 values.transport.packet_size_bytes);
    EXPECT_EQ(values.exposure.automatic, auto_mode::unchanged);
    EXPECT_EQ(values.run.frames, 0U);
    EXPECT_EQ(values.run.give_up_after, 0U);
}

TEST(ConfigurationFile, StoresEveryValue) {
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
        format = "Mono12Packed"
        convert_to = "Mono8"
        rotation_deg = 180
        [transport]
        packet_size_bytes = 1500
        [timing]
        frame_rate_hz = 25.5
        clock_correction_ppb = -7
        [exposure]
        auto = "Off"
        time_us = 250.5
        limits_us = [10, 20.5]
        [gain]
        auto = "Continuous"
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
        source = "ExposureActive"
        inverted = true
        [[line]]
        pin = "Out1"
        source = "Low"
    )");
    EXPECT_EQ(values.camera.model, "M");
    EXPECT_EQ(values.camera.serial, "S");
    EXPECT_EQ(values.camera.active_mask, 6U);
    EXPECT_EQ(values.image.width, 10);
    EXPECT_EQ(values.image.height, 11);
    EXPECT_EQ(values.image.offset_x, 12);
    EXPECT_EQ(values.image.offset_y, 13);
    EXPECT_EQ(values.image.format, format_code::Mono12Packed);
    EXPECT_EQ(values.image.convert_to, format_code::Mono8);
    EXPECT_EQ(values.image.rotation_deg, 180);
    EXPECT_EQ(values.transport.packet_size_bytes, 1500U);
    EXPECT_EQ(values.timing.frame_rate_hz, 25.5F);
    EXPECT_EQ(values.timing.clock_correction_ppb, -7);
    EXPECT_EQ(values.exposure.automatic, auto_mode::off);
    EXPECT_EQ(values.exposure.time_us, 250.5F);
    EXPECT_EQ(values.exposure.limits_us->low, 10.0F);
    EXPECT_EQ(values.exposure.limits_us->high, 20.5F);
    EXPECT_EQ(values.gain.automatic, auto_mode::continuous);
    EXPECT_EQ(values.gain.db, 3.5F);
    EXPECT_EQ(values.gain.limits_db->low, -1.0F);
    EXPECT_EQ(values.gain.limits_db->high, 12.0F);
    EXPECT_EQ(values.automatic.brightness, 0.25F);
    EXPECT_TRUE(values.automatic.area);
    EXPECT_TRUE(values.tone.enable);
    EXPECT_EQ(values.tone.gamma, 0.45F);
    EXPECT_EQ(values.memory.buffers, 5U);
    EXPECT_EQ(values.memory.export_buffers, 6U);
    EXPECT_EQ(values.run.frames, 100U);
    EXPECT_EQ(values.run.grace_time_s, 1.5);
    EXPECT_EQ(values.run.retry_interval_s, 0.25);
    EXPECT_FALSE(values.run.give_up_after);
    EXPECT_EQ(values.output.directory, (std::filesystem::current_path() / "there").string());
    EXPECT_EQ(values.output.compression, tiff_compression::lzw);
    EXPECT_EQ(values.log.level, 4U);
    EXPECT_EQ(values.log.sinks, 3U);
    EXPECT_EQ(values.log.instance, 3U);
    ASSERT_EQ(values.lines.size(), 2U);
    EXPECT_EQ(values.lines[0].pin, 6U);
    EXPECT_EQ(values.lines[0].source, line_source::exposure_active);
    EXPECT_TRUE(values.lines[0].inverted);
    EXPECT_EQ(values.lines[1].pin, 5U);
    EXPECT_EQ(values.lines[1].source, line_source::low);
    EXPECT_FALSE(values.lines[1].inverted);
}

TEST(ConfigurationFile, SelectsTheFirstCameraOnlyWithoutAModel) {
    EXPECT_EQ(read("camera.model = \"M\"").camera.effective_mask(), 0U);
    EXPECT_EQ(read("camera.active_mask = 4").camera.effective_mask(), 4U);
}

TEST(ConfigurationFile, RecordsThePositionOfEachValue) {
    auto const loaded = parse_configuration("[image]\n  width = 7\n[[line]]\npin = \"Out1\"\nsource = \"Low\"\n", "f");
    EXPECT_EQ(loaded.origins.at("image.width").line, 2U);
    EXPECT_EQ(loaded.origins.at("image.width").column, 11U);
    EXPECT_EQ(loaded.origins.at("line.0.pin").line, 4U);
    EXPECT_FALSE(loaded.origins.contains("image.height"));
}

// ---- Errors and their positions ------------------------------------------------------------------

TEST(ConfigurationFile, ReportsAnUnknownKeyWithItsPositionAndTheKnownKeys) {
    EXPECT_EQ(error_for("[timing]\n\n  frame_rat = 5\n"),
              "run.toml:3:3: timing.frame_rat: unknown key, expected one of clock_correction_ppb, clock_reference, "
              "frame_rate_hz, tick_frequency_hz");
}

TEST(ConfigurationFile, ReportsAnUnknownTableWithTheKnownTables) {
    EXPECT_THAT(error_for("[pictures]\nwidth = 5\n"),
                StartsWith("run.toml:1:2: pictures: unknown key, expected one of"));
    EXPECT_THAT(error_for("[pictures]\n"), HasSubstr(", image, line, log, memory, "));
}

TEST(ConfigurationFile, ReportsAnUnknownKeyOfALineWithTheKnownKeys) {
    EXPECT_EQ(error_for("[[line]]\npin = \"Out1\"\nsource = \"Low\"\nlevel = 1\n"),
              "run.toml:4:1: line.level: unknown key, expected one of inverted, pin, source");
}

TEST(ConfigurationFile, ReportsAnInvalidValueWithItsPositionAndTheExpectedValues) {
    EXPECT_EQ(error_for("image.width = 0"),
              "run.toml:1:15: image.width: 0 is not valid, expected an integer from 1 to 65535 (pixels)");
    EXPECT_EQ(error_for("[log]\nlevel = \"loud\""),
              "run.toml:2:9: log.level: 'loud' is not valid, expected one of \"nothing\", \"error\", \"warning\","
              " \"info\", \"debug\"");
}

TEST(ConfigurationFile, ShortensALongValueInAnErrorMessage) {
    EXPECT_LT(error_for("log.level = \"" + std::string(5000, 'x') + "\"").size(), 300U);
}

TEST(ConfigurationFile, ReportsAllErrorsInTheOrderOfTheFile) {
    auto const text = error_for("[run]\nframes = -1\n[image]\nwidth = 0\nheigth = 5\n[auto]\narea = 1\n");
    EXPECT_THAT(text, StartsWith("run.toml:2:10: run.frames"));
    EXPECT_THAT(text, HasSubstr("\nrun.toml:4:9: image.width"));
    EXPECT_THAT(text, HasSubstr("\nrun.toml:5:1: image.heigth"));
    EXPECT_THAT(text, HasSubstr("\nrun.toml:7:8: auto.area"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST(ConfigurationFile, ReportsThePositionOfASyntaxError) {
    EXPECT_THAT(error_for("[image]\nwidth = = 5\n"), StartsWith("run.toml:2:9: "));
    EXPECT_THAT(error_for("[image\n"), StartsWith("run.toml:1:"));
    EXPECT_THAT(error_for("[image]\nwidth = 1\nwidth = 2\n"), StartsWith("run.toml:3:"));
    EXPECT_THAT(error_for("\xff\xfe"), StartsWith("run.toml:1:1: "));
}

TEST(ConfigurationFile, RefusesAValueInPlaceOfATable) {
    EXPECT_THAT(error_for("image = 5"), StartsWith("run.toml:1:9: image: 5 is not a table, expected [image]"));
    EXPECT_THAT(error_for("line = 5"), StartsWith("run.toml:1:8: line: expected one [[line]] table"));
    EXPECT_THAT(error_for("[line]\npin = \"Out1\""), HasSubstr("line: expected one [[line]] table"));
    EXPECT_THAT(error_for("[image.width]\nx = 1"), HasSubstr("image.width: a table is not valid"));
}

TEST(ConfigurationFile, RequiresPinAndSourceOfALineAndOneTablePerOutput) {
    EXPECT_THAT(error_for("[[line]]\npin = \"Out1\"\n"), StartsWith("run.toml:1:1: line.source: missing, expected"));
    EXPECT_THAT(error_for("[[line]]\nsource = \"Low\"\n"), StartsWith("run.toml:1:1: line.pin: missing, expected"));
    std::string const line = "[[line]]\npin = \"Out1\"\nsource = \"Low\"\n";
    EXPECT_EQ(error_for(line), "");
    EXPECT_THAT(error_for(line + line), StartsWith("run.toml:4:1: line.pin: this output already has a [[line]] table"));
}

TEST(ConfigurationFile, RefusesAConfigurationThatSelectsNoCamera) {
    EXPECT_THAT(error_for("camera.serial = \"S\""), StartsWith("run.toml:1:17: camera.serial: a serial number alone"));
    EXPECT_THAT(error_for("camera.active_mask = 0"), StartsWith("run.toml:1:22: camera.active_mask: 0 does not"));
    EXPECT_EQ(error_for("[camera]\nactive_mask = 0\nmodel = \"M\""), "");
}

TEST(ConfigurationFile, RefusesToConvertMonochromeToBayer) {
    EXPECT_THAT(error_for("image.convert_to = \"BayerRG8\""), StartsWith("run.toml:1:20: image.convert_to:"));
    EXPECT_EQ(error_for("[image]\nformat = \"BayerRG8\"\nconvert_to = \"BayerRG8\""), "");
}

TEST(ConfigurationFile, RefusesLimitsThatAreEqualAsFloats) {
    EXPECT_THAT(error_for("gain.limits_db = [6.0, 6.00000001]"), HasSubstr("with low < high"));
}

// ---- Files --------------------------------------------------------------------------------------

TEST(ConfigurationFile, IsReadFromDisk) {
    temporary_directory const directory;
    auto const file = directory.path() / "run.toml";
    std::ofstream(file) << "[image]\nwidth = 99\n";
    EXPECT_EQ(load_configuration(file).values.image.width, 99);
    EXPECT_EQ(error_for_file(file), "");
}

TEST(ConfigurationFile, ReportsAMissingFile) {
    EXPECT_EQ(error_for_file("/nowhere/run.toml"), "/nowhere/run.toml: cannot be opened: No such file or directory");
}

TEST(ConfigurationFile, RefusesAnythingButARegularFile) {
    temporary_directory const directory;
    EXPECT_THAT(error_for_file(directory.path()), HasSubstr(": is not a regular file"));
    EXPECT_EQ(error_for_file("/dev/zero"), "/dev/zero: is not a regular file");
}

TEST(ConfigurationFile, RefusesAFileThatIsTooLarge) {
    temporary_directory const directory;
    auto const file = directory.path() / "run.toml";
    std::ofstream(file) << "# " << std::string(max_configuration_file - 3, 'x') << '\n';
    EXPECT_EQ(error_for_file(file), "");
    std::ofstream(file, std::ios::app) << "#";
    EXPECT_THAT(error_for_file(file), HasSubstr(": is larger than 1 MiB"));
}

TEST(ConfigurationFile, LoadsTheLutFile) {
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
    EXPECT_EQ(values.tone.lut_file, table.string());
    ASSERT_NE(values.tone.lut, nullptr);
    EXPECT_EQ((*values.tone.lut)[5], 4090);
    EXPECT_EQ(load_configuration(file).values.tone.lut, values.tone.lut) << "the same contents, the same address";
}

TEST(ConfigurationFile, ReportsAnErrorInTheLutFile) {
    temporary_directory const directory;
    auto const file = directory.path() / "run.toml";
    auto const table = directory.path() / "bright.csv";
    std::ofstream(file) << "[tone]\nlut = \"bright.csv\"\n";
    EXPECT_EQ(error_for_file(file),
              file.string() + ":2:7: tone.lut: " + table.string() + ": cannot be opened: No such file or directory");
    std::ofstream(table) << "1\n2\n";
    EXPECT_EQ(error_for_file(file),
              file.string() + ":2:7: tone.lut: " + table.string() + ": has 2 entries, expected 256 to 65536");
}

TEST(ConfigurationFile, ReadsNoLutFileForNone) {
    auto const loaded = parse_configuration("tone = { enable = true, lut = \"none\", gamma = 0.5 }", "f");
    EXPECT_TRUE(loaded.values.tone.without_lut());
    EXPECT_EQ(loaded.values.tone.lut, nullptr);
    EXPECT_THAT(remarks(loaded), testing::IsEmpty()) << "the gamma has an effect";
    auto const with_bits = parse_configuration("tone = { enable = true, lut = \"none\", lut_bits = 12 }", "f");
    EXPECT_THAT(remarks(with_bits), ElementsAre("tone.lut_bits has no effect: it requires tone.lut"));
}

TEST(ConfigurationFile, WarnsAboutALutThatMakesImagesBlack) {
    loaded_configuration loaded;
    loaded.values.tone.lut = interned_lut(lookup_table(256, 255));
    EXPECT_THAT(remarks(loaded), ElementsAre(HasSubstr("tone.lut makes every image nearly black")));
    loaded.values.tone.lut = interned_lut(lookup_table(256, 4095));
    EXPECT_THAT(remarks(loaded), testing::IsEmpty());
}

// ---- Values without effect ----------------------------------------------------------------------

TEST(ConfigurationFile, ReportsAnInvalidWebAddress) {
    EXPECT_THAT(error_for("[web]\naddress = \"8080\""),
                StartsWith("run.toml:2:11: web.address: \"8080\" is not valid, expected ADDRESS:PORT"));
}

TEST(ConfigurationFile, ResolvesATokenFileRelativeToItself) {
    auto const values =
        parse_configuration("[web]\naddress = \"127.0.0.1:80\"\ntoken_file = \"token\"", "/etc/recorder/run.toml")
            .values;
    EXPECT_EQ(values.web.token_file, "/etc/recorder/token");
}

TEST(UnusedValues, IncludeATokenWithoutAPage) {
    EXPECT_THAT(unused_values(parse_configuration("[web]\ntoken_file = \"token\"", "run.toml")),
                ElementsAre("web.token_file has no effect: it requires web.address"));
}

TEST(UnusedValues, AreReportedWithTheirRequirement) {
    auto const loaded = parse_configuration(
        "exposure.time_us = 5\nexposure.limits_us = [1, 2]\ngain.db = 1\ngain.limits_db = [1, 2]\n"
        "auto.brightness = 0.5\ntone.gamma = 1",
        "f");
    EXPECT_THAT(unused_values(loaded),
                ElementsAre("exposure.time_us has no effect: it requires exposure.auto = \"Off\"",
                            "exposure.limits_us has no effect: it requires exposure.auto = \"Continuous\"",
                            "gain.db has no effect: it requires gain.auto = \"Off\"",
                            "gain.limits_db has no effect: it requires gain.auto = \"Continuous\"",
                            "auto.brightness has no effect: it requires exposure.auto or gain.auto = \"Continuous\"",
                            "tone.gamma has no effect: it requires tone.enable = true"));
}

TEST(UnusedValues, AreEmptyIfEverythingIsUsed) {
    auto const loaded = parse_configuration(
        "[exposure]\nauto = \"Off\"\ntime_us = 5\n[gain]\nauto = \"Continuous\"\nlimits_db = [1, 2]\n"
        "[auto]\nbrightness = 0.5\n[tone]\nenable = true\ngamma = 1",
        "f");
    EXPECT_TRUE(unused_values(loaded).empty());
}

TEST(ConfigurationFile, RefusesAnUnknownGroupWithItsPosition) {
    EXPECT_EQ(error_for("control.group = \"no such group\""),
              "run.toml:1:17: control.group: there is no group \"no such group\"");
    EXPECT_EQ(error_for("ring.group = \"no such group\""),
              "run.toml:1:14: ring.group: there is no group \"no such group\"");
    EXPECT_EQ(error_for("control.group = \"root\"\nring.group = \"0\""), "");
}

TEST(ConfigurationFile, RefusesAnInvalidPublicOriginWithItsPosition) {
    EXPECT_THAT(error_for("web.public_origin = \"camera.example\""),
                StartsWith("run.toml:1:21: web.public_origin: \"camera.example\" is not an origin"));
}

TEST(ConfigurationFile, DistinguishesMissingFilesFromInvalidText) {
    auto const is_temporary = [](std::string const& text) {
        try {
            parse_configuration(text, "run.toml");
        } catch (configuration_error const& error) {
            return error.temporary();
        }
        return false;
    };
    EXPECT_TRUE(is_temporary("tone.lut = \"/nowhere/lut.csv\""));
    EXPECT_TRUE(is_temporary("mqtt.ca_file = \"/nowhere/ca.pem\""));
    EXPECT_TRUE(is_temporary("control.group = \"no such group\""));
    EXPECT_FALSE(is_temporary("tone.lut = \"/nowhere/lut.csv\"\nimage.width = 0"));
    EXPECT_FALSE(is_temporary("image.width = 0"));
    EXPECT_FALSE(is_temporary("mqtt.ca_file = \"/dev/null\""));
}

TEST(ConfigurationFile, IsRefusedForEverOnlyIfItsNameOrPermissionsAreWrong) {
    try {
        load_configuration("/nowhere/run.toml");
        FAIL();
    } catch (configuration_error const& error) {
        EXPECT_FALSE(error.temporary());
    }
}

namespace {

/// The error message for values of a command line.
std::string error_of_options(std::string const& text, std::vector<setting> const& options) {
    try {
        parse_configuration(text, "run.toml", options);
        return {};
    } catch (configuration_error const& error) {
        return error.what();
    }
}

}  // namespace

TEST(ConfigurationFile, TakesValuesOfTheCommandLineInsteadOfItsOwn) {
    auto const loaded = parse_configuration("[gain]\nauto = \"Continuous\"\ndb = 99\n", "run.toml",
                                            {{"gain.auto", "Off"},
                                             {"gain.db", "6"},
                                             {"camera.model", "M 1"},
                                             {"gain.limits_db", "[1, 2.5]"},
                                             {"line", "[{pin = \"Out2\", source = \"Low\"}]"}});
    EXPECT_EQ(loaded.values.gain.automatic, auto_mode::off);
    EXPECT_EQ(loaded.values.gain.db, 6.0F);
    EXPECT_EQ(loaded.values.gain.limits_db->high, 2.5F);
    EXPECT_EQ(loaded.values.camera.model, "M 1");
    ASSERT_EQ(loaded.values.lines.size(), 1U);
    EXPECT_EQ(loaded.values.lines[0].pin, 6U);
    EXPECT_EQ(loaded.origins.at("gain.db").option, "--set gain.db");
}

TEST(ConfigurationFile, RefusesValuesOfTheCommandLineLikeItsOwn) {
    EXPECT_EQ(error_of_options("", {{"gain.db", "99"}}),
              "--set gain.db: gain.db: 99 is not valid, expected a number from -60 to 60 (dB)");
    EXPECT_EQ(error_of_options("", {{"gain.bd", "1"}}),
              "--set gain.bd: gain.bd: unknown key; did you mean gain.db? `mediagrabber keys` lists all");
    EXPECT_EQ(error_of_options("", {{"gain.db", "1"}, {"gain.db", "2"}}), "--set gain.db: gain.db: given twice");
    EXPECT_EQ(error_of_options("", {{"camera.serial", "\"S\""}}),
              "--set camera.serial: camera.serial: a serial number alone does not select a camera, camera.model is"
              " required");
    EXPECT_THAT(error_of_options("", {{"line", "[{pin = \"Out3\", source = \"Low\"}]"}}),
                StartsWith("--set line: line.pin: 'Out3' is not valid"));
    EXPECT_THAT(error_of_options("", {{"line", "[{pins = 1}]"}}), HasSubstr("--set line: line.pins: unknown key"));
    EXPECT_THAT(error_of_options("", {{"gain.db", "6\nrun.frames = 1"}}), HasSubstr("is not valid, expected a number"));
    EXPECT_THAT(error_of_options("[image]\nwidth = 0\n", {{"gain.db", "99"}}),
                testing::AllOf(HasSubstr("run.toml:2:9: image.width"), HasSubstr("--set gain.db: gain.db")));
}

TEST(ConfigurationFile, HasPathsRelativeToItself) {
    auto const values = parse_configuration(
                            "[output]\ndirectory = \"data/{date}/{time}\"\n[control]\nsocket = \"c.sock\"\n"
                            "[ring]\nsocket = \"../r.sock\"\n",
                            "/etc/recorder/run.toml")
                            .values;
    EXPECT_EQ(values.output.directory, "/etc/recorder/data/{date}/{time}");
    EXPECT_EQ(values.control.socket, "/etc/recorder/c.sock");
    EXPECT_EQ(values.ring.socket, "/etc/r.sock");
    auto const others = parse_configuration("control.socket = \"none\"", "/etc/recorder/run.toml").values;
    EXPECT_EQ(others.control.socket, "none");
    EXPECT_EQ(others.output.directory, (std::filesystem::current_path() / "recording").string());
}

TEST(ConfigurationFile, RefusesASocketWhosePathIsTooLongWithTheDirectoryOfTheFile) {
    for (std::string const key : {"control.socket", "ring.socket"}) {
        auto const with = [&](std::size_t bytes) { return key + " = \"" + std::string(bytes, 'd') + '"'; };
        EXPECT_NO_THROW(parse_configuration(with(102), "/etc/run.toml"));
        try {
            parse_configuration(with(103), "/etc/run.toml");
            FAIL() << key;
        } catch (configuration_error const& error) {
            EXPECT_THAT(error.what(), HasSubstr("/etc/run.toml:1:" + std::to_string(key.size() + 4) + ": " + key +
                                                ": with the directory of the file, the path has 108 bytes, expected at"
                                                " most 107"));
        }
    }
}

TEST(ConfigurationFile, RefusesThePlaceholderOfEarlierVersions) {
    EXPECT_THAT(error_for("mqtt.topic = \"hall/{instance}\""),
                HasSubstr("run.toml:1:14: mqtt.topic: {instance} was renamed to {name}"));
}
