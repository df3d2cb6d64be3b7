// SPDX-License-Identifier: MIT
#include "config/configuration_schema.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string_view>

#include "config/configuration_file.hpp"

using namespace mediagrabber;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// Valid and invalid values of a key, as in a file.
struct key_case {
    std::string path;
    std::string default_value;  ///< as TOML, empty: not configured
    std::vector<std::string> valid;
    std::vector<std::string> invalid;
    std::string beside;  ///< other content that the file needs
};

std::vector<key_case> const key_cases{
    {"camera.name",
     "",
     {"\"left\"", "\"line 1 (\xC3\xA4)\"", "\"" + std::string(32, 'x') + "\""},
     {"\"\"", "5", "\"a/b\"", "\".a\"", "\"$a\"", "\"a+\"", "\"a#\"", "\"{a\"", "\"a}\"", "\" a\"", "\"a \"",
      "\"a\\u0007b\"", "\"" + std::string(33, 'x') + "\""},
     ""},
    {"camera.model", "", {"\"M\"", R"("a \"quoted\" \\ one")"}, {"\"\"", "5", "\"\\u0000\"", "[\"M\"]"}, ""},
    {"camera.serial", "", {"\"S\""}, {"\"\"", "5", "true"}, "camera.model = \"M\""},
    {"camera.active_mask", "", {"1", "4294967295"}, {"-1", "4294967296", "\"1\"", "1.0"}, ""},
    {"image.width", "", {"1", "65535"}, {"0", "65536", "-1", "1.5", "\"640\"", "640.0", "true"}, ""},
    {"image.height", "", {"1", "65535"}, {"0", "65536", "\"480\""}, ""},
    {"image.offset_x", "", {"0", "65535"}, {"-1", "65536", "0.5"}, ""},
    {"image.offset_y", "", {"0", "65535"}, {"-1", "65536", "0.5"}, ""},
    {"image.format",
     "\"Mono8\"",
     {"\"Mono8\"", "\"Mono12Packed\"", "\"Mono12\"", "\"BayerRG8\""},
     {"\"MONO8\"", "\"Mono10\"", "\"none\"", "1", "\"\""},
     ""},
    {"image.convert_to",
     "\"none\"",
     {"\"none\"", "\"Mono8\"", "\"Mono12Packed\"", "\"Mono12\"", "\"BayerRG8\""},
     {"\"rgb\"", "0", "false"},
     "image.format = \"BayerRG8\""},
    {"image.rotation_deg", "0", {"0", "180"}, {"90", "270", "360", "-180", "180.0", "\"180\""}, ""},
    {"transport.packet_size_bytes", "\"auto\"", {"\"auto\"", "576", "9000"}, {"575", "9001", "\"automatic\"", "0"}, ""},
    {"timing.frame_rate_hz", "", {"0.01", "25", "100000"}, {"0", "0.009", "100001", "nan", "inf", "-1", "\"25\""}, ""},
    {"timing.clock_correction_ppb",
     "0",
     {"-100000000", "0", "100000000"},
     {"-100000001", "100000001", "1.5", "\"0\""},
     ""},
    {"timing.tick_frequency_hz", "", {"1", "125000000", "66666666.7"}, {"0", "-1", "nan", "\"1\"", "1e13"}, ""},
    {"timing.clock_reference",
     "",
     {"[0, 0, 0]", "[5000000000, 1790000000000000, 40]"},
     {"[1, 2]", "[1, 2, 3, 4]", "[1, 2, -3]", "[1.0, 2, 3]", "\"1 2 3\"", "5"},
     ""},
    {"exposure.auto",
     "\"unchanged\"",
     {"\"unchanged\"", "\"Off\"", "\"Continuous\""},
     {"\"automatic\"", "\"off\"", "1", "true"},
     ""},
    {"exposure.time_us", "", {"0.1", "1000.5", "100000000"}, {"0", "0.09", "1e9", "nan", "-5", "[1]"}, ""},
    {"exposure.limits_us",
     "",
     {"[1, 2]", "[1, 100000000]", "[1.5, 2.5]"},
     {"[2, 1]", "[1, 1]", "[0.5, 2]", "[1]", "[1, 2, 3]", "1", "[\"1\", 2]", "[1, inf]", "[]"},
     ""},
    {"gain.auto", "\"unchanged\"", {"\"unchanged\"", "\"Off\"", "\"Continuous\""}, {"\"off\"", "2", "false"}, ""},
    {"gain.db", "", {"-60", "0", "6.5", "60"}, {"-60.1", "60.1", "-100", "nan", "\"6\""}, ""},
    {"gain.limits_db", "", {"[-60, 60]", "[0, 0.5]"}, {"[-61, 1]", "[1, 61]", "[3, 3]", "6", "[true, 1]"}, ""},
    {"auto.brightness", "", {"0", "0.5", "1"}, {"-0.1", "1.1", "50", "nan", "\"0.5\""}, ""},
    {"auto.area", "false", {"true", "false"}, {"1", "0", "\"true\""}, ""},
    {"tone.enable", "false", {"true", "false"}, {"1", "\"on\""}, ""},
    {"tone.gamma", "", {"0.01", "0.45", "1", "10"}, {"0", "10.5", "-1", "nan", "\"1\""}, ""},
    {"tone.lut", "", {}, {"\"\"", "5", "[\"a.csv\"]"}, ""},
    {"tone.lut_bits", "", {"8", "12", "16"}, {"7", "17", "12.0", "\"12\""}, ""},
    {"tone.contrast_limit", "4", {"1", "2.5", "1000"}, {"0.9", "1001", "nan", "\"4\""}, ""},
    {"tone.percentiles", "[0, 100]", {"[0, 100]", "[0.5, 99.5]"}, {"[-1, 99]", "[1, 101]", "[5, 5]", "[5]", "5"}, ""},
    {"memory.buffers", "16", {"2", "512"}, {"1", "513", "0", "16.0"}, ""},
    {"memory.export_buffers", "16", {"1", "512"}, {"0", "513", "true"}, ""},
    {"run.frames", "0", {"0", "4294967294"}, {"-1", "4294967295", "10.0"}, ""},
    {"run.grace_time_s", "5", {"0.1", "86400"}, {"0", "0.05", "86401", "inf"}, ""},
    {"run.retry_interval_s", "2", {"0", "86400"}, {"-1", "86401", "nan"}, ""},
    {"run.give_up_after", "0", {"0", "1000000", "\"never\""}, {"-1", "1000001", "\"always\"", "1.0"}, ""},
    {"output.directory", "\"recording\"", {"\"/a/b\""}, {"\"\"", "5", "\"a\\u0000b\""}, ""},
    {"output.format",
     "\"tiff\"",
     {"\"tiff\"", "\"bigtiff\"", "\"hdf5\"", "\"raw\"", "\"none\""},
     {"\"png\"", "true", "0"},
     ""},
    {"output.segment_s", "0", {"0", "0.5", "86400"}, {"-1", "86401", "nan", "\"1\""}, ""},
    {"output.segment_frames", "0", {"0", "4294967294"}, {"-1", "4294967295", "1.0"}, ""},
    {"output.keep_days", "0", {"0", "0.5", "36500"}, {"-1", "36501", "nan"}, ""},
    {"output.keep_bytes", "0", {"0", "1000000000000000", "0.5"}, {"-1", "1e16", "inf"}, ""},
    {"output.min_free_bytes", "0", {"0", "1000000000000000"}, {"-1", "1e16", "nan"}, ""},
    {"output.delete_pretrigger", "false", {"true", "false"}, {"1", "\"yes\""}, ""},
    {"output.compression", "\"none\"", {"\"none\"", "\"lzw\"", "\"deflate\""}, {"\"zip\"", "0", "true"}, ""},
    {"output.pipeline", "", {"\"fakesink\""}, {"\"\"", "5", "[\"fakesink\"]"}, ""},
    {"pretrigger.seconds", "0", {"0", "2.5", "3600"}, {"-1", "3601", "nan", "\"5\""}, ""},
    {"pretrigger.trigger_on_loss", "false", {"true", "false"}, {"1", "\"yes\""}, ""},
    {"control.socket", "", {"\"/a/b\"", "\"none\""}, {"\"\"", "5", "\"" + std::string(108, 'x') + "\""}, ""},
    {"control.group", "", {"\"root\"", "\"0\""}, {"\"\"", "5", "\"" + std::string(33, 'x') + "\""}, ""},
    {"web.address", "", {"\"127.0.0.1:8080\""}, {"\"\"", "8080", "\"" + std::string(301, 'x') + "\""}, ""},
    {"web.token_file", "", {"\"/a/token\""}, {"\"\"", "5"}, ""},
    {"web.public_origin", "", {"\"https://camera.example\""}, {"\"\"", "5"}, ""},
    {"ring.group", "", {"\"root\"", "\"0\""}, {"\"\"", "5", "\"" + std::string(33, 'x') + "\""}, ""},
    {"ring.socket", "", {"\"/a/b\""}, {"\"\"", "5", "\"" + std::string(108, 'x') + "\""}, ""},
    {"mqtt.broker", "", {"\"mqtt://a:1883\"", "\"mqtts://[::1]\""}, {"\"\"", "1883", "true"}, ""},
    {"mqtt.topic", "\"mediagrabber/{name}\"", {"\"a/b\""}, {"\"\"", "5"}, ""},
    {"mqtt.frames", "false", {"true", "false"}, {"1", "\"yes\""}, ""},
    {"mqtt.health_interval_s", "10", {"0.1", "86400"}, {"0", "86401", "nan"}, ""},
    {"mqtt.username", "", {"\"me\""}, {"\"\"", "5"}, ""},
    {"mqtt.password_file", "", {}, {"\"\"", "5"}, "mqtt.username = \"me\""},
    {"mqtt.ca_file", "", {}, {"\"\"", "5"}, ""},
    {"mqtt.certificate_file", "", {}, {"\"\"", "5"}, ""},
    {"mqtt.key_file", "", {}, {"\"\"", "5"}, ""},
    {"mqtt.queue_frames", "1024", {"1", "65536"}, {"0", "65537", "1.0"}, ""},
    {"log.level",
     "\"warning\"",
     {"\"nothing\"", "\"error\"", "\"warning\"", "\"info\"", "\"debug\""},
     {"\"trace\"", "2"},
     ""},
    {"log.sinks",
     "[\"stdout\"]",
     {"[]", "[\"stdout\"]", "[\"syslog\"]", "[\"stdout\", \"syslog\"]"},
     {"\"stdout\"", "[\"file\"]", "[1]", "true"},
     ""},
    {"log.instance", "0", {"0", "4294967295"}, {"-1", "4294967296", "0.0"}, ""},
};

configuration_key const& schema_key_of(std::string_view path) {
    auto const& schema = configuration_schema();
    auto const found = std::find_if(schema.begin(), schema.end(), [&](auto const& key) { return key.path == path; });
    if (found == schema.end()) {
        throw std::out_of_range(std::string(path));
    }
    return *found;
}

class EveryKey : public testing::TestWithParam<key_case> {};

}  // namespace

TEST(ConfigurationSchema, HasExactlyTheTestedKeys) {
    std::set<std::string> tested;
    for (auto const& one : key_cases) {
        tested.insert(one.path);
    }
    std::set<std::string> known;
    for (auto const& key : configuration_schema()) {
        known.insert(key.path);
    }
    EXPECT_EQ(known, tested);
}

TEST_P(EveryKey, HasItsDefault) {
    EXPECT_EQ(schema_key_of(GetParam().path).show(configuration{}), GetParam().default_value);
}

TEST_P(EveryKey, AcceptsValidValues) {
    for (auto const& value : GetParam().valid) {
        auto const text = GetParam().beside + "\n" + GetParam().path + " = " + value;
        EXPECT_EQ(schema_key_of(GetParam().path).show(parse_configuration(text, "f").values), value);
    }
}

TEST_P(EveryKey, RefusesInvalidValuesWithTheirPosition) {
    auto const place = "f:2:" + std::to_string(GetParam().path.size() + 4) + ": " + GetParam().path + ": ";
    for (auto const& value : GetParam().invalid) {
        try {
            parse_configuration(GetParam().beside + "\n" + GetParam().path + " = " + value, "f");
            ADD_FAILURE() << GetParam().path << " accepts " << value;
        } catch (configuration_error const& error) {
            EXPECT_THAT(error.what(), testing::StartsWith(place));
            EXPECT_THAT(error.what(), HasSubstr("expected " + schema_key_of(GetParam().path).expects));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(ConfigurationSchema, EveryKey, testing::ValuesIn(key_cases), [](auto const& one) {
    std::string name = one.param.path;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '.' || c == '_'; }, 'X');
    return name;
});

RC_GTEST_PROP(ConfigurationSchema, AcceptsAnIntegerExactlyWithinItsLimits, (std::int64_t value)) {
    bool const within = value >= 1 && value <= 65'535;
    try {
        auto const loaded = parse_configuration("image.width = " + std::to_string(value), "f");
        RC_ASSERT(within);
        RC_ASSERT(*loaded.values.image.width == value);
    } catch (configuration_error const&) {
        RC_ASSERT(!within);
    }
}

RC_GTEST_PROP(ConfigurationSchema, PrintsAStringAsTomlThatReadsBackTheSame, ()) {
    auto const text = *rc::gen::nonEmpty(rc::gen::container<std::string>(rc::gen::inRange<char>(' ', '\x7f')));
    auto const& key = schema_key_of("mqtt.username");
    configuration values;
    values.mqtt.username = text;
    RC_ASSERT(parse_configuration(key.path + " = " + key.show(values), "f").values.mqtt.username == text);
}

TEST(ConfigurationSchema, PrintsControlCharactersAsTomlThatReadsBackTheSame) {
    auto const& key = schema_key_of("mqtt.username");
    configuration values;
    values.mqtt.username = "a\tb\nc\x01\x7f\xc3\xa4";
    EXPECT_EQ(parse_configuration(key.path + " = " + key.show(values), "f").values.mqtt.username, values.mqtt.username);
}

TEST(ConfigurationSchema, LimitsTheLengthOfAString) {
    EXPECT_NO_THROW(parse_configuration("camera.model = \"" + std::string(255, 'x') + "\"", "f"));
    EXPECT_THROW(parse_configuration("camera.model = \"" + std::string(256, 'x') + "\"", "f"), configuration_error);
}

TEST(ConfigurationSchema, ReportsTheEffectOfEachChange) {
    configuration const before;
    configuration after;
    after.timing.frame_rate_hz = 10.0F;
    after.gain.db = 10.0F;
    after.image.format = format_code::Mono12Packed;
    after.output.directory = "elsewhere";
    after.lines.push_back({.pin = 5, .source = line_source::low, .inverted = false});
    EXPECT_THAT(changed_keys(before, after, change_effect::live_update), ElementsAre("gain.db", "line"));
    EXPECT_THAT(changed_keys(before, after, change_effect::reconfiguration), ElementsAre("timing.frame_rate_hz"));
    EXPECT_THAT(changed_keys(before, after, change_effect::restart), ElementsAre("image.format"));
    EXPECT_THAT(changed_keys(before, after, change_effect::next_start), ElementsAre("output.directory"));
    EXPECT_THAT(changed_keys(after, after, change_effect::live_update), IsEmpty());
}

TEST(ConfigurationSchema, ReportsARemovedValueAsAChange) {
    configuration before;
    before.gain.db = 3.0F;
    EXPECT_THAT(changed_keys(before, configuration{}, change_effect::live_update), ElementsAre("gain.db"));
}

TEST(ConfigurationSchema, ReportsAChangedLutFileAsAChange) {
    configuration before;
    before.tone.lut_file = "/a.csv";
    before.tone.lut = interned_lut(lookup_table(256, 1));
    auto after = before;
    EXPECT_THAT(changed_keys(before, after, change_effect::live_update), IsEmpty());
    after.tone.lut = interned_lut(lookup_table(256, 2));
    EXPECT_THAT(changed_keys(before, after, change_effect::live_update), ElementsAre("tone.lut"));
}

TEST(ConfigurationSchema, HasAnExampleOfEachKeyWithoutADefault) {
    for (auto const& key : configuration_schema()) {
        EXPECT_NE(key.show(configuration{}).empty(), key.example.empty()) << key.path;
        if (!key.example.empty()) {
            configuration values;
            auto const parsed = toml::parse("value = " + key.example);
            EXPECT_TRUE(key.read(*parsed.get("value"), values)) << key.path << " = " << key.example;
        }
    }
}

TEST(ConfigurationSchema, DescribesEveryKey) {
    for (auto const& key : configuration_schema()) {
        EXPECT_FALSE(key.meaning.empty() || key.expects.empty() || key.default_text.empty()) << key.path;
        EXPECT_THAT(configuration_reference(), HasSubstr("| `" + key.path + "` |"));
    }
    EXPECT_THAT(configuration_reference(), HasSubstr("| `line.pin` |"));
}

TEST(ConfigurationSchema, IsTheTableOfTheManual) {
    std::ostringstream manual;
    manual << std::ifstream(HOST_MANUAL).rdbuf();
    EXPECT_NE(manual.str().find(configuration_reference()), std::string::npos)
        << "replace the table there with the output of `mediagrabber keys`";
}
