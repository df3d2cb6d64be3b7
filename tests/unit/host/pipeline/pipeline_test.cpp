// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "pipeline/element_package.hpp"
#include "pipeline/frame_caps.hpp"
#include "pipeline/pipeline_sink.hpp"
#include "pipeline/pipeline_text.hpp"
#include "sample_frames.hpp"
#include "session/signal_watch.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

class PipelineSink : public testing::Test {
protected:
    // Threads of GStreamer outlive a test; they must inherit the signal mask.
    PipelineSink() { signal_watch::block_signals(); }

    std::unique_ptr<pipeline_sink> make(std::string const& text, std::chrono::duration<double> max_end_time = 30s,
                                        std::chrono::duration<double> retry_interval = 0s) const {
        return std::make_unique<pipeline_sink>(pipeline_sink::settings{.text = text,
                                                                       .directory = directory.path(),
                                                                       .retry_interval = retry_interval,
                                                                       .max_end_time = max_end_time},
                                               [] { return 10'000U; });
    }
    std::string refusal(std::string const& text) const {
        try {
            make(text);
            return "none";
        } catch (std::runtime_error const& error) {
            return error.what();
        }
    }
    static std::string refusal(pipeline_sink& sink, sample_frame const& frame) {
        try {
            sink.write(frame.view());
            return "none";
        } catch (std::runtime_error const& error) {
            return error.what();
        }
    }
    std::vector<std::byte> contents(std::string const& name) const {
        auto const path = directory.path() / name;
        std::vector<std::byte> read(std::filesystem::file_size(path));
        std::ifstream(path, std::ios::binary)
            .read(reinterpret_cast<char*>(read.data()), static_cast<std::streamsize>(read.size()));
        return read;
    }

    temporary_directory const directory;
    sample_frame const frame = make_frame(frame_formats[0], 16, 8);
};

}  // namespace

TEST(FrameCaps, DescribeEveryFormat) {
    auto const caps = [](int format, std::uint32_t period_us) {
        return caps_of(make_frame(frame_formats[format], 640, 480).record, period_us);
    };
    EXPECT_EQ(caps(0, 10'000), "video/x-raw,format=GRAY8,width=640,height=480,framerate=100/1");
    EXPECT_EQ(caps(1, 33'333), "video/x-raw,format=GRAY16_LE,width=640,height=480,framerate=1000000/33333");
    EXPECT_EQ(caps(2, 0), "video/x-raw,format=GRAY16_LE,width=640,height=480,framerate=0/1");
    EXPECT_EQ(caps(3, 40'000), "video/x-bayer,format=rggb,width=640,height=480,framerate=25/1");
}

TEST(FrameCaps, AlignLinesToFourBytes) {
    EXPECT_EQ(caps_stride(make_frame(frame_formats[0], 5, 2).record), 8U);
    EXPECT_EQ(caps_stride(make_frame(frame_formats[1], 5, 2).record), 12U);
    EXPECT_EQ(caps_stride(make_frame(frame_formats[3], 8, 2).record), 8U);
}

TEST(PipelineText, ReplacesDirectoryAndStartNumber) {
    EXPECT_EQ(pipeline_text("a ! filesink location={directory}/{n}-{n}.mkv", "/d{n}", 12),
              "a ! filesink location=/d{n}/12-12.mkv");
}

TEST(ElementPackage, ContainsTheElement) {
    EXPECT_EQ(element_package("x264enc"), "gstreamer1.0-plugins-ugly");
    EXPECT_EQ(element_package("avenc_ffv1"), "gstreamer1.0-libav");
    EXPECT_EQ(element_package("nonsense"), "");
}

TEST_F(PipelineSink, PassesEveryFrameWithAlignedLines) {
    auto const made = make("filesink location={directory}/out");
    std::vector<std::byte> expected;
    for (int const format : {1, 1}) {
        auto const one = make_frame(frame_formats[format], 5, 3, 7);
        EXPECT_EQ(made->write(one.view()), 0U);
        for (std::size_t i = 0; i < one.values.size(); ++i) {
            expected.push_back(static_cast<std::byte>(one.values[i] & 0xFFU));
            expected.push_back(static_cast<std::byte>(one.values[i] >> 8U));
            if (i % 5 == 4) {
                expected.insert(expected.end(), 2, std::byte{0});
            }
        }
    }
    EXPECT_TRUE(made->finish());
    EXPECT_EQ(contents("out"), expected);
}

TEST_F(PipelineSink, ReportsGStreamersErrorForAnInvalidPipeline) {
    EXPECT_THAT(refusal("nosuchelement ! fakesink"), HasSubstr("no element \"nosuchelement\""));
    EXPECT_THAT(refusal("avenc_nosuch ! fakesink"),
                HasSubstr("avenc_nosuch is in the Debian package gstreamer1.0-libav"));
    EXPECT_THAT(refusal("fakesink nosuchproperty=1"), HasSubstr("no property \"nosuchproperty\""));
    EXPECT_THAT(refusal("fakesink ! ! fakesink"), HasSubstr("cannot construct the pipeline: "));
    EXPECT_EQ(refusal("fakesink"), "none");
}

TEST_F(PipelineSink, RefusesToOverwriteAFile) {
    std::ofstream(directory.path() / "out") << "precious";
    EXPECT_THAT(refusal("filesink location={directory}/out"),
                HasSubstr("/out exists and the pipeline would overwrite it"));
    EXPECT_EQ(contents("out").size(), 8U);
}

TEST_F(PipelineSink, RestartsForFramesOfAnotherSizeWithoutLoss) {
    auto const made = make("filesink location={directory}/out{n}");
    made->write(frame.view());
    made->write(frame.view());
    made->write(make_frame(frame_formats[0], 32, 8).view());
    EXPECT_TRUE(made->finish());
    EXPECT_EQ(contents("out1").size(), 2 * 16U * 8U);
    EXPECT_EQ(contents("out2").size(), 32U * 8U);
}

TEST_F(PipelineSink, DoesNotOverwriteItsOwnFileOnRestart) {
    auto const made = make("filesink location={directory}/out");
    made->write(frame.view());
    EXPECT_THAT(refusal(*made, make_frame(frame_formats[0], 32, 8)), HasSubstr("or {n} in the name"));
    EXPECT_EQ(contents("out"), frame.bytes);
    EXPECT_FALSE(made->finish());
}

TEST_F(PipelineSink, RestartsAfterAFailure) {
    auto const made = make("filesink location={directory}/missing/out", 30s, 0s);
    EXPECT_THAT(refusal(*made, frame), HasSubstr("No such file or directory"));
    std::filesystem::create_directory(directory.path() / "missing");
    EXPECT_EQ(refusal(*made, frame), "none");
    EXPECT_TRUE(made->finish());
    EXPECT_EQ(contents("missing/out"), frame.bytes);
}

TEST_F(PipelineSink, WaitsBeforeARestart) {
    auto const made = make("filesink location={directory}/missing/out", 30s, 1h);
    EXPECT_THAT(refusal(*made, frame), HasSubstr("No such file or directory"));
    std::filesystem::create_directory(directory.path() / "missing");
    EXPECT_THAT(refusal(*made, frame), HasSubstr("No such file or directory"));
    EXPECT_FALSE(made->finish());
}

TEST_F(PipelineSink, ReportsAFailureWhileRunning) {
    auto const made = make("identity error-after=2 ! fakesink", 30s, 1h);
    std::string why;
    while ((why = refusal(*made, frame)) == "none") {
    }
    EXPECT_THAT(why, HasSubstr("identity"));
}

TEST_F(PipelineSink, GivesUpOnABlockedPipelineAfterHurry) {
    // The sink waits for the time of each frame, and the second one is a day later, so the pipeline blocks.
    auto const made = make("fakesink sync=true", 1ms);
    auto later = make_frame(frame_formats[0], 16, 8);
    made->write(later.view());
    later.record.timestamp_us += 86'400'000'000;
    std::atomic<int> taken{0};
    std::string why = "none";
    std::thread feeding([&] {
        while (why == "none") {
            why = refusal(*made, later);
            taken += why == "none" ? 1 : 0;
        }
    });
    while (taken < 4) {
        std::this_thread::sleep_for(1ms);
    }
    made->hurry();
    feeding.join();
    EXPECT_EQ(why, "the pipeline accepts no frames");
    EXPECT_LE(taken, 6);
    EXPECT_FALSE(made->finish());
}

TEST_F(PipelineSink, FinishesWithoutAFrame) {
    EXPECT_TRUE(make("filesink location={directory}/out")->finish());
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "out"));
}
