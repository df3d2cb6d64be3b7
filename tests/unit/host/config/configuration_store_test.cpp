// SPDX-License-Identifier: MIT
#include "config/configuration_store.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

using namespace mediagrabber;
using enum configuration_store::result;

TEST(ConfigurationStore, HasNothingStagedAtFirst) {
    configuration_store store{configuration{}};
    EXPECT_EQ(store.activate(), nothing_staged);
}

TEST(ConfigurationStore, ActivatesAStagedConfigurationOnce) {
    configuration_store store{configuration{}};
    configuration next;
    next.timing.frame_rate_hz = 50.0F;
    store.stage(next);
    EXPECT_FALSE(store.active().timing.frame_rate_hz);
    EXPECT_EQ(store.activate(), active);
    EXPECT_EQ(store.active().timing.frame_rate_hz, 50.0F);
    EXPECT_EQ(store.activate(), nothing_staged);
}

TEST(ConfigurationStore, KeepsTheActiveConfigurationIfTheNewOneHasErrors) {
    configuration first;
    first.image.width = 5;
    configuration_store store(first);
    store.stage_refusal();
    EXPECT_EQ(store.activate(), refused);
    EXPECT_EQ(store.active().image.width, 5);
}

TEST(ConfigurationStore, ReportsThatAChangeNeedsARestart) {
    configuration_store store{configuration{}};
    configuration next;
    next.image.format = format_code::Mono12Packed;
    store.stage(next);
    EXPECT_EQ(store.activate(), needs_restart);
    EXPECT_EQ(store.active().image.format, format_code::Mono12Packed);
}

TEST(ConfigurationStore, ActivatesTheLastOfSeveralChanges) {
    configuration_store store{configuration{}};
    configuration next;
    for (float const rate : {1.0F, 2.0F, 3.0F}) {
        next.timing.frame_rate_hz = rate;
        store.stage(next);
    }
    EXPECT_EQ(store.activate(), active);
    EXPECT_EQ(store.active().timing.frame_rate_hz, 3.0F);
}

TEST(ConfigurationStore, ReleasesAConfigurationThatAnotherOneHasReplaced) {
    configuration_store store{configuration{}};
    std::weak_ptr<configuration const> const first = store.snapshot();
    auto const held = store.snapshot();
    store.stage(configuration{});
    store.activate();
    EXPECT_FALSE(first.expired()) << "a snapshot is held";
    EXPECT_NE(store.snapshot(), held);
    for (int i = 0; i < 1'000; ++i) {
        std::weak_ptr<configuration const> const before = store.snapshot();
        store.stage_change(configuration_store::way::live_update,
                           [i](configuration& next) { next.gain.db = static_cast<float>(i); });
        store.activate_live_update();
        ASSERT_TRUE(before.expired()) << "change " << i;
    }
}

TEST(ConfigurationStore, KeepsAStagedChangeThatAFileWithErrorsFollows) {
    configuration_store store{configuration{}};
    store.stage_change(configuration_store::way::live_update, [](configuration& next) { next.gain.db = 1.0F; });
    store.stage_refusal();
    EXPECT_EQ(store.activate(), active);
    EXPECT_EQ(store.active().gain.db, 1.0F);
    EXPECT_EQ(store.activate(), nothing_staged);
}

TEST(ConfigurationStore, AppliesAChangeToThePendingConfiguration) {
    configuration_store store{configuration{}};
    configuration reloaded;
    reloaded.image.width = 5;
    store.stage(reloaded);
    store.stage_change(configuration_store::way::live_update, [](configuration& next) { next.gain.db = 1.0F; });
    EXPECT_EQ(store.latest().image.width, 5);
    EXPECT_EQ(store.latest().gain.db, 1.0F);
    store.activate();
    EXPECT_EQ(store.active().image.width, 5);
    EXPECT_EQ(store.active().gain.db, 1.0F);
}

TEST(ConfigurationStore, ActivatesALiveUpdateOnlyIfNothingElseIsPending) {
    using enum configuration_store::way;
    configuration_store store{configuration{}};
    auto const nothing = [](configuration&) {};
    store.stage_change(live_update, nothing);
    store.stage_change(reconfiguration, nothing);
    EXPECT_FALSE(store.activate_live_update());
    store.stage_change(live_update, nothing);
    EXPECT_FALSE(store.activate_live_update());
    EXPECT_TRUE(store.pending());
    store.activate();
    EXPECT_FALSE(store.pending());
    store.stage_change(live_update, nothing);
    EXPECT_TRUE(store.activate_live_update());
}

TEST(ConfigurationStore, NumbersItsChanges) {
    configuration_store store{configuration{}};
    EXPECT_EQ(store.activated(), 0U);
    EXPECT_EQ(store.stage(configuration{}), 1U);
    EXPECT_EQ(store.stage(configuration{}), 2U);
    store.activate();
    EXPECT_EQ(store.activated(), 2U);
}

TEST(ConfigurationStore, StagesNothingIfAChangeIsRefused) {
    configuration_store store{configuration{}};
    EXPECT_THROW(store.stage_change(configuration_store::way::live_update,
                                    [](configuration&) { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_FALSE(store.pending());
    EXPECT_EQ(store.activate(), nothing_staged);
}

TEST(ConfigurationStore, RollsBackToAnEarlierConfiguration) {
    configuration first;
    first.image.width = 5;
    configuration_store store(first);
    auto const earlier = store.snapshot();
    store.stage(configuration{});
    store.activate();
    store.rollback(earlier);
    EXPECT_EQ(store.active().image.width, 5);
}

TEST(ConfigurationStore, ActivatesALiveUpdateOnItsOwn) {
    configuration_store store{configuration{}};
    EXPECT_FALSE(store.activate_live_update());
    store.stage_change(configuration_store::way::live_update, [](configuration& next) { next.gain.db = 1.0F; });
    EXPECT_TRUE(store.activate_live_update());
    EXPECT_EQ(store.active().gain.db, 1.0F);
    EXPECT_EQ(store.activated(), 1U);
    EXPECT_FALSE(store.activate_live_update());
}

TEST(ConfigurationStore, LeavesAnythingElsePendingForAReconfiguration) {
    configuration_store store{configuration{}};
    store.stage_change(configuration_store::way::live_update, [](configuration& next) { next.gain.db = 1.0F; });
    store.stage(configuration{});
    EXPECT_FALSE(store.activate_live_update());
    EXPECT_TRUE(store.pending());
}
