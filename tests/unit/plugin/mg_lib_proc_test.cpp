// SPDX-License-Identifier: MIT
#include <thread>

#include "plugin_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char tag[] = "MG_JAI_MAIN";

struct main_procedure : plugin_test::plugin {
    /// A camera that is found but can't be opened: a run on it ends at once with -5.
    static scripted::device closed_camera(std::string const& model, std::string const& serial) {
        auto camera = scripted::ordinary_camera();
        camera.model = model;
        camera.serial = serial;
        camera.connection_id = model + "/" + serial;
        camera.connect = PvResult::Code::NOT_CONNECTED;
        return camera;
    }
    static void find(std::vector<scripted::device> devices) {
        auto& interfaces = scripted::sdk().interfaces;
        interfaces.clear();
        interfaces.emplace_back().devices.assign(devices.begin(), devices.end());
    }
    static std::vector<std::string> opened() { return calls({"PvDevice::CreateAndConnect"}); }
    static constexpr int32_t was_chosen = -5;
};

TEST_F(main_procedure, NoCameraPresentIsExitCode2AndTheTimesNumberGrowsAcrossCalls) {
    find({});
    gMgLogModeLib = 2;
    EXPECT_EQ(MgLibProc(), 2);
    EXPECT_EQ(MgLibProc(), 2);
    std::vector<unsigned> times;
    for (auto const& line : system_lines()) {
        unsigned count = 0;
        if (std::sscanf(line.c_str(), "[i] fail: any device not found (times:%u)", &count) == 1) {
            times.push_back(count);
        }
    }
    ASSERT_EQ(times.size(), 2u);
    EXPECT_EQ(times[1], times[0] + 1) << "once for each message that reaches a sink";
}

TEST_F(main_procedure, WithBothSinksTheTimesNumberAdvancesOnEach) {
    find({});
    EXPECT_EQ(MgLibProc(), 2);
    unsigned in_system_log = 0;
    for (auto const& line : system_lines()) {
        std::sscanf(line.c_str(), "[i] fail: any device not found (times:%u)", &in_system_log);
    }
    EXPECT_THAT(system_lines(),
                testing::Contains("[i] fail: any device not found (times:" + std::to_string(in_system_log) + ")\n"));
    EXPECT_THAT(standard_output(), testing::HasSubstr("[MG_JAI_MAIN:i]: fail: any device not found (times:" +
                                                      std::to_string(in_system_log + 1) + ")\n"));
}

TEST_F(main_procedure, TheCountOfAbsentTargetsAdvancesOnEachSinkToo) {
    find({closed_camera("A", "1")});
    host().model = "A";
    EXPECT_EQ(MgLibProc(), was_chosen) << "the count starts again";
    host().model = "B";
    host().id = "7";
    EXPECT_EQ(MgLibProc(), 3);
    EXPECT_THAT(system_lines(), testing::Contains("[i] fail: target device not found (model:B, id:7, times:0)\n"));
    EXPECT_THAT(standard_output(),
                testing::HasSubstr("[MG_JAI_MAIN:i]: fail: target device not found (model:B, id:7, times:1)\n"));
}

TEST_F(main_procedure, FilteredInfoDoesNotCountAbsences) {
    find({});
    gMgLogModeLib = 2;
    MgLibProc();
    gMgLogLevelLib = 2;
    MgLibProc();
    gMgLogLevelLib = 3;
    MgLibProc();
    std::vector<unsigned> times;
    for (auto const& line : system_lines()) {
        unsigned count = 0;
        if (std::sscanf(line.c_str(), "[i] fail: any device not found (times:%u)", &count) == 1) {
            times.push_back(count);
        }
    }
    ASSERT_EQ(times.size(), 2u);
    EXPECT_EQ(times[1], times[0] + 1);
}

TEST_F(main_procedure, AFailedSearchFindsNothing) {
    find({});
    scripted::sdk().find = scripted::refused;
    EXPECT_EQ(MgLibProc(), 2);
}

TEST_F(main_procedure, ReportsEveryDeviceUnderItsInterfacesNumber) {
    auto& interfaces = scripted::sdk().interfaces;
    interfaces.clear();
    interfaces.push_back({.display_id = "eth0", .devices = {}});
    interfaces.push_back({.display_id = "eth1", .devices = {closed_camera("A", "1"), closed_camera("B", "2")}});
    interfaces[1].devices[0].display_id = "A [10.0.0.1]";
    interfaces[1].devices[1].display_id = "B [10.0.0.2]";
    host().model.reset();
    EXPECT_EQ(MgLibProc(), 3);
    EXPECT_TRUE(logged(level::debug, "MgLibProc", tag, "init SDK staff"));
    EXPECT_TRUE(logged(level::info, "", tag, "Printing all the devices information found:"));
    EXPECT_TRUE(logged(level::info, "", tag, "== 1. Camera Device Information =="));
    EXPECT_TRUE(logged(level::info, "", tag, "==================================="));
    EXPECT_TRUE(logged(level::info, "", tag, "\tDescription        : A [10.0.0.1]"));
    EXPECT_TRUE(logged(level::info, "", tag, "\tDeviceModel        : A"));
    EXPECT_TRUE(logged(level::info, "", tag, "\tDeviceSerial       : 1"));
    EXPECT_TRUE(logged(level::info, "", tag, "\tInterface          : eth1"));
    EXPECT_TRUE(logged(level::info, "", tag, "\tDescription        : B [10.0.0.2]"));
    EXPECT_EQ(count_in_system_log(level::info, "", "== 1. Camera Device Information ==\n"), 2u)
        << "two devices on one interface print the same number";
}

TEST_F(main_procedure, DescribesDevicesOnlyWhenInfoIsLogged) {
    gMgLogLevelLib = 2;
    host().model.reset();
    MgLibProc();
    EXPECT_THAT(calls({"PvDeviceInfo::GetDisplayID", "PvInterface::GetDisplayID"}), IsEmpty());
}

TEST_F(main_procedure, Level3IsEnoughForTheDescriptions) {
    gMgLogLevelLib = 3;
    host().model.reset();
    MgLibProc();
    EXPECT_TRUE(logged(level::info, "", tag, "\tDeviceModel        : GO-5100M-PGE"));
}

TEST_F(main_procedure, ModelTextGivenIdentityTextEmptyChoosesTheFirstDeviceOfThatModelSilently) {
    find({closed_camera("A", "1"), closed_camera("B", "2"), closed_camera("B", "3")});
    host().model = "B";
    host().id = "";
    EXPECT_EQ(MgLibProc(), was_chosen);
    EXPECT_THAT(opened(), ElementsAre("PvDevice::CreateAndConnect(B/2)"));
    EXPECT_FALSE(mentioned("Choose Model"));
}

TEST_F(main_procedure, AModelAloneMatchesAnySerial) {
    find({closed_camera("A", "1"), closed_camera("B", "2")});
    host().model = "B";
    host().id.reset();
    EXPECT_EQ(MgLibProc(), was_chosen);
    EXPECT_THAT(opened(), ElementsAre("PvDevice::CreateAndConnect(B/2)"));
}

TEST_F(main_procedure, ModelAndSerialMustBothMatchExactly) {
    find({closed_camera("B", "2"), closed_camera("B", "33"), closed_camera("BB", "3"), closed_camera("B", "3")});
    host().model = "B";
    host().id = "3";
    EXPECT_EQ(MgLibProc(), was_chosen);
    EXPECT_THAT(opened(), ElementsAre("PvDevice::CreateAndConnect(B/3)"));
}

TEST_F(main_procedure, ModelTextNullAndMask0IsExitCode3EvenThoughCamerasArePresent) {
    host().model.reset();
    host().id = "U700001";
    EXPECT_EQ(MgLibProc(), 3);
    EXPECT_TRUE(mentioned("[i] fail: target device not found (model:(null), id:U700001, times:"));
}

TEST_F(main_procedure, WithoutAModelTextACameraWithoutAModelNameDoesNotMatch) {
    find({closed_camera("", "1")});
    host().model.reset();
    EXPECT_EQ(MgLibProc(), 3);
    EXPECT_THAT(opened(), IsEmpty());
}

TEST_F(main_procedure, AnAbsentIdentityTextIsLoggedAsNullBesideTheModel) {
    find({closed_camera("A", "1")});
    host().model = "B";
    host().id.reset();
    EXPECT_EQ(MgLibProc(), 3);
    EXPECT_TRUE(mentioned("[i] fail: target device not found (model:B, id:(null), times:"));
}

TEST_F(main_procedure, CallsSdkAndHostOnlyFromTheThreadOfItsCaller) {
    cam().endless = [](uint32_t n) { return scripted::block{.timestamp = n * 1'000'000}; };
    host().fnum = 5;
    int32_t result = -1;
    std::thread caller([&] { result = MgLibProc(); });
    auto const id = caller.get_id();
    caller.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(host().exports.size(), 4u);
    EXPECT_THAT(support::journal().threads(), ElementsAre(id));
}

TEST_F(main_procedure, LogsTheAbsentTargetAndItsCount) {
    find({closed_camera("A", "1")});
    host().model = "B";
    host().id = "7";
    gMgLogModeLib = 2;
    EXPECT_EQ(MgLibProc(), 3);
    EXPECT_EQ(MgLibProc(), 3);
    host().model = "A";
    host().id = "1";
    EXPECT_EQ(MgLibProc(), was_chosen) << "a chosen target resets the count";
    host().model = "B";
    EXPECT_EQ(MgLibProc(), 3);
    std::vector<unsigned> times;
    for (auto const& line : system_lines()) {
        unsigned count = 0;
        if (std::sscanf(line.c_str(), "[i] fail: target device not found (model:B, id:%*[0-9], times:%u)", &count) ==
            1) {
            times.push_back(count);
        }
    }
    ASSERT_EQ(times.size(), 3u);
    EXPECT_EQ(times[1], times[0] + 1);
    EXPECT_EQ(times[2], 0u);
}

TEST_F(main_procedure, ModelTextMatchingNoneWithMaskBit1SetChoosesDevice1AndAnnouncesIt) {
    find({closed_camera("A", "1"), closed_camera("B", "2")});
    host().model = "C";
    host().active_cam_mask = 0b10;
    EXPECT_EQ(MgLibProc(), was_chosen);
    EXPECT_THAT(opened(), ElementsAre("PvDevice::CreateAndConnect(B/2)"));
    EXPECT_TRUE(logged(level::info, "", tag, "Loop 1. Choose Model \"B\" Serial \"2\" using command line option"));
}

TEST_F(main_procedure, TheMaskSelectsAnEarlierDeviceBeforeALaterOneMatches) {
    find({closed_camera("A", "1"), closed_camera("B", "2")});
    host().model = "B";
    host().active_cam_mask = 0b01;
    EXPECT_EQ(MgLibProc(), was_chosen);
    EXPECT_THAT(opened(), ElementsAre("PvDevice::CreateAndConnect(A/1)"));
}

TEST_F(main_procedure, ADeviceThatMatchesAndIsSelectedIsNotAnnounced) {
    find({closed_camera("A", "1")});
    host().model = "A";
    host().active_cam_mask = 0b01;
    EXPECT_EQ(MgLibProc(), was_chosen);
    EXPECT_FALSE(mentioned("Choose Model"));
}

TEST_F(main_procedure, ADeviceAtListIndex32OrBeyondIsTestedAgainstTheMaskBitOfItsIndexModulo32) {
    for (uint32_t index = 0; index < 40; ++index) {
        std::vector<scripted::device> devices(index, closed_camera("A", "other"));
        devices.push_back(closed_camera("A", "last"));
        find(devices);
        host().model.reset();
        // The only bit set selects the last device, and devices a multiple of 32 positions before it.
        host().active_cam_mask = 1U << (index % 32);
        support::journal().clear();
        EXPECT_EQ(MgLibProc(), was_chosen);
        std::string const expected = index < 32 ? "last" : "other";
        EXPECT_THAT(opened(), ElementsAre("PvDevice::CreateAndConnect(A/" + expected + ")")) << index;
    }
}

TEST_F(main_procedure, TheIndexCountsAcrossInterfaces) {
    auto& interfaces = scripted::sdk().interfaces;
    interfaces.clear();
    interfaces.push_back({.display_id = "eth0", .devices = {closed_camera("A", "1"), closed_camera("A", "2")}});
    interfaces.push_back({.display_id = "eth1", .devices = {closed_camera("A", "3")}});
    host().model.reset();
    host().active_cam_mask = 0b100;
    EXPECT_EQ(MgLibProc(), was_chosen);
    EXPECT_THAT(opened(), ElementsAre("PvDevice::CreateAndConnect(A/3)"));
}

TEST_F(main_procedure, AfterARunEndsWithAReloadSignalPendingTheReloadIsAttemptedExactlyOnceWhateverTheExitCode) {
    find({});
    host().signals = {2};
    EXPECT_EQ(MgLibProc(), 2);
    EXPECT_THAT(calls({"MgGi__DoReconfig"}), ElementsAre("MgGi__DoReconfig(0)"));
    EXPECT_TRUE(logged(level::info, "", tag, "continue operation with new configuration..."));
    EXPECT_TRUE(logged(level::info, "", tag, "Loop completed (exitCode = 2)"));
}

TEST_F(main_procedure, ARejectedReloadLeavesTheOldConfigurationAndTheExitCode) {
    find({closed_camera("GO-5100M-PGE", "1")});
    host().signals = {2};
    host().reconfig_result = -1;
    EXPECT_EQ(MgLibProc(), was_chosen);
    EXPECT_THAT(calls({"MgGi__DoReconfig"}), ElementsAre("MgGi__DoReconfig(0)"));
    EXPECT_TRUE(logged(level::info, "", tag, "incorrect cfg file, continue with the old one..."));
    EXPECT_TRUE(logged(level::info, "", tag, "Loop completed (exitCode = -5)"));
}

TEST_F(main_procedure, OtherSignalsAreLeftToTheHost) {
    find({});
    host().signals = {1};
    EXPECT_EQ(MgLibProc(), 2);
    EXPECT_THAT(calls({"MgGi__DoReconfig"}), IsEmpty());
}

TEST_F(main_procedure, TheSearchOutlivesTheRunOnItsDevice) {
    find({closed_camera("GO-5100M-PGE", "1")});
    MgLibProc();
    auto const order = calls({"PvDevice::CreateAndConnect", "~PvSystem", "MgUtl__CheckSignal"});
    EXPECT_THAT(order,
                ElementsAre("PvDevice::CreateAndConnect(GO-5100M-PGE/1)", "~PvSystem()", "MgUtl__CheckSignal()"));
    EXPECT_EQ(scripted::sdk().systems_alive, 0u);
}

TEST_F(main_procedure, AnExceptionOfTheSdkReachesTheHostAfterTheSearchIsReleased) {
    scripted::sdk().on_find = [] { throw std::runtime_error("no transport layer"); };
    EXPECT_THROW(MgLibProc(), std::runtime_error);
    EXPECT_EQ(scripted::sdk().systems_alive, 0u);
}

TEST(Version, IsTheReleaseAndTheSourceRevision) {
    EXPECT_THAT(MgLibGetVer(), testing::StartsWith(PROJECT_VERSION "-"));
    EXPECT_THAT(MgLibGetVer(), testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+-[0-9a-f]{40}"));
    EXPECT_EQ(MgLibGetVer(), MgLibGetVer()) << "always the same text";
}

}  // namespace
