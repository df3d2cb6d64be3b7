// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <string_view>

namespace mediagrabber {

/// A file of the page, embedded into the program at build time.
struct page_file {
    std::string_view name;  ///< for example "page.css"
    std::string_view content;
};

/// \return all files of host/web/page
std::span<page_file const> page_files();
/// \throws std::out_of_range
std::string_view page_file_content(std::string_view name);

}  // namespace mediagrabber
