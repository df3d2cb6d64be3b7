// SPDX-License-Identifier: MIT
#include "device/connection_settings.hpp"

#include <memory>

#include <gtest/gtest.h>
#include <PvGenParameterArray.h>

namespace {

class CommunicationParameters : public testing::Test {
protected:
    std::shared_ptr<openpv::connection_settings> settings = std::make_shared<openpv::connection_settings>();
    std::unique_ptr<PvGenParameterArray> array = openpv::make_communication_parameters(settings);
};

}  // namespace

TEST_F(CommunicationParameters, NegotiateByDefault) {
    bool value = false;
    ASSERT_TRUE(array->GetBooleanValue("AutoNegotiation", value).IsOK());
    EXPECT_TRUE(value);
}

TEST_F(CommunicationParameters, UseAPacketSizeForAnyEthernetByDefault) {
    int64_t value = 0;
    ASSERT_TRUE(array->GetIntegerValue("DefaultPacketSize", value).IsOK());
    EXPECT_EQ(value, 1476);
}

TEST_F(CommunicationParameters, TakeEffectOnTheConnection) {
    ASSERT_TRUE(array->SetBooleanValue("AutoNegotiation", false).IsOK());
    ASSERT_TRUE(array->SetIntegerValue("DefaultPacketSize", 8996).IsOK());
    EXPECT_FALSE(settings->auto_negotiation);
    EXPECT_EQ(settings->default_packet_size, 8996);
}

TEST_F(CommunicationParameters, RefuseAPacketSizeOutsideTheirLimits) {
    PvGenInteger* const size = array->GetInteger("DefaultPacketSize");
    ASSERT_NE(size, nullptr);
    int64_t minimum = 0;
    int64_t maximum = 0;
    int64_t increment = 0;
    ASSERT_TRUE(size->GetMin(minimum).IsOK() && size->GetMax(maximum).IsOK() && size->GetIncrement(increment).IsOK());
    EXPECT_EQ(minimum, 576);
    EXPECT_EQ(maximum, 65532);
    EXPECT_EQ(increment, 4);
    for (int64_t const value : {minimum - increment, maximum + increment, int64_t{1477}, int64_t{-1}}) {
        EXPECT_EQ(size->SetValue(value).GetCode(), PvResult::Code::INVALID_PARAMETER) << value;
    }
    EXPECT_EQ(settings->default_packet_size, 1476);
    EXPECT_TRUE(size->SetValue(maximum).IsOK());
}

TEST_F(CommunicationParameters, ReportTheirTypes) {
    PvGenType type{};
    ASSERT_TRUE(array->Get("AutoNegotiation")->GetType(type).IsOK());
    EXPECT_EQ(type, PvGenTypeBoolean);
    ASSERT_TRUE(array->Get("DefaultPacketSize")->GetType(type).IsOK());
    EXPECT_EQ(type, PvGenTypeInteger);
}

TEST_F(CommunicationParameters, AreFoundUnderTheirOwnTypeOnly) {
    EXPECT_EQ(array->GetInteger("AutoNegotiation"), nullptr);
    EXPECT_EQ(array->GetBoolean("DefaultPacketSize"), nullptr);
    EXPECT_EQ(array->GetFloat("DefaultPacketSize"), nullptr);
    EXPECT_EQ(array->GetEnum("DefaultPacketSize"), nullptr);
    EXPECT_EQ(array->GetString("DefaultPacketSize"), nullptr);
    EXPECT_EQ(array->GetCommand("DefaultPacketSize"), nullptr);
    int64_t value = 0;
    PvResult const result = array->GetIntegerValue("AutoNegotiation", value);
    EXPECT_EQ(result.GetCode(), PvResult::Code::NOT_FOUND);
    EXPECT_STREQ(result.GetDescription().GetAscii(), "AutoNegotiation is not an integer.");
}

TEST_F(CommunicationParameters, DoNotIncludeFeaturesOfTheCamera) {
    EXPECT_EQ(array->Get("Width"), nullptr);
    int64_t value = 4711;
    EXPECT_EQ(array->GetIntegerValue("Width", value).GetCode(), PvResult::Code::NOT_FOUND);
    EXPECT_EQ(value, 4711);
}

TEST_F(CommunicationParameters, AreTheSameObjectAtEachLookUp) {
    EXPECT_EQ(array->Get("AutoNegotiation"), array->Get("AutoNegotiation"));
}
