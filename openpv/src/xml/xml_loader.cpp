// SPDX-License-Identifier: MIT
#include "xml/xml_loader.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "base/printable_text.hpp"
#include "gvcp/gvcp_message.hpp"
#include "xml/xml_archive.hpp"
#include "xml/xml_url.hpp"

namespace openpv {
namespace {

using clock = gvcp_channel::clock;
using report_function = std::function<void(std::string const&)>;

/// Read between two checks of the clock. Some ten round trips, so that progress is reported in time with slow cameras.
constexpr std::size_t part_bytes = 10 * gvcp::max_memory_bytes;

std::string seconds_text(clock::duration time) {
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(time).count()) + " s";
}

/// Reads parts of the GenICam XML, and reports progress.
class download {
public:
    download(gvcp_channel& camera, report_function const& report)
        : camera_(camera), report_(report), start_(camera.now()), next_report_(start_ + xml_loading::report_interval) {}

    bool read(std::uint32_t address, std::span<std::byte> into, std::string& error) {
        std::size_t const size = into.size();
        for (std::size_t at = 0; at < size;) {
            auto const part = into.subspan(at, std::min(part_bytes, size - at));
            auto const result = camera_.read(std::uint64_t{address} + at, part, start_ + xml_loading::limit);
            auto const now = camera_.now();
            if (!result.ok()) {
                bool const late = result.outcome == register_outcome::timeout && now >= start_ + xml_loading::limit;
                error = late ? "reading took longer than " + seconds_text(xml_loading::limit) + ", " +
                                   std::to_string(at) + " of " + std::to_string(size) + " bytes arrived"
                             : "it cannot be read: " + result.description;
                return false;
            }
            at += part.size();
            if (now >= next_report_ && at < size) {
                report_("reading the GenICam XML: " + std::to_string(at) + " of " + std::to_string(size) +
                        " bytes after " + seconds_text(now - start_));
                next_report_ = now + xml_loading::report_interval;
            }
        }
        return true;
    }

private:
    gvcp_channel& camera_;
    report_function const& report_;
    clock::time_point const start_;
    clock::time_point next_report_;
};

bool is_zip(xml_url const& url, std::span<std::byte const> content) {
    static constexpr std::array signature{std::byte{'P'}, std::byte{'K'}, std::byte{3}, std::byte{4}};
    return url.is_zip ||
           (content.size() >= signature.size() && std::ranges::equal(content.first(signature.size()), signature));
}

std::optional<std::string> load_from(std::uint32_t url_register, download& camera, std::string& error) {
    std::array<std::byte, gvcp::reg::url_bytes> memory{};
    if (!camera.read(url_register, memory, error)) {
        return std::nullopt;
    }
    std::string text(reinterpret_cast<char const*>(memory.data()), memory.size());
    text.resize(std::min(text.find('\0'), text.size()));
    auto const url = parse_xml_url(text, error);
    if (!url) {
        return std::nullopt;
    }
    std::vector<std::byte> content(url->bytes);
    if (!camera.read(url->address, content, error)) {
        return std::nullopt;
    }
    std::optional<std::string> xml(std::in_place, reinterpret_cast<char const*>(content.data()), content.size());
    if (is_zip(*url, content)) {
        xml = unpack_xml(content, error);
    }
    if (xml) {
        // Some cameras pad the XML with zeros to a multiple of 4.
        xml->resize(std::min(xml->find('\0'), xml->size()));
        xml = printable_xml(std::move(*xml));
    }
    return xml;
}

}  // namespace

std::optional<std::string> load_xml(gvcp_channel& camera, report_function const& report, std::string& error) {
    download reading(camera, report);
    std::string first_error;
    auto xml = load_from(gvcp::reg::first_url, reading, first_error);
    if (xml) {
        return xml;
    }
    std::string second_error;
    xml = load_from(gvcp::reg::second_url, reading, second_error);
    if (xml) {
        report("the GenICam XML is that of the second URL; first URL: " + first_error);
    } else {
        error = "first URL: " + first_error + "; second URL: " + second_error;
    }
    return xml;
}

}  // namespace openpv
