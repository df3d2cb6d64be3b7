// SPDX-License-Identifier: MIT
#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

struct chunk_config : plugin_test::kernel_fixture {
    void enable() { kernel.ProcSetCamConfigChunks(&device(), device().getDevParams()); }
    void restore() { kernel.ProcSetCamConfigEnd(&device()); }
    /// Queues buffers on the stream.
    /// \return number of queued buffers
    uint32_t queue_buffers() {
        uint32_t size = 1024;
        factory.GetBuffer(device().stream.get(), &size, 3);
        support::journal().clear();
        return device().stream->GetQueuedBufferCount();
    }
    static std::vector<std::string> chunk_writes() {
        return calls({"PvGenBoolean::SetValue(Chunk", "PvGenEnum::SetValue(Chunk", "SetBooleanValue(Chunk"});
    }
    void expect_warning(std::string const& text, std::string const& operation) {
        EXPECT_TRUE(logged(level::warning, operation, tag, text));
    }
    static constexpr char enabling[] = "ProcSetCamConfigChunks";
    static constexpr char restoring[] = "ProcSetCamConfigEnd";
};

TEST_F(chunk_config, EnablesTheFourKindsInOrder) {
    enable();
    EXPECT_EQ(kernel.chunkMask, 0xFu);
    EXPECT_THAT(
        chunk_writes(),
        ElementsAre("PvGenBoolean::SetValue(ChunkModeActive, true)", "PvGenEnum::SetValue(ChunkSelector, GainAll)",
                    "SetBooleanValue(ChunkEnable, true)", "PvGenEnum::SetValue(ChunkSelector, ExposureTime)",
                    "SetBooleanValue(ChunkEnable, true)", "PvGenEnum::SetValue(ChunkSelector, Timestamp)",
                    "SetBooleanValue(ChunkEnable, true)", "PvGenEnum::SetValue(ChunkSelector, ExposureStartCounter)",
                    "SetBooleanValue(ChunkEnable, true)"));
    EXPECT_TRUE(logged(level::info, "", tag, "  Enabled gain chunks sending"));
    EXPECT_TRUE(logged(level::info, "", tag, "  Enabled exposure time chunks sending"));
    EXPECT_TRUE(logged(level::info, "", tag, "  Enabled timestamp chunks sending"));
    EXPECT_TRUE(logged(level::info, "", tag, "  Enabled counter value chunks sending"));
    EXPECT_TRUE(logged(level::info, "", tag, "Chunks enabling is finished (0x0000000F)"));
}

TEST_F(chunk_config, ChunkModeThatIsActiveIsNotWritten) {
    cam()["ChunkModeActive"].flag = true;
    enable();
    EXPECT_EQ(chunk_writes().front(), "PvGenEnum::SetValue(ChunkSelector, GainAll)");
}

TEST_F(chunk_config, ACameraWithoutChunkModeActiveGetsTheWarningWithParam1AndChunkMaskKeepsItsPreviousValue) {
    cam().features.erase("ChunkModeActive");
    kernel.chunkMask = 5;
    enable();
    EXPECT_EQ(kernel.chunkMask, 5u);
    expect_warning("Chunks can't be enabled: missing configuration param1", enabling);
}

TEST_F(chunk_config, ACameraWithoutChunkSelectorGetsTheWarningWithParam2) {
    cam().features.erase("ChunkSelector");
    kernel.chunkMask = 5;
    enable();
    EXPECT_EQ(kernel.chunkMask, 5u);
    expect_warning("Chunks can't be enabled: missing configuration param2", enabling);
}

TEST_F(chunk_config, ChunkModeThatCantBeReadIsAWarning) {
    cam()["ChunkModeActive"].refuse_read();
    kernel.chunkMask = 5;
    enable();
    EXPECT_EQ(kernel.chunkMask, 5u);
    EXPECT_THAT(chunk_writes(), IsEmpty());
    expect_warning("Chunks can't be enabled: can't get configuration value", enabling);
}

TEST_F(chunk_config, ChunkModeThatCantBeSwitchedOnIsAWarning) {
    cam()["ChunkModeActive"].refuse_write();
    kernel.chunkMask = 5;
    enable();
    EXPECT_EQ(kernel.chunkMask, 5u);
    expect_warning("Chunks can't be enabled: can't configure", enabling);
}

TEST_F(chunk_config, ACameraWhoseChunkSelectorLacksGainAllEndsWithMask0x0000000E) {
    auto& entries = cam()["ChunkSelector"].entries;
    std::erase_if(entries, [](auto const& entry) { return entry.first == "GainAll"; });
    enable();
    EXPECT_EQ(kernel.chunkMask, 0xEu);
    EXPECT_TRUE(logged(level::info, "", tag, "Chunks enabling is finished (0x0000000E)"));
    EXPECT_FALSE(mentioned("Enabled gain"));
}

TEST_F(chunk_config, AKindThatCantBeEnabledIsLeftOutSilently) {
    cam()["ChunkEnable"].before_write = [](auto& feature) {
        feature.write = cam()["ChunkSelector"].entry_name() == "Timestamp" ? scripted::refused : scripted::ok;
    };
    gMgLogLevelLib = 2;
    enable();
    EXPECT_EQ(kernel.chunkMask, 0xBu) << "set at any log level";
    EXPECT_THAT(system_lines(), IsEmpty());
}

TEST_F(chunk_config, EnablingAgainStartsWithAnEmptyMask) {
    kernel.chunkMask = 0xF0;
    enable();
    EXPECT_EQ(kernel.chunkMask, 0xFu);
}

// ---- Restoring ----------------------------------------------------------------------------------

TEST_F(chunk_config, ARestoreWithMask0TouchesNoChunkFeatureAndStillDrainsTheStream) {
    ASSERT_EQ(queue_buffers(), 3u);
    restore();
    EXPECT_TRUE(logged(level::info, "", tag, "Restore some changed camera values (0)"));
    EXPECT_TRUE(logged(level::info, "", tag, "Camera config restore is done"));
    EXPECT_THAT(chunk_writes(), IsEmpty());
    EXPECT_THAT(calls({"AbortQueuedBuffers", "RetrieveBuffer"}),
                ElementsAre("AbortQueuedBuffers()", "RetrieveBuffer(4294967295)", "RetrieveBuffer(4294967295)",
                            "RetrieveBuffer(4294967295)"));
    EXPECT_EQ(device().stream->GetQueuedBufferCount(), 0u);
}

TEST_F(chunk_config, ARestoreSwitchesOffOnlyTheKindsOfTheMask) {
    cam()["ChunkModeActive"].flag = true;
    kernel.chunkMask = 0x9;
    restore();
    EXPECT_THAT(
        chunk_writes(),
        ElementsAre("PvGenEnum::SetValue(ChunkSelector, GainAll)", "SetBooleanValue(ChunkEnable, false)",
                    "PvGenEnum::SetValue(ChunkSelector, ExposureStartCounter)", "SetBooleanValue(ChunkEnable, false)"));
    EXPECT_EQ(kernel.chunkMask, 0u);
    EXPECT_TRUE(logged(level::info, "", tag, "Restore some changed camera values (9)"));
    EXPECT_TRUE(logged(level::info, "", tag, "  Disabled gain chunks sending"));
    EXPECT_TRUE(logged(level::info, "", tag, "  Disabled counter value chunks sending"));
}

TEST_F(chunk_config, EachKindHasItsDisabledMessage) {
    kernel.chunkMask = 0xF;
    restore();
    EXPECT_TRUE(logged(level::info, "", tag, "  Disabled exposure time chunks sending"));
    EXPECT_TRUE(logged(level::info, "", tag, "  Disabled timestamp chunks sending"));
}

TEST_F(chunk_config, AfterARestoreInWhichChunkModeActiveReadTrueItIsStillTrue) {
    enable();
    restore();
    EXPECT_TRUE(cam()["ChunkModeActive"].flag);
}

TEST_F(chunk_config, AfterARestoreInWhichChunkModeActiveReadFalseItIsWrittenFalse) {
    kernel.chunkMask = 1;
    restore();
    EXPECT_EQ(chunk_writes().back(), "PvGenBoolean::SetValue(ChunkModeActive, false)");
}

TEST_F(chunk_config, AKindThatCantBeSwitchedOffDoesNotStopTheOthers) {
    cam()["ChunkModeActive"].flag = true;
    cam()["ChunkEnable"].refuse_write();
    kernel.chunkMask = 0x3;
    restore();
    EXPECT_EQ(chunk_writes().size(), 4u);
    EXPECT_FALSE(mentioned("Disabled"));
    EXPECT_EQ(kernel.chunkMask, 0u);
}

TEST_F(chunk_config, AKindThatCantBeSelectedForSwitchingOffIsSkipped) {
    std::erase_if(cam()["ChunkSelector"].entries, [](auto const& entry) { return entry.first == "GainAll"; });
    kernel.chunkMask = 0x3;
    restore();
    EXPECT_FALSE(mentioned("Disabled gain"));
    EXPECT_TRUE(logged(level::info, "", tag, "  Disabled exposure time chunks sending"));
    EXPECT_EQ(kernel.chunkMask, 0u);
}

TEST_F(chunk_config, AFailingFeatureLookupInTheRestoreLeavesQueuedBuffersInTheStream) {
    queue_buffers();
    kernel.chunkMask = 1;
    cam().features.erase("ChunkModeActive");
    restore();
    EXPECT_EQ(device().stream->GetQueuedBufferCount(), 3u);
    EXPECT_EQ(kernel.chunkMask, 1u);
    expect_warning("Chunks can't be disabled: missing configuration param1", restoring);
    EXPECT_FALSE(mentioned("restore is done"));
}

TEST_F(chunk_config, ADrainEndsWhenTheStreamNoLongerReturnsItsBuffers) {
    ASSERT_EQ(queue_buffers(), 3u);
    cam().abort = scripted::refused;
    cam().endless = [](uint32_t n) -> scripted::block {
        if (n > 10) {
            throw std::runtime_error("the drain does not end");
        }
        return {.call = PvResult::Code::NOT_CONNECTED};
    };
    restore();
    EXPECT_THAT(calls({"AbortQueuedBuffers", "RetrieveBuffer"}),
                ElementsAre("AbortQueuedBuffers()", "RetrieveBuffer(4294967295)"));
    EXPECT_TRUE(logged(level::info, "", tag, "Camera config restore is done"));
}

TEST_F(chunk_config, ADrainGoesOnAfterARefusedAbortAsLongAsBuffersComeBack) {
    ASSERT_EQ(queue_buffers(), 3u);
    cam().abort = scripted::refused;
    cam().endless = [](uint32_t) { return scripted::block{.operation = PvResult::Code::MISSING_PACKETS}; };
    restore();
    EXPECT_EQ(device().stream->GetQueuedBufferCount(), 0u);
}

TEST_F(chunk_config, ARestoreWithoutASelectorIsAWarning) {
    kernel.chunkMask = 1;
    cam().features.erase("ChunkSelector");
    restore();
    EXPECT_EQ(kernel.chunkMask, 1u);
    expect_warning("Chunks can't be disabled: missing configuration param2", restoring);
}

TEST_F(chunk_config, ARestoreThatCantReadChunkModeIsAWarning) {
    kernel.chunkMask = 1;
    cam()["ChunkModeActive"].refuse_read();
    restore();
    EXPECT_EQ(kernel.chunkMask, 1u);
    EXPECT_THAT(chunk_writes(), IsEmpty());
    expect_warning("Chunks can't be disabled: can't get configuration value", restoring);
}

TEST_F(chunk_config, ARestoreThatCantSwitchChunkModeOffLeavesTheMaskAndTheStream) {
    queue_buffers();
    kernel.chunkMask = 1;
    cam()["ChunkModeActive"].refuse_write();
    restore();
    EXPECT_EQ(kernel.chunkMask, 1u);
    EXPECT_EQ(device().stream->GetQueuedBufferCount(), 3u);
    expect_warning("Chunks can't be disabled: can't configure", restoring);
}

}  // namespace
