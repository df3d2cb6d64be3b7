#include "kernel_test.hpp"

namespace {

using plugin_test::level;

struct grab_run : plugin_test::kernel_fixture {
    int run() { return kernel.ProcOnce(&device(), info(), &factory); }
    /// How many times the loop ran.
    static size_t loops() { return calls({"MgGi__ResetTermSigProc"}).size(); }
    void a_frame_at_each_fetch() {
        cam().endless = [](uint32_t n) { return scripted::block{.timestamp = n * 1'000'000}; };
    }
};

TEST_F(grab_run, AnnouncesTheDeviceAndBeginsWithACleanState) {
    a_frame_at_each_fetch();
    host().fnum = 1;
    kernel.dynLutStep = 4;
    kernel.dynLutMode = 7;
    kernel.chunkMask = 0x30;
    cam().features.erase("ChunkModeActive");
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "Using device Model:GO-5100M-PGE Serial:U700001"));
    EXPECT_EQ(loops(), 1u);
    EXPECT_TRUE(logged(level::info, "", tag, "Restore some changed camera values (0)"));
}

TEST_F(grab_run, ALoopThatEndsWith0WhileTheDynamicTableIsInState6Or7IsRunAgainAtOnceWithoutANewSearch) {
    a_frame_at_each_fetch();
    // User signal 2: to 12 bits, and from there the table's own way back; then a stop.
    uint32_t polls = 0;
    host().next_signal = [&] { return ++polls == 2 ? 4 : polls == 12 ? 1 : 0; };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(loops(), 3u) << "as it was, in 12 bits, and back";
    EXPECT_EQ(calls({"Find"}).size(), 0u);
    EXPECT_EQ(calls({"PvDevice::CreateAndConnect"}).size(), 0u);
}

TEST_F(grab_run, ALoopThatEndsWithMinus10IsNeverRepeatedWhateverTheDynamicTablesState) {
    cam().endless = [this](uint32_t n) {
        if (n == 3) {
            kernel.dynLutMode = 7;
            throw std::runtime_error("x");
        }
        return scripted::block{.timestamp = n * 1'000'000};
    };
    EXPECT_EQ(run(), -10);
    EXPECT_EQ(loops(), 1u);
}

TEST_F(grab_run, AFailedConfigurationIsNeverRepeated) {
    cam()["PixelFormat"].refuse_write();
    EXPECT_EQ(run(), -2);
}

TEST_F(grab_run, ReleasesTheDynamicTablesBuffers) {
    a_frame_at_each_fetch();
    uint32_t polls = 0;
    host().next_signal = [&] { return ++polls == 2 ? 3 : polls == 8 ? 1 : 0; };
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "allocated LUT array for 8 bits pixel"));
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr);
}

}  // namespace
