// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Base fixture of the plug-in's tests: a scripted camera, a recording host, and access to both forms of the log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "mg_host_api.hpp"
#include "recording_host.hpp"
#include "scripted_sdk.hpp"

namespace plugin_test {

/// Levels of the log, by their letter.
enum class level : char { error = 'e', warning = 'w', info = 'i', debug = 'd' };

/// Resets camera, host and log for each test and captures standard output.
class plugin : public testing::Test {
protected:
    plugin() {
        scripted::reset();
        recording::reset();
        log_everything();
        testing::internal::CaptureStdout();
    }
    ~plugin() override {
        // The captured output includes the descriptions of failures.
        std::string const& captured = standard_output();
        if (HasFailure()) {
            std::fprintf(stderr, "%s\n", captured.c_str());
        }
        gMgLogLevelLib = 0;
        gMgLogModeLib = 0;
    }

    static void log_everything() {
        gMgLogLevelLib = 4;
        gMgLogModeLib = 3;
    }

    /// \return the text printed so far; ends the capture
    std::string const& standard_output() {
        if (!output_) {
            std::fflush(stdout);
            output_ = testing::internal::GetCapturedStdout();
        }
        return *output_;
    }

    static std::vector<std::string> system_lines() {
        std::vector<std::string> lines;
        for (auto const& line : recording::the_system_log().lines) {
            lines.push_back(line.text);
        }
        return lines;
    }

    /// \param operation function name in warnings and debug lines
    /// \return whether a message was logged in both forms, compared to the character
    testing::AssertionResult logged(level severity, std::string const& operation, std::string const& tag,
                                    std::string const& text) {
        char const letter = static_cast<char>(severity);
        auto const system = count_in_system_log(severity, operation, text + "\n");
        std::string const printed = "[" + tag + ":" + letter + "]: " + text + "\n";
        size_t in_output = 0;
        for (size_t at = standard_output().find(printed); at != std::string::npos;
             at = standard_output().find(printed, at + 1)) {
            ++in_output;
        }
        if (system == 0 || in_output == 0) {
            std::string all;
            for (auto const& line : system_lines()) {
                all += line;
            }
            return testing::AssertionFailure()
                   << "\"" << text << "\" is logged " << system << " times in the system log and " << in_output
                   << " times on standard output; the system log:\n"
                   << all << "standard output:\n"
                   << standard_output();
        }
        return testing::AssertionSuccess() << text << " was logged";
    }

    static size_t count_in_system_log(level severity, std::string const& operation, std::string const& text) {
        static constexpr int priorities[] = {3, 4, 6, 7};
        static std::string const letters = "ewid";
        char const letter = static_cast<char>(severity);
        size_t count = 0;
        for (auto const& line : recording::the_system_log().lines) {
            bool matches = false;
            if (severity == level::error) {
                static std::regex const prefix(R"(^\[e\|src/[a-z0-9_/]+\.cpp:[0-9]+\] )");
                std::smatch found;
                matches = std::regex_search(line.text, found, prefix) && found.suffix() == text;
            } else if (severity == level::info) {
                matches = line.text == "[i] " + text;
            } else {
                matches = line.text == std::string("[") + letter + "|" + operation + "] " + text;
            }
            if (matches) {
                EXPECT_EQ(line.priority, priorities[letters.find(letter)]) << line.text;
                ++count;
            }
        }
        return count;
    }

    /// \return whether a line of the log contains the text
    static bool mentioned(std::string const& text) {
        for (auto const& line : recording::the_system_log().lines) {
            if (line.text.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    static scripted::device& cam() { return scripted::sdk().camera(); }
    static recording::host_state& host() { return recording::host(); }
    static std::vector<std::string> calls(std::vector<std::string> const& prefixes) {
        return support::journal().starting(prefixes);
    }
    /// \return all writes to the camera's features, in order
    static std::vector<std::string> writes() {
        return calls({"SetIntegerValue", "SetFloatValue", "SetEnumValue", "SetBooleanValue", "PvGenInteger::SetValue",
                      "PvGenFloat::SetValue", "PvGenEnum::SetValue", "PvGenBoolean::SetValue", "Execute"});
    }

private:
    std::optional<std::string> output_;
};

}  // namespace plugin_test
