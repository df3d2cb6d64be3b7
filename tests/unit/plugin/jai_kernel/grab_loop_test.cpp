// SPDX-License-Identifier: MIT
#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t start_of_time = 1'700'000'000'000'000;
constexpr uint64_t power_up = 5'000'000;  ///< camera time of the first exposure, in microseconds

struct grab_loop : plugin_test::kernel_fixture {
    grab_loop() {
        recording::clock().steered = true;
        recording::clock().microseconds = start_of_time;
        host().fps = 100.0F;
    }

    /// The frame arrives `delay` microseconds after its exposure; the camera's counter then reads the time of arrival.
    /// \return a frame exposed `n` periods after the first one
    scripted::block frame(uint64_t n, uint64_t delay = 3'000, uint64_t period = 10'000) {
        scripted::block made;
        made.timestamp = (power_up + n * period) * 1000;
        made.before = [n, delay, period] {
            recording::clock().microseconds = start_of_time + 20'000 + n * period + delay;
            auto const counter = cam().features.find("GevTimestampValue");
            if (counter != cam().features.end()) {
                counter->second.integer = static_cast<int64_t>((power_up + n * period + delay) * 1000);
            }
        };
        return made;
    }
    void frames(uint64_t count, uint64_t first = 0) {
        for (uint64_t n = first; n < first + count; ++n) {
            cam().blocks.push_back(frame(n));
        }
    }
    static scripted::block drop(scripted::code call = PvResult::Code::TIMEOUT) {
        scripted::block made;
        made.call = call;
        return made;
    }
    /// Scripts good frames and drops by a rule, for runs of thousands.
    void by_rule(std::function<bool(uint32_t)> is_good) {
        cam().endless = [this, is_good = std::move(is_good)](uint32_t n) { return is_good(n) ? frame(n) : drop(); };
    }
    /// \return host time of the exposure of frame `n`
    static uint64_t exposed(uint64_t n) { return start_of_time + 20'000 + n * 10'000; }

    /// Runs the loop until `good_frames` frames, unless the script ends it earlier.
    int run(uint32_t good_frames) {
        host().fnum = good_frames;
        return kernel.ProcLoop(&device(), info(), &factory);
    }
    static std::vector<uint64_t> timestamps() {
        std::vector<uint64_t> found;
        for (auto const& frame : host().frames) {
            found.push_back(frame.timestamp);
        }
        return found;
    }
};

// ---- Start and end ------------------------------------------------------------------------------

TEST_F(grab_loop, StartsCaptureThenNotifiesTheHost) {
    frames(2);
    EXPECT_EQ(run(2), 0);
    auto const order = calls({"MgGiMainCtx__SetBnum", "MgGiMem__Init", "MgGiMem__SetActFsize", "StreamEnable",
                              "Execute(AcquisitionStart", "MgGi__ResetTermSigProc", "RetrieveBuffer(1000"});
    EXPECT_THAT(order, ElementsAre("MgGiMainCtx__SetBnum(4)", "MgGiMem__Init(307200, 0, 307200)",
                                   "MgGiMem__SetActFsize(307200)", "StreamEnable(0)", "Execute(AcquisitionStart)",
                                   "MgGi__ResetTermSigProc()", "RetrieveBuffer(1000)", "RetrieveBuffer(1000)"));
    EXPECT_TRUE(
        logged(level::info, "", tag,
               "START GRABBING (bufferFrameSize 4194304, bNum 4, fNum 2, PID " + std::to_string(getpid()) + ") ..."));
}

TEST_F(grab_loop, ReadsTheCountsOfFramesAndBuffersBeforeTheConfiguration) {
    frames(1);
    run(1);
    auto const order = calls({"MgGiMainCtx__Get", "MgGiMainCtx__SetBnum", "SetEnumValue(PixelFormat"});
    EXPECT_THAT(order, ElementsAre("MgGiMainCtx__GetFnum()", "MgGiMainCtx__GetBnum()",
                                   "SetEnumValue(PixelFormat, 0x01080001)", "MgGiMainCtx__SetBnum(4)"));
}

TEST_F(grab_loop, ARefusedStreamChannelAtTheStartIsAWarningAndTheLoopStillFetches) {
    cam().enable = scripted::refused;
    frames(2);
    EXPECT_EQ(run(2), 0);
    EXPECT_TRUE(logged(level::warning, "ExStartCapture", "JAI_CAM", "Can't enable stream to start capture"));
    EXPECT_THAT(calls({"StreamEnable", "Execute(AcquisitionStart", "MgGi__ResetTermSigProc"}),
                ElementsAre("StreamEnable(0)", "MgGi__ResetTermSigProc()"));
    EXPECT_EQ(host().exports.size(), 1u);
}

TEST_F(grab_loop, WithAFrameCountOf10StopsCaptureAfterThe10thGoodFrameAndCallsTheRenewalNotices) {
    frames(20);
    EXPECT_EQ(run(10), 0);
    EXPECT_EQ(calls({"MgGi__HaltStop"}).size(), 10u);
    EXPECT_THAT(calls({"Execute(AcquisitionStop", "MgGi__SetTermSigProc", "MgGi__SetNewCfg", "AbortQueuedBuffers"}),
                ElementsAre("Execute(AcquisitionStop)", "MgGi__SetTermSigProc()", "MgGi__SetNewCfgVendor()",
                            "MgGi__SetNewCfgPlugin()", "AbortQueuedBuffers()"));
    EXPECT_TRUE(logged(level::info, "", tag, "...GRABBING IS DONE (captured 10 frames of 10 loops)"));
    EXPECT_TRUE(logged(level::info, "", tag, "grabbing loop is completed with exitCode =0"));
}

TEST_F(grab_loop, PrintsItsProfile) {
    frames(3);
    EXPECT_EQ(run(3), 0);
    EXPECT_TRUE(mentioned("[i] Profiling info for RetrieveBuffer() (sleeping is accounted), currPos="));
    EXPECT_TRUE(mentioned("[i] Profiling info for file writing (buffered), currPos="));
    EXPECT_EQ(count_in_system_log(level::info, "", "\n"), 2u) << "an empty line after each profile";
    size_t entries = 0;
    for (auto const& line : system_lines()) {
        unsigned index = 0;
        unsigned duration = 0;
        entries += std::sscanf(line.c_str(), "[i] %u. %06u us\n", &index, &duration) == 2 ? 1U : 0U;
    }
    EXPECT_EQ(entries, 40u);
    EXPECT_TRUE(mentioned("[i] 0. 0"));
    EXPECT_TRUE(mentioned("[i] 19. 000000 us\n"));
}

TEST_F(grab_loop, LogsItsEndInOrderAndIdenticallyInBothForms) {
    frames(3);
    EXPECT_EQ(run(3), 0);
    auto const lines = system_lines();
    auto const end = std::find(lines.begin(), lines.end(), "[i] ...GRABBING IS DONE (captured 3 frames of 3 loops)\n");
    std::string printed;
    std::vector<std::string> headings;
    for (auto line = end; line != lines.end(); ++line) {
        ASSERT_THAT(*line, testing::StartsWith("[i] "));
        printed += "[MG_JAI_PROC:i]: " + line->substr(4);
        if (!line->ends_with(" us\n")) {
            headings.push_back(line->substr(4, line->find_first_of("0123456789\n") - 4));
        }
    }
    EXPECT_THAT(headings, ElementsAre("...GRABBING IS DONE (captured ", "Restore some changed camera values (",
                                      "  Disabled gain chunks sending", "  Disabled exposure time chunks sending",
                                      "  Disabled timestamp chunks sending", "  Disabled counter value chunks sending",
                                      "Camera config restore is done",
                                      "Profiling info for RetrieveBuffer() (sleeping is accounted), currPos=", "",
                                      "Profiling info for file writing (buffered), currPos=", "",
                                      "Actual grabbing loop took: ", "grabbing loop is completed with exitCode ="));
    EXPECT_THAT(standard_output(), testing::EndsWith(printed));
}

TEST_F(grab_loop, LogsItsDuration) {
    cam().blocks.push_back(frame(0));
    cam().blocks.push_back(frame(123, 3'456));
    EXPECT_EQ(run(2), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "Actual grabbing loop took: 1s 253456us"));
}

TEST_F(grab_loop, TheDurationIncludesStoppingCapture) {
    frames(2);
    cam()["AcquisitionStop"].before_write = [](auto&) { recording::clock().microseconds += 5'000'000; };
    EXPECT_EQ(run(2), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "Actual grabbing loop took: 5s 33000us"));
}

TEST_F(grab_loop, ARefusedConfigurationIsMinus2) {
    cam()["PixelFormat"].refuse_write();
    EXPECT_EQ(run(1), -2);
    EXPECT_TRUE(logged(level::error, "", tag, "Device configuration error, finish loop"));
    EXPECT_THAT(calls({"MgGiMem", "Execute"}), IsEmpty());
}

TEST_F(grab_loop, AFailedReconnectionDuringTheConfigurationIsMinus2) {
    cam().connected = false;
    cam().reconnect = scripted::refused;
    EXPECT_EQ(run(1), -2);
    EXPECT_TRUE(logged(level::error, "", tag, "Device configuration error, finish loop"));
    EXPECT_THAT(calls({"MgGiMem__", "Execute", "MgGiMainCtx__SetBnum"}), IsEmpty());
}

TEST_F(grab_loop, ResultsOfAttachingAndQueueingBuffersAreNotExamined) {
    scripted::sdk().attach = scripted::refused;
    frames(2);
    EXPECT_EQ(run(2), 0);
    EXPECT_EQ(host().exports.size(), 1u);
    disconnect();
    cam().queue = scripted::refused;
    cam().blocks.clear();
    cam().endless = [](uint32_t) -> scripted::block { throw std::runtime_error("enough"); };
    EXPECT_EQ(run(1), -10);
    EXPECT_EQ(calls({"QueueBuffer"}).size(), 4u) << "each buffer once";
}

TEST_F(grab_loop, UnusableHostBuffersAreMinus1) {
    host().buffer_addresses = std::vector<void*>{};
    EXPECT_EQ(run(1), -1);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "SetUserBuffers error (bufferFrameSize 307200, bNum 4)"));
    EXPECT_THAT(calls({"Execute"}), IsEmpty());
}

TEST_F(grab_loop, WithoutTheFactoryNoBufferIsAttached) {
    host().factory_used = 0;
    cam().blocks = {drop()};
    cam().endless = [](uint32_t) -> scripted::block { throw std::runtime_error("enough"); };
    EXPECT_EQ(run(1), -10);
    EXPECT_THAT(calls({"Attach", "QueueBuffer"}), IsEmpty());
}

// ---- Profile ------------------------------------------------------------------------------------

struct profile : grab_loop {
    struct ring {
        uint32_t position = 0;
        std::vector<uint32_t> durations;
    };
    /// \return the profile that the last run printed under a heading
    static ring printed(std::string const& heading) {
        ring found;
        bool below = false;
        for (auto const& line : system_lines()) {
            unsigned index = 0;
            unsigned duration = 0;
            if (line.starts_with("[i] Profiling info")) {
                below = line.starts_with("[i] Profiling info for " + heading);
                if (below) {
                    std::sscanf(line.c_str() + line.rfind('='), "=%u", &found.position);
                    found.durations.clear();
                }
            } else if (below && std::sscanf(line.c_str(), "[i] %u. %06u us\n", &index, &duration) == 2) {
                EXPECT_EQ(index, found.durations.size());
                found.durations.push_back(duration);
            }
        }
        return found;
    }
    /// \return content of a ring that held `before`, after more durations
    static ring after(ring before, std::vector<uint32_t> const& more) {
        for (uint32_t const duration : more) {
            before.durations.at(before.position) = duration;
            before.position = (before.position + 1) % 20;
        }
        return before;
    }
    static void expect_same(ring const& actual, ring const& expected) {
        EXPECT_EQ(actual.position, expected.position);
        EXPECT_EQ(actual.durations, expected.durations);
    }
};

TEST_F(profile, HoldsTheLast20DurationsOfFetchesAndTriggersAndSurvivesARun) {
    frames(1);
    run(1);
    auto const fetches_before = printed("RetrieveBuffer()");
    auto const triggers_before = printed("file writing");
    ASSERT_EQ(fetches_before.durations.size(), 20u);
    ASSERT_EQ(triggers_before.durations.size(), 20u);

    disconnect();
    std::vector<uint32_t> fetches;
    std::vector<uint32_t> triggers;
    for (uint32_t n = 0; n < 25; ++n) {
        fetches.push_back(3'000'100 + n);  // the seconds do not count
        scripted::block made;
        made.timestamp = n * 10'000;
        made.before = [duration = fetches.back()] { recording::clock().microseconds += duration; };
        fetches.back() %= 1'000'000;
        cam().blocks.push_back(made);
    }
    host().on_trigger = [&triggers](auto const&) {
        triggers.push_back(200 + static_cast<uint32_t>(triggers.size()));
        recording::clock().microseconds += triggers.back();
    };
    run(25);
    ASSERT_EQ(triggers.size(), 24u);
    expect_same(printed("RetrieveBuffer()"), after(fetches_before, fetches));
    expect_same(printed("file writing"), after(triggers_before, triggers));
}

// ---- A good frame -------------------------------------------------------------------------------

TEST_F(grab_loop, TheFirstGoodFrameIsNeitherTriggeredNorExported) {
    frames(3);
    EXPECT_EQ(run(3), 0);
    EXPECT_EQ(host().frames.size(), 2u);
    EXPECT_EQ(host().exports.size(), 2u);
    EXPECT_EQ(host().announcements.size(), 3u);
}

TEST_F(grab_loop, AFrameIsHandledInOrder) {
    frames(2);
    run(2);
    auto const all = support::journal().calls();
    auto const second =
        std::find(std::find(all.begin(), all.end(), "RetrieveBuffer(1000)") + 1, all.end(), "RetrieveBuffer(1000)");
    std::vector<std::string> order;
    for (auto it = second; it != all.end(); ++it) {
        if (it->starts_with("MgUtl__") || it->starts_with("MgGi") || it->starts_with("MgSc") ||
            it->starts_with("RetrieveBuffer") || it->starts_with("GetIntegerValue(Gev") ||
            it->starts_with("GetFloatValue(Dev")) {
            order.push_back(it->substr(0, it->find(it->starts_with("MgSc__SetParamVal") ? ',' : '(')));
        }
    }
    order.resize(14);
    EXPECT_THAT(
        order, ElementsAre("RetrieveBuffer", "GetIntegerValue", "MgUtl__CheckSignal", "GetFloatValue", "MgGi__HaltStop",
                           "MgSc__SetParamVal(6", "MgSc__SetParamVal(7", "MgSc__SetParamVal(9", "MgSc__SetParamVal(10",
                           "MgGiMemInst__Trigger", "MgSc__SetParamVal(12", "MgSc__ProcExport", "MgGi__CommTriggerAll",
                           "MgGi__CheckDynConfig"));
}

TEST_F(grab_loop, TheHostGetsSizeAndTemperatureOfEveryImage) {
    auto wide = frame(0);
    wide.width = 800;
    wide.height = 600;
    cam().blocks = {wide};
    cam()["DeviceTemperature"].real = 43.25;
    run(1);
    EXPECT_THAT(calls({"MgGi__HaltStop"}), ElementsAre("MgGi__HaltStop(800, 600, 43.25)"));
}

TEST_F(grab_loop, ATemperatureThatCantBeReadIsMinus321) {
    frames(1);
    cam().features.erase("DeviceTemperature");
    run(1);
    EXPECT_THAT(calls({"MgGi__HaltStop"}), ElementsAre("MgGi__HaltStop(640, 480, -321)"));
}

TEST_F(grab_loop, TheFrameIsTriggeredFromTheHostsOwnMemory) {
    frames(3);
    run(3);
    EXPECT_EQ(host().frames[0].frame, MgGiMem__GetBufPtr(1));
    EXPECT_EQ(host().frames[1].frame, MgGiMem__GetBufPtr(2));
    EXPECT_EQ(host().frames[0].instance, 0u);
    EXPECT_EQ(host().frames[0].flag, 0u);
}

TEST_F(grab_loop, AConvertedFrameIsTriggeredBeforeItsRawFrame) {
    host().cformat = 2;
    frames(3);
    run(3);
    ASSERT_EQ(host().frames.size(), 4u) << "two for each frame but the first";
    EXPECT_EQ(host().frames[0].instance, 1u);
    EXPECT_EQ(host().frames[1].instance, 0u);
    EXPECT_EQ(host().frames[1].frame, MgGiMem__GetBufPtr(1));
    EXPECT_EQ(host().frames[0].frame, host().frames[2].frame) << "one buffer per run";
    EXPECT_EQ(host().exports.size(), 2u);
}

TEST_F(grab_loop, TheFirstGoodFrameIsNotRotated) {
    host().rotate = 2;
    auto* const first = static_cast<uint8_t*>(MgGiMem__GetBufPtr(0));
    auto* const second = static_cast<uint8_t*>(MgGiMem__GetBufPtr(1));
    size_t const last = 640 * 480 - 1;
    first[0] = second[0] = 7;
    first[last] = second[last] = 9;
    frames(2);
    run(2);
    EXPECT_EQ(first[0], 7);
    EXPECT_EQ(second[0], 9);
}

TEST_F(grab_loop, BuffersAreQueuedAgainButTheLastFramesIsNot) {
    frames(4);
    run(4);
    EXPECT_EQ(calls({"QueueBuffer"}).size(), 4u + 3u);
}

TEST_F(grab_loop, AFrameThatTheHostRefusesIsNotExportedButItsTimestampIsPublished) {
    frames(4);
    host().trigger_results = {0, -7, 0};
    run(4);
    EXPECT_EQ(host().frames.size(), 3u);
    EXPECT_THAT(host().exports, ElementsAre(host().frames[0].timestamp, host().frames[2].timestamp));
    EXPECT_EQ(calls({"MgSc__SetParamVal(12,"}).size(), 3u);
}

TEST_F(grab_loop, AFrameWithAPositiveTriggerResultIsNotExportedEither) {
    frames(3);
    host().trigger_results = {7, 0};
    run(3);
    EXPECT_THAT(host().exports, ElementsAre(host().frames[1].timestamp));
}

TEST_F(grab_loop, AnAnnouncementCarriesBothAdjustmentsInTheirOrder) {
    kernel.latencyAdjustment = 111;
    kernel.secondAdjustment = 222;
    frames(2);
    run(2);
    ASSERT_EQ(host().announcements.size(), 2u);
    for (auto const& announced : host().announcements) {
        EXPECT_EQ(announced.latency_adjustment, 111u);
        EXPECT_EQ(announced.second_adjustment, 222u);
    }
}

TEST_F(grab_loop, TheTriggerFlagGoesWithEveryFrame) {
    frames(2);
    recording::host().on_publish = [this](uint32_t number) {
        if (number == 8) {
            kernel.triggerFlag = 5;
        }
    };
    run(2);
    EXPECT_EQ(host().frames[0].flag, 5u);
}

// ---- Liveness -----------------------------------------------------------------------------------

struct liveness : grab_loop {
    /// \return the good frames, counted from 0, for which the host got a liveness report
    std::vector<uint32_t> reports(float fps, uint32_t good_frames) {
        host().fps = fps;
        cam()["AcquisitionFrameRate"].real_min = 0.01;
        cam().endless = [this](uint32_t n) { return frame(n); };
        run(good_frames);
        std::vector<uint32_t> found;
        uint32_t frame = 0;
        for (auto const& call : calls({"MgUtl__UpdateGrabState", "MgGi__HaltStop"})) {
            if (call.starts_with("MgGi__HaltStop")) {
                ++frame;
            } else {
                EXPECT_EQ(call, "MgUtl__UpdateGrabState(4)");
                found.push_back(frame - 1);
            }
        }
        return found;
    }
};

TEST_F(liveness, WithFrameRateHalfTheReportIsSentForEveryGoodFrame) {
    EXPECT_THAT(reports(0.5F, 4), ElementsAre(0, 1, 2, 3));
}

TEST_F(liveness, WithFrameRate30TheReportIsSentForGoodFrames0And18And36) {
    EXPECT_THAT(reports(30.0F, 50), ElementsAre(0, 18, 36));
}

TEST_F(liveness, AFrameRateAbove1AndBelow1Point667CountsEveryFrameInsteadOfDividingByZero) {
    EXPECT_THAT(reports(1.5F, 3), ElementsAre(0, 1, 2));
}

TEST_F(liveness, AFrameRateOfExactly1ReportsEveryFrame) {
    EXPECT_THAT(reports(1.0F, 2), ElementsAre(0, 1));
}

// ---- Drops --------------------------------------------------------------------------------------

TEST_F(grab_loop, AFetchWithoutAFrameReportsTheConfiguredSizeAndTheTemperature) {
    cam().blocks = {drop(), frame(0)};
    EXPECT_EQ(run(1), 0);
    EXPECT_THAT(calls({"MgGi__HaltUpdate"}), ElementsAre("MgGi__HaltUpdate(640, 480, 41.5)"));
    EXPECT_TRUE(logged(level::info, "", tag, "...GRABBING IS DONE (captured 1 frames of 2 loops)"));
}

TEST_F(grab_loop, ABufferThatCameBackWithoutAFrameIsQueuedAgain) {
    auto incomplete = frame(0);
    incomplete.operation = PvResult::Code::MISSING_PACKETS;
    auto not_an_image = frame(1);
    not_an_image.payload = static_cast<PvPayloadType>(4);
    auto without_image = frame(2);
    without_image.without_image = true;
    cam().blocks = {incomplete, not_an_image, without_image, drop(), frame(3)};
    EXPECT_EQ(run(1), 0);
    EXPECT_EQ(calls({"MgGi__HaltUpdate"}).size(), 4u);
    EXPECT_EQ(calls({"QueueBuffer"}).size(), 4u + 3u) << "all but the one that was never fetched";
}

TEST_F(grab_loop, ACallThatIsOkWithoutABufferIsADropAndQueuesNothing) {
    scripted::block none;
    none.without_buffer = true;
    cam().blocks = {none, frame(0)};
    EXPECT_EQ(run(1), 0);
    EXPECT_EQ(calls({"MgGi__HaltUpdate"}).size(), 1u);
    EXPECT_EQ(calls({"QueueBuffer"}).size(), 4u);
}

TEST_F(grab_loop, ATemperatureBelowZeroOrBeyondAFloatReachesTheHost) {
    cam()["DeviceTemperature"].real = -12.5;
    frames(1);
    run(1);
    EXPECT_THAT(calls({"MgGi__HaltStop"}), ElementsAre("MgGi__HaltStop(640, 480, -12.5)"));
    disconnect();  // with a new journal
    cam()["DeviceTemperature"].real = 1e300;
    frames(1);
    run(1);
    EXPECT_THAT(calls({"MgGi__HaltStop"}), ElementsAre("MgGi__HaltStop(640, 480, 3.40282e+38)"));
}

TEST_F(grab_loop, SignalsArePolledWithEveryFetch) {
    cam().blocks = {drop(), drop(), frame(0)};
    run(1);
    EXPECT_EQ(calls({"MgUtl__CheckSignal"}).size(), 3u);
}

TEST_F(grab_loop, Every1000thDropIsReported) {
    by_rule([](uint32_t n) { return n >= 2'500; });
    EXPECT_EQ(run(1), 0);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "Frames Drop trigger: Loop_1000(ok_0 dropCntr_1000)"));
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "Frames Drop trigger: Loop_2000(ok_0 dropCntr_2000)"));
    EXPECT_FALSE(mentioned("dropCntr_500)"));
    EXPECT_FALSE(mentioned("error description"));
}

TEST_F(grab_loop, WhenThe4001stTo5000thFetchesAllFailThe5000thDropEndsTheLoopWithMinus10) {
    by_rule([](uint32_t) { return false; });
    EXPECT_EQ(run(1), -10);
    EXPECT_EQ(calls({"RetrieveBuffer"}).size(), 5'000u);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "error description: TIMEOUT"));
    EXPECT_THAT(calls({"Execute(AcquisitionStop"}), ElementsAre("Execute(AcquisitionStop)"));
    EXPECT_TRUE(logged(level::info, "", tag, "grabbing loop is completed with exitCode =4294967286"));
    EXPECT_THAT(calls({"AbortQueuedBuffers", "MgGi__SetNewCfg"}), IsEmpty()) << "a lost camera is not restored";
}

TEST_F(grab_loop, ASingleGoodFrameAmongThemKeepsTheLoopRunning) {
    by_rule([](uint32_t n) { return n == 4'500 || n >= 5'200; });
    EXPECT_EQ(run(2), 0);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "Frames Drop trigger: Loop_5001(ok_1 dropCntr_5000)"));
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "error description: TIMEOUT"));
}

TEST_F(grab_loop, AGoodFrameBeforeTheCheckpointDoesNotCount) {
    by_rule([](uint32_t n) { return n == 3'000; });
    EXPECT_EQ(run(100), -10);
    EXPECT_EQ(calls({"RetrieveBuffer"}).size(), 5'001u);
}

TEST_F(grab_loop, AfterACheckWithoutSustainedLossTheNextCheckStartsThere) {
    by_rule([](uint32_t n) { return n == 4'500; });
    EXPECT_EQ(run(100), -10);
    EXPECT_EQ(calls({"RetrieveBuffer"}).size(), 10'001u);
}

TEST_F(grab_loop, TheCountsOfFetchesAndDropsStartAgainWithEachCall) {
    // The checkpoint survives a call, but each call replaces it at its own 1,000th drop, before its first check.
    by_rule([](uint32_t n) { return n == 4'500; });
    EXPECT_EQ(run(100), -10);
    disconnect();
    by_rule([](uint32_t) { return false; });
    EXPECT_EQ(run(100), -10);
    EXPECT_EQ(calls({"RetrieveBuffer"}).size(), 5'000u);
    EXPECT_EQ(count_in_system_log(level::warning, "ProcLoop", "Frames Drop trigger: Loop_1000(ok_0 dropCntr_1000)\n"),
              2u);
}

TEST_F(grab_loop, TheLossIsDescribedByTheBlocksResultWhenTheCallWasOk) {
    cam().endless = [this](uint32_t n) {
        auto incomplete = frame(n);
        incomplete.operation = PvResult::Code::MISSING_PACKETS;
        return incomplete;
    };
    EXPECT_EQ(run(1), -10);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "error description: MISSING_PACKETS"));
}

TEST_F(grab_loop, TheLossOfBlocksThatAreNoImagesIsDescribedAsSuch) {
    cam().endless = [this](uint32_t n) {
        auto other = frame(n);
        other.payload = static_cast<PvPayloadType>(5);
        return other;
    };
    EXPECT_EQ(run(1), -10);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "error description: non image payload"));
}

// ---- Timestamps ---------------------------------------------------------------------------------

TEST_F(grab_loop, WithTheTimestampAdjustmentAt0FrameTimestampsFollowHostTimeAndNoInitTriggerIsLogged) {
    frames(5);
    host().tsadjns = 0;
    EXPECT_EQ(run(5), 0);
    EXPECT_THAT(timestamps(), ElementsAre(exposed(1), exposed(2), exposed(3), exposed(4)));
    EXPECT_EQ(host().announcements.size(), 5u);
    EXPECT_EQ(host().announcements[0].timestamp, exposed(1));
    EXPECT_EQ(host().announcements[4].timestamp, exposed(5));
    EXPECT_FALSE(mentioned("init TS trigger"));
    EXPECT_TRUE(logged(level::info, "", tag,
                       "Init timings: latencyUs=3000, tsDiffAdjUs=" + std::to_string(exposed(0) - power_up) +
                           ", diffCheck=3000 (btsFGotUs=5003000, btsFStartUs=5000000)"));
}

TEST_F(grab_loop, InCameraTimeTheSecondFrameInitialisesAndTheFirstAnnouncesNothing) {
    frames(4);
    host().tsadjns = 1;
    EXPECT_EQ(run(4), 0);
    EXPECT_THAT(timestamps(), ElementsAre(exposed(1), exposed(2), exposed(3)));
    EXPECT_EQ(host().announcements.size(), 3u);
    EXPECT_EQ(host().announcements[0].timestamp, exposed(2));
    std::string const difference = std::to_string(exposed(0) - power_up);
    EXPECT_TRUE(logged(level::info, "", tag,
                       "Loop_2(2): init TS trigger oldD=" + difference + ", newD=" + difference +
                           ", oldFTS=0, newFTS=" + std::to_string(exposed(1))));
}

TEST_F(grab_loop, ACounterOf0IsReplacedByTheBuffersOwnTimestamp) {
    auto first = frame(0);
    first.before = [before = first.before] {
        before();
        cam()["GevTimestampValue"].integer = 0;
    };
    cam().blocks = {first};
    run(1);
    EXPECT_TRUE(mentioned("(btsFGotUs=5000000, btsFStartUs=5000000)")) << "and is not used for the latency";
}

TEST_F(grab_loop, ACounterThatCantBeReadIsReplacedByTheBuffersOwnTimestamp) {
    cam().features.erase("GevTimestampValue");
    frames(1);
    run(1);
    EXPECT_TRUE(mentioned("(btsFGotUs=5000000, btsFStartUs=5000000)"));
    EXPECT_TRUE(mentioned("latencyUs=23000,")) << "the time since the start, no fetch before it";
}

TEST_F(grab_loop, WithoutACounterTheLatencyFollowsFromTheNumberOfFetches) {
    cam().features.erase("GevTimestampValue");
    cam().blocks = {drop(), frame(0)};
    run(1);
    EXPECT_TRUE(mentioned("latencyUs=13000,"));
}

TEST_F(grab_loop, ABlockTimestampThatGoesBackwardsIsLoggedAsAWrapAndResynchronisesWithoutEndingTheLoop) {
    frames(3);
    auto back = frame(3);
    back.timestamp = 42'000;
    cam().blocks.push_back(back);
    auto after = frame(4);
    after.timestamp = 10'042'000;
    cam().blocks.push_back(after);
    host().tsadjns = 1;
    EXPECT_EQ(run(5), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "Loop_4(4): bTS wrap is detected: old 5020000us, new 42us"));
    EXPECT_THAT(timestamps(), ElementsAre(exposed(1), exposed(2), exposed(3), exposed(4)));
}

TEST_F(grab_loop, ALateFrameDelaysTheAnnouncementInHostTime) {
    frames(2);
    cam().blocks.push_back(frame(2, 4'000));
    run(3);
    EXPECT_EQ(host().announcements[2].timestamp, exposed(3) + 1'000) << "host time follows arrivals";
}

TEST_F(grab_loop, AZeroTimestampFrequencyStampsWithHostTimeAndWarnsOnce) {
    cam()["GevTimestampTickFrequency"].integer = 0;
    frames(3);
    host().tsadjns = 1'000;
    EXPECT_EQ(run(3), 0);
    EXPECT_EQ(host().announcements.size(), 3u);
    EXPECT_FALSE(mentioned("init TS trigger"));
    EXPECT_EQ(count_in_system_log(
                  level::warning, "ProcSetCamConfig",
                  "The camera's timestamp frequency is 0 or can't be read: frames are stamped with host time\n"),
              1u);
}

// ---- Budgets and reports ------------------------------------------------------------------------

TEST_F(grab_loop, ATriggerThatTakesAPeriodCausesAWarning) {
    frames(2);
    host().on_trigger = [](auto const&) { recording::clock().microseconds += 10'000; };
    run(2);
    std::string const stamp = std::to_string(exposed(1));
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag,
                       "Loop_2(2): Frame " + stamp + " export time budget is over (10000us >= 10000us)"));
    EXPECT_TRUE(
        logged(level::info, "", tag, "Loop_2(2): Scene " + stamp + " export time budget is over (10000us >= 10000us)"));
    EXPECT_TRUE(logged(level::info, "", tag, "total time budget is over (10000us >= 10000us), frame " + stamp));
}

TEST_F(grab_loop, TheFirstGoodFrameHasATotalBudgetOnlyAndNoTimestamp) {
    frames(1);
    host().on_publish = [](uint32_t number) {
        if (number == 9) {
            recording::clock().microseconds += 10'000;
        }
    };
    run(1);
    EXPECT_TRUE(logged(level::info, "", tag, "total time budget is over (10000us >= 10000us), frame 0"));
    EXPECT_FALSE(mentioned("export time budget"));
}

TEST_F(grab_loop, AnExportThatTakesAPeriodExceedsTheSceneBudgetOnly) {
    frames(2);
    host().on_publish = [](uint32_t number) {
        if (number == 12) {
            recording::clock().microseconds += 12'000;
        }
    };
    run(2);
    EXPECT_FALSE(mentioned(": Frame "));
    EXPECT_TRUE(mentioned(": Scene "));
}

TEST_F(grab_loop, TheSceneBudgetCountsFromTheFetch) {
    frames(2);
    host().on_publish = [](uint32_t number) {
        recording::clock().microseconds += number == 9 || number == 12 ? 5'000 : 0;
    };
    run(2);
    EXPECT_FALSE(mentioned(": Frame "));
    EXPECT_TRUE(
        logged(level::info, "", tag,
               "Loop_2(2): Scene " + std::to_string(exposed(1)) + " export time budget is over (10000us >= 10000us)"));
}

TEST_F(grab_loop, BudgetsCompareOnlyTheMicrosecondsPartOfADelay) {
    frames(2);
    host().on_trigger = [](auto const&) { recording::clock().microseconds += 1'009'999; };
    run(2);
    EXPECT_FALSE(mentioned("budget is over"));
}

TEST_F(grab_loop, ANegativeMicrosecondsPartIsTakenAsUnsigned) {
    frames(2);
    host().time_difference = [](timeval const&, timeval const&) { return timeval{.tv_sec = 0, .tv_usec = -1}; };
    run(2);
    EXPECT_TRUE(logged(level::info, "", tag,
                       "total time budget is over (4294967295us >= 10000us), frame " + std::to_string(exposed(1))));
    EXPECT_TRUE(mentioned("4294967295 us\n")) << "in the profile";
}

TEST_F(grab_loop, WithoutAFramePeriodNoBudgetIsCheckedWhichIsAWarning) {
    host().fps = -1.0F;
    cam()["AcquisitionFrameRate"].refuse_read();
    frames(3);
    host().on_trigger = [](auto const&) { recording::clock().microseconds += 500'000; };
    EXPECT_EQ(run(3), 0);
    EXPECT_EQ(kernel.framePeriod, 0u);
    EXPECT_FALSE(mentioned("budget is over"));
    EXPECT_EQ(count_in_system_log(level::warning, "ProcLoop",
                                  "The camera's frame rate is 0 or can't be read: time budgets are not checked\n"),
              1u);
}

TEST_F(grab_loop, WithAFramePeriodThereIsNoSuchWarning) {
    frames(1);
    run(1);
    EXPECT_FALSE(mentioned("time budgets are not checked"));
}

TEST_F(grab_loop, OneMicrosecondLessThanAPeriodIsWithinTheBudget) {
    frames(2);
    host().on_trigger = [](auto const&) { recording::clock().microseconds += 9'999; };
    run(2);
    EXPECT_FALSE(mentioned("budget is over"));
}

TEST_F(grab_loop, ReportsTheRateOfFetchesEveryMinuteWhetherOrNotTheyYieldAFrame) {
    cam().endless = [this](uint32_t n) {
        auto block = n % 2 == 0 ? frame(n) : drop();
        block.before = [n] { recording::clock().microseconds = start_of_time + n * 500'000; };
        return block;
    };
    EXPECT_EQ(run(125), 0);
    EXPECT_TRUE(logged(level::debug, "ProcLoop", tag, "retres FPS: 2"));
}

TEST_F(grab_loop, TheRateOfFetchesIsThatOfTheTimeThatPassed) {
    auto const at = [](uint64_t second) {
        auto block = drop();
        block.before = [second] { recording::clock().microseconds = start_of_time + second * 1'000'000; };
        return block;
    };
    cam().blocks.insert(cam().blocks.end(), 600, at(0));
    cam().blocks.push_back(at(120));
    cam().blocks.push_back(frame(0));
    EXPECT_EQ(run(1), 0);
    EXPECT_TRUE(mentioned("retres FPS: 5\n"));
}

TEST_F(grab_loop, TheCountOfFetchesSurvivesARunTheStartOfItsMinuteDoesNot) {
    auto const at = [](uint64_t second) {
        auto block = drop();
        block.before = [second] { recording::clock().microseconds = start_of_time + second * 1'000'000; };
        return block;
    };
    // The first run ends with a count of 100 fetches; the fetch that was reported at 60 seconds is the first of them.
    cam().blocks = {at(0), at(60)};
    cam().blocks.insert(cam().blocks.end(), 98, at(119));
    cam().blocks.push_back(frame(0));
    cam().blocks.back().before = [] {};
    run(1);
    recording::the_system_log().lines.clear();
    disconnect();
    // The second run starts a new minute and reports 100 + 200 fetches in 60 seconds at its end.
    cam().blocks = {at(1'000)};
    cam().blocks.insert(cam().blocks.end(), 199, at(1'059));
    cam().blocks.push_back(at(1'060));
    cam().blocks.push_back(frame(1));
    cam().blocks.back().before = [] {};
    run(1);
    EXPECT_EQ(count_in_system_log(level::debug, "ProcLoop", "retres FPS: 5\n"), 1u);
    EXPECT_FALSE(mentioned("[d|ProcLoop] retres FPS: 3\n"));
}

// ---- Signals ------------------------------------------------------------------------------------

TEST_F(grab_loop, TheFirstGoodFrameHandlesSignalsLikeAnyOther) {
    frames(2);
    host().signals = {1};
    EXPECT_EQ(run(0), 0);
    EXPECT_EQ(calls({"RetrieveBuffer(1000"}).size(), 1u);
    EXPECT_TRUE(logged(level::info, "", tag, "Grabbed 1 images, finishing with signal..."));
}

TEST_F(grab_loop, AStopSignalEndsTheRunAfterTheFrameThatFollowsIt) {
    cam().blocks = {frame(0), frame(1), drop(), frame(2), frame(3)};
    host().signals = {0, 0, 1, 1};
    EXPECT_EQ(run(0), 0);
    EXPECT_EQ(calls({"RetrieveBuffer(1000"}).size(), 4u) << "a fetch without a frame does not handle signals";
    EXPECT_THAT(calls({"MgGi__SetSignalAction", "MgGi__SetNewCfg"}),
                ElementsAre("MgGi__SetNewCfgVendor()", "MgGi__SetNewCfgPlugin()", "MgGi__SetSignalAction(1)"));
    EXPECT_TRUE(logged(level::info, "", tag, "Grabbed 3 images, finishing with signal..."));
}

TEST_F(grab_loop, TheCameraIsRestoredOnlyAfterAnOrderlyEnd) {
    frames(2);
    host().signals = {2};
    host().reconfig_result = -1;
    host().reconfig_exit = 1;
    EXPECT_EQ(run(2), 1) << "the result of the reconfiguration that failed";
    EXPECT_THAT(calls({"AbortQueuedBuffers", "MgGi__SetNewCfg"}), IsEmpty());
}

TEST_F(grab_loop, UserSignal1ArmsTheDynamicLut) {
    cam().blocks = {frame(0), drop(), frame(1), frame(2), frame(3), frame(4)};
    host().signals = {0, 0, 3};
    EXPECT_EQ(run(5), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "Grabbed 2 images, processing SIGUSR1..."));
    EXPECT_TRUE(logged(level::info, "", tag, "dynamic LUT is waiting for new clear picture 2 frames yet"));
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
}

TEST_F(grab_loop, ARunThatEndsDuringADynamicCycleClearsTheCycle) {
    frames(3);
    host().signals = {0, 3};
    EXPECT_EQ(run(3), 0);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::native);
}

TEST_F(grab_loop, ARunThatEndsForTheSwitchTo12BitsKeepsItsCycle) {
    frames(3);
    host().signals = {0, 4};
    EXPECT_EQ(run(0), 0);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::armed);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::in_12_bits);
}

TEST_F(grab_loop, AStopIn12BitModeDoesNotStartAnotherRun) {
    frames(3);
    kernel.dynLutMode = dyn_lut_mode::in_12_bits;
    kernel.dynLutStep = dyn_lut_step::armed;
    host().signals = {0, 5};
    EXPECT_EQ(run(0), 0);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::native);
}

// ---- A 12-bit trip that is abandoned ------------------------------------------------------------

struct abandoned_trip : grab_loop {
    abandoned_trip() {
        host().format = 2;  // the host keeps what the switch of depth has requested
        kernel.dynLutStep = dyn_lut_step::armed;
        kernel.dynLutMode = dyn_lut_mode::in_12_bits;
    }
    static std::vector<std::string> format_requests() { return calls({"MgGiMainCtx__SetFormat"}); }
    void expect_8_bits() {
        EXPECT_THAT(format_requests(), ElementsAre("MgGiMainCtx__SetFormat(1)"));
        EXPECT_EQ(host().format, 1) << "the next run's";
    }
};

TEST_F(abandoned_trip, ByAStopRequestsThe8BitFormatAgain) {
    frames(2);
    host().signals = {0, 1};
    EXPECT_EQ(run(0), 0);
    expect_8_bits();
}

TEST_F(abandoned_trip, ByAChangedRegionRequestsThe8BitFormatAgain) {
    frames(2);
    host().signals = {0, 2};
    host().on_reconfig = [] { host().width = 320; };
    EXPECT_EQ(run(0), 0);
    expect_8_bits();
}

TEST_F(abandoned_trip, ByTheFrameLimitInEitherModeRequestsThe8BitFormatAgainAndEndsTheCycle) {
    for (auto const mode : {dyn_lut_mode::in_12_bits, dyn_lut_mode::back_to_8_bits}) {
        support::journal().clear();
        disconnect();
        host().format = 2;
        kernel.dynLutStep = dyn_lut_step::idle;
        kernel.dynLutMode = mode;
        frames(2);
        EXPECT_EQ(run(2), 0);
        expect_8_bits();
        EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::native);
    }
}

TEST_F(abandoned_trip, ByAnExceptionRequestsThe8BitFormatAgain) {
    cam().endless = [](uint32_t) -> scripted::block { throw std::runtime_error("bus reset"); };
    EXPECT_EQ(run(0), -10);
    expect_8_bits();
}

TEST_F(abandoned_trip, ByAFailedConfigurationRequestsThe8BitFormatAgain) {
    cam()["PixelFormat"].refuse_write();
    EXPECT_EQ(run(0), -2);
    expect_8_bits();
}

TEST_F(abandoned_trip, ByUnusableBuffersRequestsThe8BitFormatAgain) {
    host().buffer_addresses = std::vector<void*>{};
    EXPECT_EQ(run(0), -1);
    expect_8_bits();
}

TEST_F(abandoned_trip, ARunInOneDepthRequestsNoFormat) {
    kernel.dynLutStep = dyn_lut_step::idle;
    kernel.dynLutMode = dyn_lut_mode::native;
    frames(2);
    EXPECT_EQ(run(2), 0);
    disconnect();
    cam()["PixelFormat"].refuse_write();
    EXPECT_EQ(run(2), -2);
    EXPECT_THAT(format_requests(), IsEmpty());
}

TEST_F(abandoned_trip, TheSwitchTo12BitsItselfRequestsOnlyThat) {
    host().format = 1;
    kernel.dynLutStep = dyn_lut_step::idle;
    kernel.dynLutMode = dyn_lut_mode::native;
    frames(2);
    host().signals = {0, 4};
    EXPECT_EQ(run(0), 0);
    EXPECT_THAT(format_requests(), ElementsAre("MgGiMainCtx__SetFormat(2)"));
}

// ---- Reconnection by a reload -------------------------------------------------------------------

struct reconnection : grab_loop {
    reconnection() {
        host().signals = {2};
        host().on_reconfig = [] { cam().connected = false; };
    }
};

TEST_F(reconnection, LaterFramesAreReadThroughTheFeaturesOfTheNewConnection) {
    frames(3);
    EXPECT_EQ(run(3), 0);
    EXPECT_TRUE(mentioned("camera is reconnected"));
    EXPECT_THAT(calls({"MgGi__HaltStop"}), testing::Each("MgGi__HaltStop(640, 480, 41.5)"));
    EXPECT_EQ(calls({"GetIntegerValue(GevTimestampValue"}).size(), 3u);
}

TEST_F(reconnection, WithoutFeaturesTheTemperatureOfLaterFramesIsUnknownAndTheRunEndsByItsExposure) {
    host().on_reconfig = [] { cam().connected = cam().has_features = false; };
    frames(3);
    EXPECT_EQ(run(3), -10);
    EXPECT_THAT(calls({"MgGi__HaltStop"}),
                ElementsAre("MgGi__HaltStop(640, 480, 41.5)", "MgGi__HaltStop(640, 480, -321)"));
}

TEST_F(reconnection, WithoutFeaturesNothingIsRestored) {
    host().on_reconfig = [] { cam().connected = cam().has_features = false; };
    frames(1);
    EXPECT_EQ(run(1), 0);
    EXPECT_TRUE(
        logged(level::warning, "ProcSetCamConfigEnd", tag, "Chunks can't be disabled: missing configuration param1"));
    EXPECT_THAT(calls({"AbortQueuedBuffers"}), IsEmpty());
}

// ---- Exceptions ---------------------------------------------------------------------------------

TEST_F(grab_loop, AnExceptionInTheLoopIsMinus10AndCaptureIsStopped) {
    frames(1);
    cam().endless = [](uint32_t) -> scripted::block { throw std::runtime_error("bus reset"); };
    EXPECT_EQ(run(5), -10);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "An unhandled exception occured (-10): bus reset"));
    EXPECT_THAT(calls({"Execute(AcquisitionStop", "MgGi__SetTermSigProc"}),
                ElementsAre("Execute(AcquisitionStop)", "MgGi__SetTermSigProc()"));
    EXPECT_TRUE(logged(level::info, "", tag, "...GRABBING IS DONE (captured 1 frames of 1 loops)"));
}

TEST_F(grab_loop, AnExposureThatCantBeReadEndsTheLoop) {
    frames(2);
    cam()["ExposureTime"].refuse_read();
    EXPECT_EQ(run(2), -10);
    EXPECT_TRUE(mentioned("An unhandled exception occured (-10): "));
}

TEST_F(grab_loop, AnExceptionWhileStoppingIsLoggedAsADetachException) {
    cam().endless = [](uint32_t) -> scripted::block { throw std::runtime_error("bus reset"); };
    cam()["AcquisitionStop"].before_write = [](auto&) { throw std::runtime_error("gone"); };
    EXPECT_EQ(run(5), -10);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "The device detach triggered an exception (-10): gone"));
}

TEST_F(grab_loop, AnExceptionWithoutATextIsCaughtToo) {
    cam().endless = [](uint32_t) -> scripted::block { throw 42; };
    cam()["AcquisitionStop"].before_write = [](auto&) { throw 43; };
    EXPECT_EQ(run(5), -10);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "An unhandled exception occured (-10): unknown exception"));
    EXPECT_TRUE(
        logged(level::warning, "ProcLoop", tag, "The device detach triggered an exception (-10): unknown exception"));
}

TEST_F(grab_loop, AnExceptionOfACameraCallInTheSignalHandlingEndsTheLoop) {
    for (int32_t const code : {1, 2, 4, 5}) {
        disconnect();
        cam()["AcquisitionStop"].before_write = [](auto&) { throw std::runtime_error("cable"); };
        cam()["LineSelector"].before_write = [](auto&) { throw std::runtime_error("cable"); };
        host().iobox_num = 0;
        host().on_reconfig = [] {
            host().iobox_num = 1;
            host().io_lines = {{.pin = 5, .source = 1, .inverter = 1}};
        };
        frames(2);
        host().signals = {code};
        EXPECT_EQ(run(0), -10) << code;
        cam().blocks.clear();
    }
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag, "An unhandled exception occured (-10): cable"));
}

// ---- Log lines of the pace ----------------------------------------------------------------------

struct pace_log : grab_loop {
    /// Runs in camera time; from the 30th frame on, frames arrive `shift` microseconds later than expected.
    void shifted(int64_t shift, uint64_t count) {
        host().tsadjns = 1;
        host().fps = 10.0F;
        for (uint64_t n = 0; n < count; ++n) {
            auto const delay = static_cast<uint64_t>(3'000 + (n < 30 ? 0 : shift));
            cam().blocks.push_back(frame(n, delay, 100'000));
        }
        EXPECT_EQ(run(static_cast<uint32_t>(count)), 0);
    }
};

TEST_F(pace_log, Fast) {
    shifted(-1'000, 70);
    EXPECT_TRUE(logged(level::info, "", tag, "Loop_61(61): cam is Fast (2000us < 2700us), TS readjusting..."));
}

TEST_F(pace_log, Slow) {
    shifted(+1'000, 70);
    EXPECT_TRUE(
        logged(level::info, "", tag, "Loop_61(61): cam is Slow or frames delaying (4000 >= 3300), TS readjusting..."));
}

TEST_F(pace_log, ExtraSlow) {
    shifted(+9'500, 50);
    EXPECT_TRUE(logged(level::warning, "ProcLoop", tag,
                       "Loop_41(41): cam is extra-Slow or frames delay (12500 >= 12000), TS readjusting..."));
}

TEST_F(pace_log, Overflow) {
    host().tsadjns = 1'000'000'000;
    cam().blocks = {frame(0), frame(1), frame(170'001)};
    EXPECT_EQ(run(3), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "Loop_3(3): sync adjust us value 1700000000 overflow protection trigger"));
}

}  // namespace
