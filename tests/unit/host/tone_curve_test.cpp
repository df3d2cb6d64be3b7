#include "live/tone_curve.hpp"

#include <gtest/gtest.h>

#include <array>
#include <future>

using namespace mediagrabber;
using kind = tone_curve::kind;

namespace {

configuration with_gamma(float gamma) {
    configuration values;
    values.tone_enabled = true;
    values.gamma = gamma;
    return values;
}

}  // namespace

TEST(ToneCurve, IsNoneUnlessOneIsConfigured) {
    tone_curve tone;
    EXPECT_EQ(tone.current().what, kind::none);
    configuration switched_off = with_gamma(0.45F);
    switched_off.tone_enabled = false;
    tone.configured(switched_off);
    EXPECT_EQ(tone.current().what, kind::none);
    EXPECT_TRUE(tone.current().values.empty());
}

TEST(ToneCurve, IsTheGammaOrTheTableThatIsConfigured) {
    tone_curve tone;
    tone.configured(with_gamma(2.0F));
    auto const gamma = tone.current();
    EXPECT_EQ(gamma.what, kind::gamma);
    ASSERT_EQ(gamma.values.size(), 256U);
    EXPECT_FLOAT_EQ(gamma.values.front(), 0.0F);
    EXPECT_FLOAT_EQ(gamma.values[51], 0.04F);
    EXPECT_FLOAT_EQ(gamma.values.back(), 1.0F);

    configuration values = with_gamma(2.0F);
    values.lut = kept_table(lookup_table(256, 4095));
    tone.configured(values);
    EXPECT_EQ(tone.current().what, kind::table);
    EXPECT_FLOAT_EQ(tone.current().values[7], 1.0F);
}

TEST(ToneCurve, IsTheCalculatedTableUntilAnotherToneIsConfigured) {
    tone_curve tone;
    tone.configured(with_gamma(2.0F));
    std::array<std::uint16_t, 4> const table{0, 2'048, 3'072, 4'095};
    tone.calculated(table, 12);
    EXPECT_EQ(tone.current().what, kind::calculated);
    EXPECT_FLOAT_EQ(tone.current().values[3], 1.0F);
    tone.configured(with_gamma(2.0F));
    EXPECT_EQ(tone.current().what, kind::calculated) << "the tone is as before";
    tone.configured(with_gamma(3.0F));
    EXPECT_EQ(tone.current().what, kind::gamma);
    EXPECT_EQ(tone.current().calculations, 1U);
}

TEST(ToneCurve, CanBeWaitedForUntilItIsCalculated) {
    tone_curve tone;
    auto waiting =
        std::async(std::launch::async, [&] { return tone.wait_for_calculation(0, std::chrono::seconds(60)); });
    tone.calculated({}, 8);
    EXPECT_TRUE(waiting.get());
    EXPECT_FALSE(tone.wait_for_calculation(1, std::chrono::milliseconds(1)));
    tone.cancel();
    EXPECT_FALSE(tone.wait_for_calculation(1, std::chrono::hours(1)));
}
