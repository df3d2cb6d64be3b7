// SPDX-License-Identifier: MIT
#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- Memory of the run --------------------------------------------------------------------------

struct frame_memory : plugin_test::kernel_fixture {
    frame_memory() {
        kernel.instance0FrameSize = 300;
        kernel.instance1SetupSize = 600;
        kernel.formatCode = 2;
    }
    void init(uint8_t cformat) {
        host().cformat = cformat;
        kernel.ProcInitMem(&device(), 512);
    }
    static std::vector<std::string> memory_calls() { return calls({"MgGiMem", "MgSc__InstSetParamVal"}); }
};

TEST_F(frame_memory, WithoutAConversionFramesGoToPlainMemory) {
    init(0);
    EXPECT_THAT(memory_calls(), ElementsAre("MgGiMem__Init(512, 0, 512)", "MgGiMem__SetActFsize(300)"));
    EXPECT_EQ(kernel.instanceIndex, -1);
    EXPECT_FALSE(kernel.conversionActive);
    EXPECT_EQ(kernel.conversionPixelType, 0u);
    EXPECT_FALSE(mentioned("Conv"));
}

TEST_F(frame_memory, AConversionSetsUpInstance1) {
    init(1);
    EXPECT_THAT(memory_calls(),
                ElementsAre("MgGiMem__Init(512, 0, 512)", "MgGiMem__SetActFsize(300)", "MgGiMemInst__Init(1, 600, 0)",
                            "MgGiMemInst__SetActFsize(1, 300)", "MgSc__InstSetParamVal(1, 4, MONO8T)"));
    EXPECT_EQ(kernel.instanceIndex, 1);
    EXPECT_TRUE(kernel.conversionActive);
    EXPECT_EQ(kernel.conversionPixelType, 0x01080001u);
    EXPECT_EQ(kernel.instance1FrameSize, 300u);
    EXPECT_TRUE(logged(level::info, "", tag, "Conv: asking convertion from 2 -> 1"));
    EXPECT_TRUE(logged(level::info, "", tag, "Use pixel format: 'MONO8T'"));
    EXPECT_TRUE(logged(level::info, "", tag, "Initialize conversion to: \"MONO8T\""));
}

TEST_F(frame_memory, ALaterRunReceivesIntoInstance0AndAnnouncesTheCodecThere) {
    init(1);
    support::journal().clear();
    init(3);  // the format is read on the first run only
    EXPECT_THAT(memory_calls(), ElementsAre("MgGiMemInst__Init(0, 512, 0)", "MgGiMemInst__SetActFsize(0, 300)",
                                            "MgSc__InstSetParamVal(0, 4, MONO8T)"));
    EXPECT_EQ(kernel.instanceIndex, 0);
    EXPECT_TRUE(kernel.conversionActive);
}

TEST_F(frame_memory, EachFormatHasItsCodecAndPixelType) {
    struct expected {
        uint8_t format;
        char const* codec;
        uint32_t type;
    };
    for (auto const& [format, codec, type] : {expected{1, "MONO8T", 0x01080001},
                                              {2, "MONO12PT", 0x010C0006},
                                              {3, "MONO12T", 0x01100005},
                                              {9, "BayerRG8T", 0x01080009}}) {
        kernel.conversionFormat = 0;
        support::journal().clear();
        init(format);
        EXPECT_EQ(memory_calls().back(), std::string("MgSc__InstSetParamVal(1, 4, ") + codec + ")");
        EXPECT_EQ(kernel.conversionPixelType, type);
    }
    EXPECT_TRUE(logged(level::info, "", tag, "BAYER_TILE_MAPPING value: meta codec chosen 'BayerRG8T'"));
    EXPECT_TRUE(logged(level::info, "", tag, "Use pixel format: 'Bayer8T'"));
    EXPECT_TRUE(logged(level::info, "", tag, "Initialize conversion to: \"BayerRG8T\""));
    EXPECT_TRUE(logged(level::info, "", tag, "Use pixel format: 'MONO12PT'"));
}

TEST_F(frame_memory, ConversionFormat5IsAWarningWithRcMinus1AndNoConversion) {
    init(5);
    EXPECT_TRUE(logged(level::warning, "ProcInitMem", tag, "The asked pixel conversion way is not supported (rc=-1)"));
    EXPECT_EQ(kernel.conversionPixelType, 0u);
    EXPECT_FALSE(kernel.conversionActive);
    EXPECT_THAT(calls({"MgGiMemInst", "MgSc__Inst"}), IsEmpty());
}

TEST_F(frame_memory, SelectionsOfAnEarlierRunAreReset) {
    init(1);
    kernel.conversionFormat = 5;
    init(5);
    EXPECT_EQ(kernel.conversionPixelType, 0u);
    EXPECT_FALSE(kernel.conversionActive);
}

// ---- The current frame, rotated and converted ---------------------------------------------------

struct loaded_frames : plugin_test::kernel_fixture {
    /// A 4 x 2 frame of the format, with the pixels 1 to 8.
    void frame_of(uint8_t format, uint8_t cformat) {
        cam()["Width"] = scripted::integer(4, 1, 4);
        cam()["Height"] = scripted::integer(2, 1, 2);
        host().format = format;
        host().cformat = cformat;
        unsigned buffers = 4;
        kernel.ProcSetCamConfig(&device(), info(), &buffers);
        kernel.ProcInitMem(&device(), kernel.frameSize);
        pixels = {1, 2, 3, 4, 5, 6, 7, 8};
        kernel.frameData = pixels.data();
    }
    static std::vector<uint8_t> bytes(void const* frame, size_t count) {
        auto const* const first = static_cast<uint8_t const*>(frame);
        return {first, first + count};
    }
    std::vector<uint8_t> pixels;
};

TEST_F(loaded_frames, AFrameThatIsNeitherRotatedNorConvertedIsPendingUnchanged) {
    frame_of(1, 0);
    kernel.ProcLoadFrames(&device());
    EXPECT_EQ(kernel.instance0Frame, pixels.data());
    EXPECT_EQ(kernel.instance1Frame, nullptr);
    EXPECT_EQ(pixels, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(loaded_frames, AFrameIsRotatedInTheHostsMemory) {
    frame_of(1, 0);
    kernel.swRotate = 1;
    kernel.ProcLoadFrames(&device());
    EXPECT_EQ(kernel.instance0Frame, pixels.data());
    EXPECT_EQ(pixels, (std::vector<uint8_t>{8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST_F(loaded_frames, OnTheFirstRunInstance0GetsTheRawFrameAndInstance1TheConvertedOne) {
    frame_of(1, 3);
    kernel.ProcLoadFrames(&device());
    EXPECT_EQ(kernel.instance0Frame, pixels.data());
    ASSERT_NE(kernel.instance1Frame, nullptr);
    EXPECT_EQ(bytes(kernel.instance1Frame, 16),
              (std::vector<uint8_t>{16, 0, 32, 0, 48, 0, 64, 0, 80, 0, 96, 0, 112, 0, 128, 0}));
}

TEST_F(loaded_frames, OnALaterRunInstance0GetsTheConvertedFrameWhoseCodecWasAnnouncedForIt) {
    frame_of(1, 3);
    frame_of(1, 3);
    kernel.ProcLoadFrames(&device());
    EXPECT_EQ(kernel.instance1Frame, nullptr);
    ASSERT_NE(kernel.instance0Frame, nullptr);
    EXPECT_EQ(bytes(kernel.instance0Frame, 4), (std::vector<uint8_t>{16, 0, 32, 0}));
}

TEST_F(loaded_frames, TheConvertedFrameIsInMemoryOfTheSizeThatWasAnnouncedForInstance1) {
    frame_of(3, 1);  // 16 bytes raw, 8 converted
    EXPECT_THAT(calls({"MgGiMemInst__Init(1", "MgGiMemInst__SetActFsize(1"}),
                ElementsAre("MgGiMemInst__Init(1, 16, 0)", "MgGiMemInst__SetActFsize(1, 16)"));
    EXPECT_EQ(kernel.convertedFrame.size(), 16u);
    EXPECT_THAT(kernel.convertedFrame, testing::Each(0));
    kernel = {};
    frame_of(1, 3);  // 8 bytes raw, 16 converted
    EXPECT_EQ(kernel.convertedFrame.size(), 16u);
}

TEST_F(loaded_frames, OnALaterRunTheConvertedFrameIsInMemoryOfTheSizeThatWasAnnouncedForInstance0) {
    cam()["PayloadSize"].integer = 100;
    frame_of(3, 1);
    support::journal().clear();
    frame_of(3, 1);
    EXPECT_THAT(calls({"MgGiMemInst__Init(0"}), ElementsAre("MgGiMemInst__Init(0, 128, 0)"));
    EXPECT_EQ(kernel.convertedFrame.size(), 128u);
    cam()["PayloadSize"].integer = 0;
    frame_of(3, 1);
    kernel.ProcInitMem(&device(), 4);
    EXPECT_EQ(kernel.convertedFrame.size(), 16u) << "the actual frame size was announced, too";
}

TEST_F(loaded_frames, OnALaterRunARefusedConversionAnnouncesTheCodecOfTheRawFrame) {
    frame_of(1, 9);
    EXPECT_THAT(calls({"MgSc__InstSetParamVal"}), ElementsAre("MgSc__InstSetParamVal(1, 4, BayerRG8T)"));
    support::journal().clear();
    frame_of(2, 9);
    EXPECT_THAT(calls({"MgSc__InstSetParamVal"}), ElementsAre("MgSc__InstSetParamVal(0, 4, MONO12PT)"));
    kernel.ProcLoadFrames(&device());
    EXPECT_EQ(kernel.instance0Frame, pixels.data());
    EXPECT_EQ(kernel.instance1Frame, nullptr);
    EXPECT_TRUE(logged(level::info, "", tag, "Initialize conversion to: \"BayerRG8T\""));
}

TEST_F(loaded_frames, AFrameIsRotatedBeforeItIsConverted) {
    frame_of(1, 3);
    kernel.swRotate = 1;
    kernel.ProcLoadFrames(&device());
    ASSERT_NE(kernel.instance1Frame, nullptr);
    EXPECT_EQ(bytes(kernel.instance1Frame, 4), (std::vector<uint8_t>{128, 0, 112, 0}));
}

TEST_F(loaded_frames, AnImpossibleConversionIsRefusedOncePerRunAndTheRawFrameIsPending) {
    frame_of(1, 9);
    kernel.ProcLoadFrames(&device());
    kernel.ProcLoadFrames(&device());
    EXPECT_EQ(kernel.instance0Frame, pixels.data());
    EXPECT_EQ(kernel.instance1Frame, nullptr);
    EXPECT_TRUE(logged(level::warning, "ProcInitMem", tag,
                       "A frame of format 1 can't be converted to format 9, it is handed over as it is"));
    EXPECT_EQ(count_in_system_log(level::warning, "ProcInitMem",
                                  "A frame of format 1 can't be converted to format 9, it is handed over as it is\n"),
              1u);
}

TEST_F(loaded_frames, ABufferThatIsShorterThanTheFrameIsNeitherRotatedNorConverted) {
    frame_of(1, 3);
    kernel.frameSize = 7;
    kernel.swRotate = 1;
    kernel.ProcLoadFrames(&device());
    EXPECT_EQ(pixels.front(), 1);
    EXPECT_EQ(kernel.instance0Frame, pixels.data());
    EXPECT_EQ(kernel.instance1Frame, nullptr);
}

// ---- Pending frames -----------------------------------------------------------------------------

struct pending_frames : plugin_test::kernel_fixture {
    uint8_t raw = 0;
    uint8_t converted = 0;
    void pend(bool instance0, bool instance1) {
        kernel.instance0Frame = instance0 ? &raw : nullptr;
        kernel.instance1Frame = instance1 ? &converted : nullptr;
    }
    static std::vector<std::string> triggers() { return calls({"MgGiMemInst__Trigger"}); }
    void expect_none_left() const {
        EXPECT_EQ(kernel.instance0Frame, nullptr);
        EXPECT_EQ(kernel.instance1Frame, nullptr);
    }
};

TEST_F(pending_frames, WithoutAPendingFrameNothingIsTriggered) {
    EXPECT_EQ(kernel.ProcLoopMem(77, 3), 0);
    EXPECT_THAT(triggers(), IsEmpty());
}

TEST_F(pending_frames, AnInstance0FrameIsTriggeredAlone) {
    pend(true, false);
    host().trigger_results = {-4};
    EXPECT_EQ(kernel.ProcLoopMem(77, 3), -4);
    EXPECT_THAT(triggers(), ElementsAre("MgGiMemInst__Trigger(0, 0, 77, 3)"));
    EXPECT_EQ(host().frames[0].frame, &raw);
    expect_none_left();
}

TEST_F(pending_frames, Instance1GoesFirst) {
    pend(true, true);
    EXPECT_EQ(kernel.ProcLoopMem(77, 3), 0);
    EXPECT_THAT(triggers(), ElementsAre("MgGiMemInst__Trigger(1, 0, 77, 3)", "MgGiMemInst__Trigger(0, 0, 77, 3)"));
    EXPECT_EQ(host().frames[0].frame, &converted);
    EXPECT_EQ(host().frames[1].frame, &raw);
    expect_none_left();
}

TEST_F(pending_frames, AnInstance1FrameAloneGivesItsResult) {
    pend(false, true);
    EXPECT_EQ(kernel.ProcLoopMem(77, 3), 0);
    pend(false, true);
    host().trigger_results = {9};
    EXPECT_EQ(kernel.ProcLoopMem(78, 3), 9);
    expect_none_left();
}

TEST_F(pending_frames, AFailedTriggerOfInstance1DropsInstance0) {
    pend(true, true);
    host().trigger_results = {-2};
    EXPECT_EQ(kernel.ProcLoopMem(77, 3), -2);
    EXPECT_THAT(triggers(), ElementsAre("MgGiMemInst__Trigger(1, 0, 77, 3)"));
    expect_none_left();
}

// ---- The buffer factory -------------------------------------------------------------------------

struct host_buffers : plugin_test::kernel_fixture {
    static constexpr char factory_tag[] = "MG_JAI_FACTORY";
    static void at(std::vector<uint64_t> const& addresses) {
        std::vector<void*> pointers;
        for (uint64_t const address : addresses) {
            pointers.push_back(reinterpret_cast<void*>(address));
        }
        host().buffer_addresses = pointers;
    }
    uint32_t size = 0x800;
    void* get(uint32_t count) { return factory.GetBuffer(device().stream.get(), &size, count); }
    static std::vector<std::string> queue_calls() { return calls({"Attach", "QueueBuffer"}); }
    static void* address(uint64_t value) { return reinterpret_cast<void*>(value); }
};

TEST_F(host_buffers, BuffersAt0x1000And0x2000And0x3000WithSize0x800AreAttachedWithThatSizeAndTheStrideIsWrittenBack) {
    at({0x1000, 0x2000, 0x3000});
    EXPECT_EQ(get(3), address(0x1000));
    EXPECT_EQ(size, 0x1000u);
    EXPECT_THAT(queue_calls(), ElementsAre("Attach(0x1000, 2048)", "Attach(0x2000, 2048)", "Attach(0x3000, 2048)",
                                           "QueueBuffer(0x1000)", "QueueBuffer(0x2000)", "QueueBuffer(0x3000)"));
    EXPECT_TRUE(logged(level::info, "", factory_tag, "return flat buffer: 0x1000, block size 4096 (asked 2048)"));
    EXPECT_TRUE(mentioned("[d|GetBuffer] AllocBuffer: asked size 2048 - idx=0 buff 0x1000 (cpu="));
    EXPECT_TRUE(mentioned("[d|GetBuffer] AllocBuffer: asked size 2048 - idx=2 buff 0x3000 (cpu="));
    EXPECT_THAT(standard_output(),
                testing::ContainsRegex(
                    "\\[MG_JAI_FACTORY:d\\]: AllocBuffer: asked size 2048 - idx=1 buff 0x2000 \\(cpu=[0-9]+\\)\n"));
}

TEST_F(host_buffers, AStepOfExactlyTheRequestedSizeIsEnough) {
    at({0x1000, 0x1800});
    EXPECT_EQ(get(2), address(0x1000));
    EXPECT_EQ(size, 0x800u);
}

TEST_F(host_buffers, AStepSmallerThanTheRequestedSizeIsRefused) {
    at({0x1000, 0x17FF});
    EXPECT_EQ(get(2), nullptr);
    EXPECT_TRUE(logged(level::error, "", factory_tag, "Allocated buffer flat is incorrect !"));
    EXPECT_THAT(queue_calls(), IsEmpty());
}

TEST_F(host_buffers, UnequalStepsAreRefused) {
    at({0x1000, 0x2000, 0x3800});
    EXPECT_EQ(get(3), nullptr);
    EXPECT_EQ(size, 0x800u);
}

TEST_F(host_buffers, DescendingAddressesAreRefused) {
    at({0x3000, 0x2000});
    EXPECT_EQ(get(2), nullptr);
    at({0x2000, 0x2000});
    EXPECT_EQ(get(2), nullptr);
}

TEST_F(host_buffers, AMissingBufferIsRefused) {
    at({0x1000, 0x2000});
    EXPECT_EQ(get(3), nullptr);
}

TEST_F(host_buffers, AStrideBeyond32BitsIsRefused) {
    at({0x1000, 0x2'0000'1000});
    EXPECT_EQ(get(2), nullptr);
    EXPECT_TRUE(logged(level::error, "", factory_tag, "Allocated buffer flat is incorrect !"));
}

TEST_F(host_buffers, ASecondCallReplacesTheBuffersOfTheFirst) {
    int32_t const before = scripted::buffers_alive;
    at({0x1000, 0x2000, 0x3000});
    get(3);
    EXPECT_EQ(scripted::buffers_alive - before, 3);
    size = 0x800;
    get(2);
    EXPECT_EQ(scripted::buffers_alive - before, 2);
}

TEST_F(host_buffers, ARefusalAndASingleBufferDestroyTheBuffersOfThePreviousCall) {
    int32_t const before = scripted::buffers_alive;
    at({0x1000, 0x2000, 0x3800});
    get(2);
    EXPECT_EQ(scripted::buffers_alive - before, 2);
    size = 0x800;
    EXPECT_EQ(get(3), nullptr);
    EXPECT_EQ(scripted::buffers_alive - before, 0);
    get(2);
    size = 0x800;
    EXPECT_NE(get(1), nullptr);
    EXPECT_EQ(scripted::buffers_alive - before, 0);
}

TEST_F(host_buffers, ACallWithoutSizeOrCountKeepsTheBuffers) {
    int32_t const before = scripted::buffers_alive;
    at({0x1000, 0x2000});
    get(2);
    EXPECT_EQ(get(0), nullptr);
    at({0});
    EXPECT_EQ(get(2), nullptr);
    EXPECT_EQ(scripted::buffers_alive - before, 2);
}

TEST_F(host_buffers, ACountOf1ReturnsTheFirstAddressAndQueuesNothing) {
    at({0x1000});
    EXPECT_EQ(get(1), address(0x1000));
    EXPECT_EQ(size, 0x800u);
    EXPECT_THAT(queue_calls(), IsEmpty());
}

TEST_F(host_buffers, WithoutAStreamNothingIsAttached) {
    at({0x1000, 0x2000});
    EXPECT_EQ(factory.GetBuffer(nullptr, &size, 2), address(0x1000));
    EXPECT_EQ(size, 0x800u);
    EXPECT_THAT(queue_calls(), IsEmpty());
}

TEST_F(host_buffers, ANullHeadIsRefused) {
    at({0});
    EXPECT_EQ(get(2), nullptr);
    EXPECT_TRUE(logged(level::warning, "GetBuffer", factory_tag, "The buffer flat zero head found"));
}

TEST_F(host_buffers, NoSizeAndNoCountAreRefused) {
    at({0x1000, 0x2000});
    EXPECT_EQ(factory.GetBuffer(device().stream.get(), nullptr, 2), nullptr);
    EXPECT_EQ(get(0), nullptr);
    size = 0;
    EXPECT_EQ(get(2), nullptr);
    EXPECT_TRUE(logged(level::warning, "GetBuffer", factory_tag, "Incorrect input params detected"));
    EXPECT_EQ(count_in_system_log(level::warning, "GetBuffer", "Incorrect input params detected\n"), 3u);
}

}  // namespace
