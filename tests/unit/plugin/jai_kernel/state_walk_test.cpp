// SPDX-License-Identifier: MIT
/// \file
/// Each state of the signal handling and of the dynamic LUT with each event, checked against tables of the expected
/// state.
#include <tuple>

#include "jai_kernel/kernel_test.hpp"

namespace {

constexpr uint32_t all_steps[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
constexpr uint32_t all_modes[] = {0, 6, 7};
constexpr uint32_t all_codes[] = {0, 1, 2, 3, 4, 5, 6, 7, 0xFFFFFFFF};

// ---- A signal -----------------------------------------------------------------------------------

/// A signal and the state in which it arrives.
using signal_case = std::tuple<uint32_t /*code*/, uint32_t /*step*/, uint32_t /*mode*/, int /*lut bits*/>;

struct after_signal {
    uint32_t code;
    uint32_t step;
    uint32_t mode;
    bool stop = false;
    bool stop_written = true;
    int format = 0;         ///< set on the host; 0: none
    int signal_action = 0;  ///< reported to the host; 0: none
    bool capture_stopped = false;
    bool polled = false;  ///< whether the host was polled for a dynamic change

    bool operator==(after_signal const&) const = default;
    friend void PrintTo(after_signal const& state, std::ostream* out) {
        *out << "code " << state.code << " step " << state.step << " mode " << state.mode << " stop " << state.stop
             << (state.stop_written ? "" : " (unwritten)") << " format " << state.format << " action "
             << state.signal_action << (state.capture_stopped ? " capture stopped" : "")
             << (state.polled ? " polled" : "");
    }
};

after_signal expected_after(signal_case const& before) {
    auto const [code, step, mode, bits] = before;
    after_signal const unchanged{.code = code, .step = step, .mode = mode};
    after_signal next = unchanged;
    switch (code) {
        case 0:
            next.stop_written = false;
            next.polled = step == 0 && mode == 0;
            return next;
        case 1:
        case 5:
            next.code = 0;
            next.stop = true;
            next.capture_stopped = true;
            next.signal_action = static_cast<int>(code);
            return next;
        case 2:  // the same configuration again
            next.code = 0;
            return next;
        case 4:
            next.code = 0;
            if (mode == 7) {
                next.stop = next.capture_stopped = true;
                next.format = 1;
            } else if (mode == 0 && bits == 8) {
                next.stop = next.capture_stopped = true;
                next.format = 2;
                next.step = 1;
                next.mode = 6;
            } else if (mode == 0) {
                next.step = 1;
            }
            return next;
        default:
            return unchanged;
    }
}

struct signal_walk : plugin_test::kernel_fixture, testing::WithParamInterface<signal_case> {};

TEST_P(signal_walk, FollowsTheTable) {
    auto const [code, step, mode, bits] = GetParam();
    device().sensor->initialize();
    support::journal().clear();
    kernel.signalCode = static_cast<signal_code>(code);
    kernel.dynLutStep = static_cast<dyn_lut_step>(step);
    kernel.dynLutMode = static_cast<dyn_lut_mode>(mode);
    kernel.lutBits = static_cast<uint8_t>(bits);
    after_signal const expected = expected_after(GetParam());
    bool const before = !expected.stop;  // the opposite, to detect that it stays unwritten
    bool stop = before;
    EXPECT_EQ(kernel.ProcSignal(&device(), 3, &stop), 0u);

    auto const seen = [](std::string const& call) { return !calls({call}).empty(); };
    after_signal actual{.code = static_cast<uint32_t>(kernel.signalCode),
                        .step = value_of(kernel.dynLutStep),
                        .mode = value_of(kernel.dynLutMode)};
    actual.stop_written = expected.stop_written || stop != before;
    actual.stop = actual.stop_written && stop;
    actual.format = seen("MgGiMainCtx__SetFormat(1)") ? 1 : seen("MgGiMainCtx__SetFormat(2)") ? 2 : 0;
    actual.signal_action = seen("MgGi__SetSignalAction(1)")   ? 1
                           : seen("MgGi__SetSignalAction(2)") ? 2
                           : seen("MgGi__SetSignalAction(5)") ? 5
                                                              : 0;
    actual.capture_stopped = seen("Execute(AcquisitionStop)");
    actual.polled = seen("MgGi__CheckDynConfig");
    EXPECT_EQ(actual, expected);
}

std::string signal_case_name(testing::TestParamInfo<signal_case> const& info) {
    auto const [code, step, mode, bits] = info.param;
    return "Code" + std::to_string(code) + "Step" + std::to_string(step) + "Mode" + std::to_string(mode) + "Bits" +
           std::to_string(bits);
}

INSTANTIATE_TEST_SUITE_P(EveryStateAndCode, signal_walk,
                         testing::Combine(testing::ValuesIn(all_codes), testing::ValuesIn(all_steps),
                                          testing::ValuesIn(all_modes), testing::Values(8, 12)),
                         signal_case_name);

// ---- A frame of a dynamic LUT cycle -------------------------------------------------------------

using frame_case = std::tuple<uint32_t /*step*/, uint32_t /*mode*/, bool /*arrays*/>;

struct after_frame {
    uint32_t step;
    uint32_t mode;
    bool arrays;                 ///< whether both are allocated
    bool measured = false;       ///< the host has measured the frame
    bool loaded = false;         ///< the camera has received a LUT
    bool switches_back = false;  ///< user signal 2 is pending and capture is stopped

    bool operator==(after_frame const&) const = default;
    friend void PrintTo(after_frame const& state, std::ostream* out) {
        *out << "step " << state.step << " mode " << state.mode << (state.arrays ? " arrays" : "")
             << (state.measured ? " measured" : "") << (state.loaded ? " loaded" : "")
             << (state.switches_back ? " switches back" : "");
    }
};

after_frame expected_after(frame_case const& before) {
    auto const [step, mode, arrays] = before;
    after_frame next{.step = step, .mode = mode, .arrays = arrays};
    switch (step) {
        case 1:
            next.arrays = arrays && mode != 6;
            return next;
        case 2:
        case 3:
            next.step = step + 1;
            return next;
        case 4:
            next.arrays = next.measured = true;
            if (mode == 0) {
                next.step = 0;
                next.loaded = true;
            } else {
                next.step = 5;
                next.mode = 7;
                next.switches_back = mode == 6;
            }
            return next;
        case 5:
            next.loaded = arrays;
            next.step = 0;
            if (mode == 7) {
                next.mode = 0;
                next.arrays = false;
            }
            return next;
        case 8:
            next.step = 0;
            if (mode == 7) {
                next.mode = 0;
                next.arrays = false;
            }
            return next;
        default:
            return next;
    }
}

struct frame_walk : plugin_test::kernel_fixture, testing::WithParamInterface<frame_case> {
    uint8_t pixel = 0;
};

TEST_P(frame_walk, FollowsTheTable) {
    auto const [step, mode, arrays] = GetParam();
    kernel.lutBits = kernel.cdfBits = 8;
    kernel.frameData = &pixel;
    kernel.dynLutStep = static_cast<dyn_lut_step>(step);
    kernel.dynLutMode = static_cast<dyn_lut_mode>(mode);
    if (arrays) {
        kernel.dynLut.reset(static_cast<uint16_t*>(std::calloc(256, sizeof(uint16_t))));
        kernel.dynLutEntries = 256;
        kernel.dynCdf.reset(static_cast<uint32_t*>(std::calloc(256, sizeof(uint32_t))));
    }
    device().sensor->initialize();
    support::journal().clear();
    kernel.ProcDynamLut(&device());
    after_frame const actual{.step = value_of(kernel.dynLutStep),
                             .mode = value_of(kernel.dynLutMode),
                             .arrays = kernel.dynLut != nullptr && kernel.dynCdf != nullptr,
                             .measured = !calls({"MgGi__CalcLutDynam"}).empty(),
                             .loaded = calls({"PvGenInteger::SetValue(LUTValue"}).size() == 256,
                             .switches_back = kernel.signalCode == signal_code::user_2};
    EXPECT_EQ(actual, expected_after(GetParam()));
    EXPECT_EQ(kernel.dynLut != nullptr, kernel.dynCdf != nullptr) << "one without the other";
}

std::string frame_case_name(testing::TestParamInfo<frame_case> const& info) {
    auto const [step, mode, arrays] = info.param;
    return "Step" + std::to_string(step) + "Mode" + std::to_string(mode) + (arrays ? "WithArrays" : "WithoutArrays");
}

INSTANTIATE_TEST_SUITE_P(EveryState, frame_walk,
                         testing::Combine(testing::ValuesIn(all_steps), testing::ValuesIn(all_modes), testing::Bool()),
                         frame_case_name);

}  // namespace
