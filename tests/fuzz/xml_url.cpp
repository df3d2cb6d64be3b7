// SPDX-License-Identifier: MIT
/// \file
/// The address of the GenICam XML, a text that the camera sends.
///
/// Input: the text.

#include "xml/xml_url.hpp"
#include "fuzz_input.hpp"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    std::string error;
    auto const url = openpv::parse_xml_url(fuzz_input(data, size).text(), error);
    require(url.has_value() == error.empty(), "a refusal has a reason");
    if (url) {
        require(url->bytes >= 1 && url->bytes <= openpv::xml_url::max_bytes, "the length is bounded");
        require(uint64_t{url->address} + url->bytes <= uint64_t{1} << 32, "the memory is in the address space");
    }
    for (char const each : error) {
        require(static_cast<unsigned char>(each) >= 0x20 && each != 0x7F, "an error is printable");
    }
    return 0;
}
