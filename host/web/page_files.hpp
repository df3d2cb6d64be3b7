#pragma once

#include <span>
#include <string_view>

namespace mediagrabber {

/// A file of the page, as it was when the program was built.
struct page_file {
    std::string_view name;  ///< "page.css"
    std::string_view content;
};

/// All in host/web/page.
std::span<page_file const> page_files();
/// \throws std::out_of_range
std::string_view page_file_content(std::string_view name);

}  // namespace mediagrabber
