#include "configuration_store.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

using namespace mediagrabber;
using enum configuration_store::result;

TEST(ConfigurationStore, HasNothingToTakeBeforeSomethingIsOffered) {
    configuration_store store{configuration{}};
    EXPECT_EQ(store.take(), nothing_offered);
}

TEST(ConfigurationStore, BringsAnOfferIntoForceOnce) {
    configuration_store store{configuration{}};
    configuration next;
    next.frame_rate = 50.0F;
    store.offer(next);
    EXPECT_FALSE(store.in_force().frame_rate);
    EXPECT_EQ(store.take(), in_force);
    EXPECT_EQ(store.in_force().frame_rate, 50.0F);
    EXPECT_EQ(store.take(), nothing_offered);
}

TEST(ConfigurationStore, KeepsTheOldOneWhenTheNewOneIsFaulty) {
    configuration first;
    first.width = 5;
    configuration_store store(first);
    store.offer_refusal();
    EXPECT_EQ(store.take(), refused);
    EXPECT_EQ(store.in_force().width, 5);
}

TEST(ConfigurationStore, SaysWhenAChangeNeedsANewRun) {
    configuration_store store{configuration{}};
    configuration next;
    next.format = 2;
    store.offer(next);
    EXPECT_EQ(store.take(), needs_new_run);
    EXPECT_EQ(store.in_force().format, 2);
}

TEST(ConfigurationStore, TakesTheLastOfSeveralOffers) {
    configuration_store store{configuration{}};
    configuration next;
    for (float const rate : {1.0F, 2.0F, 3.0F}) {
        next.frame_rate = rate;
        store.offer(next);
    }
    EXPECT_EQ(store.take(), in_force);
    EXPECT_EQ(store.in_force().frame_rate, 3.0F);
}

TEST(ConfigurationStore, NeverReleasesATextThatThePluginWasGiven) {
    std::string const name = "a model whose name is not short enough to lie in the string itself";
    configuration first;
    first.model = name;
    configuration_store store(std::move(first));
    char const* const given = store.in_force().model->c_str();
    for (int i = 0; i < 100; ++i) {
        store.offer(configuration{});
        store.take();
    }
    EXPECT_EQ(given, name);
}

TEST(ConfigurationStore, KeepsAnOfferThatAFaultyFileFollows) {
    configuration_store store{configuration{}};
    store.offer_change(configuration_store::way::small_change, [](configuration& next) { next.gain_db = 1.0F; });
    store.offer_refusal();
    EXPECT_EQ(store.take(), in_force);
    EXPECT_EQ(store.in_force().gain_db, 1.0F);
    EXPECT_EQ(store.take(), nothing_offered);
}

TEST(ConfigurationStore, MakesAChangeToWhatIsWaiting) {
    configuration_store store{configuration{}};
    configuration reloaded;
    reloaded.width = 5;
    store.offer(reloaded);
    store.offer_change(configuration_store::way::small_change, [](configuration& next) { next.gain_db = 1.0F; });
    EXPECT_EQ(store.latest().width, 5);
    EXPECT_EQ(store.latest().gain_db, 1.0F);
    store.take();
    EXPECT_EQ(store.in_force().width, 5);
    EXPECT_EQ(store.in_force().gain_db, 1.0F);
}

TEST(ConfigurationStore, OffersASmallChangeOnlyWhereAllThatWaitsIsOne) {
    using enum configuration_store::way;
    configuration_store store{configuration{}};
    auto const nothing = [](configuration&) {};
    EXPECT_FALSE(store.small_change_waiting());
    store.offer_change(small_change, nothing);
    EXPECT_TRUE(store.small_change_waiting());
    store.offer_change(reconfiguration, nothing);
    EXPECT_FALSE(store.small_change_waiting());
    store.offer_change(small_change, nothing);
    EXPECT_FALSE(store.small_change_waiting());
    EXPECT_TRUE(store.waiting());
    store.take();
    EXPECT_FALSE(store.waiting());
    store.offer(configuration{});
    EXPECT_FALSE(store.small_change_waiting());
}

TEST(ConfigurationStore, NumbersItsOffers) {
    configuration_store store{configuration{}};
    EXPECT_EQ(store.taken(), 0U);
    EXPECT_EQ(store.offer(configuration{}), 1U);
    EXPECT_EQ(store.offer(configuration{}), 2U);
    store.take();
    EXPECT_EQ(store.taken(), 2U);
}

TEST(ConfigurationStore, OffersNothingWhenAChangeIsRefused) {
    configuration_store store{configuration{}};
    EXPECT_THROW(store.offer_change(configuration_store::way::small_change,
                                    [](configuration&) { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_FALSE(store.waiting());
    EXPECT_EQ(store.take(), nothing_offered);
}

TEST(ConfigurationStore, GoesBackToAnEarlierOne) {
    configuration first;
    first.width = 5;
    configuration_store store(first);
    configuration const& earlier = store.in_force();
    store.offer(configuration{});
    store.take();
    store.go_back_to(earlier);
    EXPECT_EQ(store.in_force().width, 5);
}

TEST(ConfigurationStore, TakesASmallChangeByItself) {
    configuration_store store{configuration{}};
    EXPECT_FALSE(store.take_small_change());
    store.offer_change(configuration_store::way::small_change, [](configuration& next) { next.gain_db = 1.0F; });
    EXPECT_TRUE(store.take_small_change());
    EXPECT_EQ(store.in_force().gain_db, 1.0F);
    EXPECT_EQ(store.taken(), 1U);
    EXPECT_FALSE(store.take_small_change());
}

TEST(ConfigurationStore, LeavesMoreThanASmallChangeToAReconfiguration) {
    configuration_store store{configuration{}};
    store.offer_change(configuration_store::way::small_change, [](configuration& next) { next.gain_db = 1.0F; });
    store.offer(configuration{});
    EXPECT_FALSE(store.take_small_change());
    EXPECT_TRUE(store.waiting());
}
