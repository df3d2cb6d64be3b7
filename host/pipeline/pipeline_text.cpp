// SPDX-License-Identifier: MIT
#include "pipeline/pipeline_text.hpp"

#include <string_view>

namespace mediagrabber {

namespace {

void replace_all(std::string& text, std::string_view placeholder, std::string const& value) {
    for (std::size_t at = text.find(placeholder); at != std::string::npos;
         at = text.find(placeholder, at + value.size())) {
        text.replace(at, placeholder.size(), value);
    }
}

}  // namespace

std::string pipeline_text(std::string configured, std::filesystem::path const& directory, std::uint64_t start) {
    replace_all(configured, "{n}", std::to_string(start));
    replace_all(configured, "{directory}", directory.string());
    return configured;
}

}  // namespace mediagrabber
