#include "loss_verdict.hpp"

#include <chrono>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using openpv::loss_verdict;
using openpv::register_read;

namespace {

constexpr uint32_t control = 2;
loss_verdict::clock::time_point const start{};

}  // namespace

TEST(LossVerdict, TrustsACameraThatAnswers) {
    loss_verdict verdict(start);
    for (auto time = 0s; time < 60s; ++time) {
        verdict.add(register_read::answered, control, start + time);
        EXPECT_FALSE(verdict.lost());
        EXPECT_FALSE(verdict.doubtful());
    }
}

TEST(LossVerdict, WaitsForASilentCameraUntilItsPatienceEnds) {
    loss_verdict verdict(start);
    verdict.add(register_read::answered, control, start + 10s);
    verdict.add(register_read::silent, 0, start + 10s + loss_verdict::patience - 1ms);
    EXPECT_FALSE(verdict.lost());
    verdict.add(register_read::silent, 0, start + 10s + loss_verdict::patience);
    EXPECT_TRUE(verdict.lost());
}

TEST(LossVerdict, ForgetsSilenceAtTheNextAnswer) {
    loss_verdict verdict(start);
    verdict.add(register_read::silent, 0, start + 1900ms);
    verdict.add(register_read::answered, control, start + 1950ms);
    verdict.add(register_read::silent, 0, start + 3900ms);
    EXPECT_FALSE(verdict.lost());
}

TEST(LossVerdict, BelievesThatNobodyIsThereAtTheFourthTimeInARow) {
    loss_verdict verdict(start);
    for (int i = 1; i < loss_verdict::refusals_of_a_lost_camera; ++i) {
        verdict.add(register_read::unreachable, 0, start + i * 100ms);
        EXPECT_FALSE(verdict.lost());
        EXPECT_TRUE(verdict.doubtful());
    }
    verdict.add(register_read::unreachable, 0, start + 400ms);
    EXPECT_TRUE(verdict.lost());
}

TEST(LossVerdict, CountsRefusalsAnewAfterAnAnswer) {
    loss_verdict verdict(start);
    for (int i = 0; i < 20; ++i) {
        verdict.add(i % 4 == 3 ? register_read::answered : register_read::unreachable, control, start + i * 100ms);
    }
    EXPECT_FALSE(verdict.lost());
}

TEST(LossVerdict, CountsACameraThatRestartedAsLostThoughItAnswers) {
    loss_verdict verdict(start);
    verdict.add(register_read::answered, 0, start + 500ms);
    EXPECT_TRUE(verdict.lost());
}

TEST(LossVerdict, TakesARefusedReadForASignOfLife) {
    loss_verdict verdict(start);
    verdict.add(register_read::refused, 0, start + 1900ms);
    verdict.add(register_read::silent, 0, start + 3800ms);
    EXPECT_FALSE(verdict.lost());
}

TEST(LossVerdict, IsFinal) {
    loss_verdict verdict(start);
    verdict.add(register_read::answered, 0, start + 500ms);
    verdict.add(register_read::answered, control, start + 1000ms);
    EXPECT_TRUE(verdict.lost());
}
