// SPDX-License-Identifier: MIT
#include "plugin/tone_curve.hpp"

#include <gtest/gtest.h>

#include <array>
#include <future>
#include <utility>

using namespace mediagrabber;
using kind = tone_curve::kind;

namespace {

constexpr std::array<std::uint16_t, 4> some_lut{0, 2'048, 3'072, 4'095};

tone_configuration enabled(std::optional<float> gamma = {}) {
    tone_configuration values;
    values.enable = true;
    values.gamma = gamma;
    return values;
}

tone_configuration with_table(std::uint16_t value, std::optional<float> gamma = {}) {
    auto values = enabled(gamma);
    values.lut_file = "/table";
    values.lut = interned_lut(lookup_table(256, value));
    return values;
}

tone_configuration without_lut(std::optional<float> gamma = {}) {
    auto values = enabled(gamma);
    values.lut_file = tone_configuration::no_lut;
    return values;
}

/// The plug-in's side of a pass, and the camera. Follows the description of the plug-in's LUT and gamma set-up.
class ToneCurve : public testing::Test {
protected:
    /// A pass, and further ones as long as they are requested. \return number of passes
    int apply(tone_configuration const& active) {
        int passes = 0;
        do {
            pass(active);
            ++passes;
        } while (tone.take_pass_request() && passes < 5);
        return passes;
    }

    void pass(tone_configuration const& active) {
        tone.pass_begins(active);
        if (active.enable && !load_table(active)) {
            apply_gamma(tone.gamma(active));
        }
        tone.pass_ends();
    }

    void run_begins() {
        last_table = nullptr;
        tone.run_begins(false);
    }

    void calculate() {
        tone.calculated(some_lut, 12);
        mode = kind::table;
    }

    tone_curve::kind shown() const { return tone.current().what; }

    std::vector<std::string> warnings;
    tone_curve tone{[this](std::string const& text) { warnings.push_back(text); }};
    bool loads_tables = true;  ///< not in a 12-bit format

    // ---- The camera and the plug-in
    kind mode = kind::none;  ///< none, table or gamma
    float gamma = 0.0F;
    lookup_table const* last_table = nullptr;

private:
    /// \return whether the camera was changed
    bool load_table(tone_configuration const& active) {
        auto const* const table = tone.table(active);
        tone.table_read(active);
        if (table == last_table) {
            return false;
        }
        if (table == nullptr) {
            last_table = nullptr;
            return std::exchange(mode, mode == kind::table ? kind::none : mode) == kind::table;
        }
        if (loads_tables) {
            tone.table_loaded();
            last_table = table;
            mode = kind::table;
        }
        return loads_tables;
    }

    void apply_gamma(std::optional<float> value) {
        if (value == 1.0F) {
            mode = mode == kind::gamma ? kind::none : mode;
        } else if (value) {
            mode = kind::gamma;
            gamma = *value;
        }
    }
};

}  // namespace

TEST_F(ToneCurve, IsNoneByDefault) {
    EXPECT_EQ(shown(), kind::none);
    auto off = enabled(0.45F);
    off.enable = false;
    EXPECT_EQ(apply(off), 1);
    EXPECT_EQ(shown(), kind::none);
    EXPECT_TRUE(tone.current().values.empty());
}

TEST_F(ToneCurve, IsTheAppliedGamma) {
    apply(enabled(2.0F));
    auto const now = tone.current();
    EXPECT_EQ(now.what, kind::gamma);
    EXPECT_EQ(now.gamma, 2.0F);
    ASSERT_EQ(now.values.size(), 256U);
    EXPECT_FLOAT_EQ(now.values.front(), 0.0F);
    EXPECT_FLOAT_EQ(now.values[51], 0.04F);
    EXPECT_FLOAT_EQ(now.values.back(), 1.0F);
    apply(enabled(1.0F));
    EXPECT_EQ(shown(), kind::none);
    EXPECT_EQ(mode, kind::none);
}

TEST_F(ToneCurve, IsTheLoadedTableWhateverTheGamma) {
    for (int change = 0; change < 3; ++change) {
        EXPECT_EQ(apply(with_table(4095, 0.5F)), 1);
        EXPECT_EQ(mode, kind::table) << "a gamma would replace the table";
        EXPECT_EQ(shown(), kind::table);
        EXPECT_FLOAT_EQ(tone.current().values[7], 1.0F);
    }
}

TEST_F(ToneCurve, IsNotATableThatIsNotLoaded) {
    loads_tables = false;
    apply(with_table(4095));
    EXPECT_EQ(shown(), kind::none);
}

TEST_F(ToneCurve, StaysWhenTheToneIsNoLongerConfigured) {
    apply(with_table(4095));
    apply({});
    EXPECT_EQ(mode, kind::table);
    EXPECT_EQ(shown(), kind::table);
}

TEST_F(ToneCurve, IsTheGammaAfterATable) {
    apply(with_table(4095));
    EXPECT_EQ(apply(enabled(0.5F)), 2) << "the pass that switches the table off does not apply the gamma";
    EXPECT_EQ(mode, kind::gamma);
    EXPECT_EQ(gamma, 0.5F);
    EXPECT_EQ(shown(), kind::gamma);
}

TEST_F(ToneCurve, IsNoneAfterATable) {
    apply(with_table(4095));
    EXPECT_EQ(apply(enabled()), 1);
    EXPECT_EQ(mode, kind::none);
    EXPECT_EQ(shown(), kind::none);
}

TEST_F(ToneCurve, CanLeaveAnyTable) {
    for (bool const calculated : {true, false}) {
        mode = kind::table;  // also one that an earlier process has loaded
        if (calculated) {
            calculate();
        }
        run_begins();
        EXPECT_EQ(apply(without_lut()), 2);
        EXPECT_EQ(mode, kind::none);
        EXPECT_EQ(shown(), kind::none);
        EXPECT_EQ(apply(without_lut()), 1) << "once is enough";
    }
}

TEST_F(ToneCurve, CanLeaveATableForAGamma) {
    calculate();
    apply(without_lut(0.5F));
    EXPECT_EQ(mode, kind::gamma);
    EXPECT_EQ(shown(), kind::gamma);
}

TEST_F(ToneCurve, DoesNotRepeatALeaveThatIsImpossible) {
    loads_tables = false;
    EXPECT_EQ(apply(without_lut()), 1);
}

TEST_F(ToneCurve, IsTheCalculatedLutUntilAChangeDropsIt) {
    apply(enabled(2.0F));
    calculate();
    EXPECT_EQ(shown(), kind::calculated);
    EXPECT_FLOAT_EQ(tone.current().values[3], 1.0F);
    EXPECT_TRUE(warnings.empty());
    apply(enabled(2.0F));
    EXPECT_EQ(mode, kind::gamma);
    EXPECT_EQ(shown(), kind::gamma);
    EXPECT_EQ(warnings, std::vector<std::string>{"the calculated LUT was dropped: the configured gamma replaces it"});
    EXPECT_EQ(tone.current().calculations, 1U);
}

TEST_F(ToneCurve, IsTheCalculatedLutAsLongAsTheCameraHasIt) {
    apply(with_table(4095));
    calculate();
    apply(with_table(4095));
    apply({});
    EXPECT_EQ(shown(), kind::calculated);
    EXPECT_TRUE(warnings.empty());
    apply(with_table(7));
    EXPECT_EQ(shown(), kind::table);
    EXPECT_EQ(warnings, std::vector<std::string>{"the calculated LUT was dropped: the configured LUT replaces it"});
}

TEST_F(ToneCurve, LosesTheCalculatedLutWithTheCamera) {
    calculate();
    tone.run_begins(false);
    EXPECT_EQ(shown(), kind::calculated);
    tone.run_begins(true);
    EXPECT_EQ(shown(), kind::none);
    EXPECT_EQ(warnings, std::vector<std::string>{"the calculated LUT was dropped: the camera has no tone curve now"});
}

TEST_F(ToneCurve, IsTheLutThatIsLoadedAfterTheSwitchBack) {
    tone.calculated(some_lut, 12, true);
    apply(enabled(0.5F));  // the configuration of the 8-bit format
    EXPECT_EQ(shown(), kind::calculated);
    tone.calculated_loaded();
    EXPECT_TRUE(warnings.empty());
    apply(enabled(0.5F));
    EXPECT_EQ(shown(), kind::gamma);
    tone.calculated(some_lut, 12, true);
    tone.run_begins(false);
    EXPECT_EQ(shown(), kind::none) << "the run ended before the LUT was loaded";
}

TEST_F(ToneCurve, CanBeWaitedForUntilItIsCalculated) {
    auto waiting =
        std::async(std::launch::async, [&] { return tone.wait_for_calculation(0, std::chrono::seconds(60)); });
    tone.calculated({}, 8);
    EXPECT_TRUE(waiting.get());
    EXPECT_FALSE(tone.wait_for_calculation(1, std::chrono::milliseconds(1)));
    tone.cancel();
    EXPECT_FALSE(tone.wait_for_calculation(1, std::chrono::hours(1)));
}
