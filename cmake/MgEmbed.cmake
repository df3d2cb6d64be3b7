# SPDX-License-Identifier: MIT
# Writes SOURCE, a C++ file that contains the FILES: the definitions of mediagrabber::page_files() and page_file_content().
cmake_minimum_required(VERSION 3.20)
file(WRITE ${SOURCE}.new "#include \"web/page_files.hpp\"\n\n#include <stdexcept>\n#include <string>\n\nnamespace mediagrabber {\nnamespace {\n")
set(entries "")
set(number 0)
foreach(file IN LISTS FILES)
    get_filename_component(name ${file} NAME)
    file(READ ${file} bytes HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
    file(APPEND ${SOURCE}.new "constexpr char file_${number}[] = {${bytes}'\\0'};\n")
    string(APPEND entries "    {\"${name}\", {file_${number}, sizeof file_${number} - 1}},\n")
    math(EXPR number "${number} + 1")
endforeach()
file(APPEND ${SOURCE}.new "constexpr page_file files[] = {\n${entries}};\n}  // namespace\n
std::span<page_file const> page_files() {
    return files;
}

std::string_view page_file_content(std::string_view name) {
    for (auto const& one : files) {
        if (one.name == name) {
            return one.content;
        }
    }
    throw std::out_of_range(\"the page has no file \" + std::string(name));
}

}  // namespace mediagrabber
")
file(RENAME ${SOURCE}.new ${SOURCE})
