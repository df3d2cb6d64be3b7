// SPDX-License-Identifier: MIT
/// \file
/// Compares the log of one complete configuration at the highest level with golden files, in both forms of the log.
#include <fstream>
#include <sstream>

#include "jai_kernel/kernel_test.hpp"

namespace {

struct configuration_log : plugin_test::kernel_fixture {
    /// Configures everything that a host can configure, on a camera that accepts it.
    void configure_everything() {
        host().offset_x = 64;
        host().offset_y = 32;
        host().width = 1280;
        host().height = 1024;
        host().format = 3;
        host().fps = 59.94F;
        host().tsadjns = -38'500;
        host().rotate = 2;
        host().sweep_prof = 1;
        host().sweep_gain_mod = 1;
        host().gain_man = 6.0F;
        host().sweep_etime_mod = 2;
        host().atbright = 0.5F;
        host().etlims_low = 100.0F;
        host().etlims_high = 15'000.0F;
        host().sweep_lut_mod = 1;
        host().gamma = 0.6F;
        host().iobox_num = 3;
        host().io_lines = {{.pin = 5, .source = 2, .inverter = 2}, {.pin = 6, .source = 1, .inverter = 1}, {.pin = 9}};
        cam()["PayloadSize"].integer = 2'621'480;
        cam()["JAILUTMode"].integer = 2;
        unsigned buffers = 600;
        EXPECT_EQ(kernel.ProcSetCamConfig(&device(), info(), &buffers), 0);
    }

    /// After an intended change of the log, replace the file's text by the actual text that a failure prints.
    /// \return text of the golden file
    static std::string golden(std::string const& name) {
        std::ifstream const file(std::string(GOLDEN_DIRECTORY) + "/" + name);
        EXPECT_TRUE(file) << name << " can't be read";
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
};

TEST_F(configuration_log, InTheSystemLog) {
    configure_everything();
    std::string lines;
    for (auto const& line : system_lines()) {
        lines += line;
    }
    EXPECT_EQ(lines, golden("configuration.system_log.txt"));
}

TEST_F(configuration_log, OnStandardOutput) {
    configure_everything();
    EXPECT_EQ(standard_output(), golden("configuration.standard_output.txt"));
}

}  // namespace
