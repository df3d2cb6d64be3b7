// SPDX-License-Identifier: MIT
#include "doctor/command_output.hpp"

#include <array>
#include <cstdio>
#include <memory>

namespace mediagrabber {

std::optional<std::string> output_of(char const* command) {
    struct closer {
        void operator()(std::FILE* file) const { pclose(file); }
    };
    std::unique_ptr<std::FILE, closer> pipe(popen(command, "re"));  // NOLINT(cert-env33-c): its text is fixed
    if (pipe == nullptr) {
        return {};
    }
    std::string text;
    std::array<char, 4096> part{};
    for (std::size_t got = 0; (got = std::fread(part.data(), 1, part.size(), pipe.get())) > 0;) {
        text.append(part.data(), got);
    }
    return pclose(pipe.release()) == 0 ? std::optional(text) : std::nullopt;
}

}  // namespace mediagrabber
