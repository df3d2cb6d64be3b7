// SPDX-License-Identifier: MIT
/// \file
/// A compressed GenICam XML.
///
/// Input: the ZIP archive.

#include "xml/xml_archive.hpp"
#include "base/printable_text.hpp"
#include "fuzz_input.hpp"
#include "xml/xml_url.hpp"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    std::string error;
    auto const xml = openpv::unpack_xml(std::as_bytes(fuzz_input(data, size).all()), error);
    require(xml.has_value() == error.empty(), "a refusal has a reason");
    require(!xml || (!xml->empty() && xml->size() <= openpv::xml_url::max_bytes), "the size is bounded");
    if (xml) {
        require(openpv::printable_xml(*xml).size() == xml->size(), "printable XML keeps its length");
    }
    return 0;
}
