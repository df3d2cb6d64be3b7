// SPDX-License-Identifier: MIT
#include "recording/bigtiff_file.hpp"

#include <tiff.h>

#include <array>
#include <cstring>
#include <exception>
#include <string>
#include <system_error>
#include <utility>

#include "frames/frame_pixels.hpp"
#include "recording/tiff_tags.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint64_t header_bytes = 16;
constexpr std::uint64_t alignment = 8;

using bytes = std::vector<std::byte>;

/// Appends in the byte order of the machine, which is the little-endian of the header.
template <typename number>
void put(bytes& into, number value) {
    auto const at = into.size();
    into.resize(at + sizeof value);
    std::memcpy(into.data() + at, &value, sizeof value);
}

/// The directory (IFD) of a page: entries in ascending order of their tags, the pointer to the next page, and the
/// values that do not fit into their entry.
class page_directory {
public:
    static constexpr std::uint64_t entry_bytes = 20;

    void add(std::uint16_t tag, std::uint16_t value) { add_bytes(tag, TIFF_SHORT, 1, &value, sizeof value); }
    void add(std::uint16_t tag, std::uint32_t value) { add_bytes(tag, TIFF_LONG, 1, &value, sizeof value); }
    void add(std::uint16_t tag, std::uint64_t value) { add_bytes(tag, TIFF_LONG8, 1, &value, sizeof value); }
    void add(std::uint16_t tag, std::string const& text) {
        add_bytes(tag, TIFF_ASCII, text.size() + 1, text.c_str(), text.size() + 1);
    }
    void add_bytes(std::uint16_t tag, std::uint16_t type, std::uint64_t count, void const* value, std::size_t size) {
        auto const* const first = static_cast<std::byte const*>(value);
        entries_.push_back({.tag = tag, .type = type, .count = count, .value = {first, first + size}});
    }

    /// Offset of the pointer to the next page, bytes from the start of the directory.
    std::uint64_t link_offset() const { return sizeof(std::uint64_t) + entries_.size() * entry_bytes; }

    /// \param place  offset of the directory in the file
    bytes lay_out(std::uint64_t place) const {
        bytes made;
        bytes values;
        std::uint64_t const values_at = place + link_offset() + sizeof(std::uint64_t);
        put(made, std::uint64_t{entries_.size()});
        for (entry const& one : entries_) {
            put(made, one.tag);
            put(made, one.type);
            put(made, one.count);
            if (one.value.size() > sizeof(std::uint64_t)) {
                put(made, values_at + values.size());
                values.insert(values.end(), one.value.begin(), one.value.end());
                values.resize((values.size() + alignment - 1) / alignment * alignment);
            } else {
                made.insert(made.end(), one.value.begin(), one.value.end());
                made.resize(made.size() + sizeof(std::uint64_t) - one.value.size());
            }
        }
        put(made, std::uint64_t{0});  // no next page
        made.insert(made.end(), values.begin(), values.end());
        return made;
    }

private:
    struct entry {
        std::uint16_t tag = 0;
        std::uint16_t type = 0;
        std::uint64_t count = 0;
        bytes value;
    };
    std::vector<entry> entries_;
};

std::uint16_t code_of(tiff_compression compression) {
    switch (compression) {
        case tiff_compression::lzw:
            return COMPRESSION_LZW;
        case tiff_compression::deflate:
            return COMPRESSION_ADOBE_DEFLATE;
        case tiff_compression::none:
            break;
    }
    return COMPRESSION_NONE;
}

void add_cfa(page_directory& page, frame_format const& format) {
    if (format.cfa == colour_filter::bayer_rg) {
        page.add_bytes(TIFFTAG_CFAREPEATPATTERNDIM, TIFF_SHORT, cfa_cell_sides.size(), cfa_cell_sides.data(),
                       sizeof cfa_cell_sides);
        page.add_bytes(TIFFTAG_CFAPATTERN, TIFF_BYTE, cfa_cell_colours.size(), cfa_cell_colours.data(),
                       sizeof cfa_cell_colours);
    }
}

/// \param strip_place  offset of the pixels in the file
page_directory describe(frame_record const& record, tiff_file const& like, std::uint64_t strip_place,
                        std::uint64_t strip_bytes) {
    page_directory page;
    page.add(TIFFTAG_IMAGEWIDTH, record.width);
    page.add(TIFFTAG_IMAGELENGTH, record.height);
    page.add(TIFFTAG_BITSPERSAMPLE, static_cast<std::uint16_t>(unpacked_bits(*record.format)));
    page.add(TIFFTAG_COMPRESSION, code_of(like.compression()));
    page.add(TIFFTAG_PHOTOMETRIC,
             static_cast<std::uint16_t>(record.format->cfa == colour_filter::bayer_rg ? PHOTOMETRIC_CFA
                                                                                      : PHOTOMETRIC_MINISBLACK));
    page.add(TIFFTAG_IMAGEDESCRIPTION, tiff_description(record));
    if (!like.model().empty()) {
        page.add(TIFFTAG_MODEL, like.model());
    }
    page.add(TIFFTAG_STRIPOFFSETS, strip_place);
    page.add(TIFFTAG_ORIENTATION, std::uint16_t{ORIENTATION_TOPLEFT});
    page.add(TIFFTAG_SAMPLESPERPIXEL, std::uint16_t{1});
    page.add(TIFFTAG_ROWSPERSTRIP, record.height);
    page.add(TIFFTAG_STRIPBYTECOUNTS, strip_bytes);
    page.add(TIFFTAG_MINSAMPLEVALUE, std::uint16_t{0});
    page.add(TIFFTAG_MAXSAMPLEVALUE, static_cast<std::uint16_t>((1U << record.format->significant_bits) - 1));
    page.add(TIFFTAG_PLANARCONFIG, std::uint16_t{PLANARCONFIG_CONTIG});
    page.add(TIFFTAG_SOFTWARE, like.software());
    std::string const date = tiff_date(record.timestamp_us);
    if (!date.empty()) {
        page.add(TIFFTAG_DATETIME, date);
    }
    if (like.compression() != tiff_compression::none) {
        page.add(TIFFTAG_PREDICTOR, std::uint16_t{PREDICTOR_HORIZONTAL});
    }
    add_cfa(page, *record.format);
    return page;
}

/// \param first_page  offset of its directory
bytes header_of(std::uint64_t first_page) {
    bytes header{std::byte{'I'}, std::byte{'I'}};
    put(header, std::uint16_t{TIFF_VERSION_BIG});
    put(header, std::uint16_t{sizeof(std::uint64_t)});  // bytes of an offset
    put(header, std::uint16_t{0});
    put(header, first_page);
    return header;
}

}  // namespace

bigtiff_file::bigtiff_file(int directory, tiff_file like) : like_(std::move(like)), file_(directory, file_name) {}

written_frame bigtiff_file::write(frame_view const& frame) {
    remove_unlinked();
    bool const first = now_.pages == 0;
    std::uint64_t const begin = first ? header_bytes : now_.size;
    bool const compressed = like_.compression() != tiff_compression::none;
    auto const strip =
        compressed ? std::span<std::byte const>(buffer_ = like_.encoded_strip(frame)) : unpacked(frame, buffer_);
    auto const page = describe(frame.record, like_, begin, strip.size());
    // Aligns the pointer to the next page to 8 bytes, so that it does not cross a memory page.
    std::uint64_t const end = begin + strip.size() + page.link_offset();
    std::array<std::byte, alignment> const gap{};
    auto const padding = std::span(gap).first((alignment - end % alignment) % alignment);
    std::uint64_t const place = begin + strip.size() + padding.size();
    auto const directory = page.lay_out(place);
    if (first) {  // with its header, because a TIFF file without a page is invalid
        file_.append({header_of(place), strip, padding, directory});
    } else {
        file_.append({strip, padding, directory});
        link(place);
    }
    before_ =
        std::exchange(now_, state{.size = file_.size(), .link = place + page.link_offset(), .pages = now_.pages + 1});
    return {.place = {.file = file_.name(), .page = before_.pages, .offset = {}, .bytes = {}},
            .bytes = now_.size - begin};
}

/// If the pointer cannot be written, removes the page again, and a part of the pointer that may have been written.
void bigtiff_file::link(std::uint64_t directory) {
    try {
        point_to(directory);
    } catch (std::system_error const&) {
        std::exception_ptr const reason = std::current_exception();
        try {
            remove_unlinked();
        } catch (std::system_error const&) {
            // The next write() tries again.
        }
        std::rethrow_exception(reason);
    }
}

/// Removes what follows the last page, after an error that left something there.
void bigtiff_file::remove_unlinked() {
    if (file_.size() == now_.size) {
        return;
    }
    if (now_.pages != 0) {
        point_to(0);
    }
    file_.truncate(now_.size);
}

/// If the pointer cannot be reset, the page stays in the file.
void bigtiff_file::undo_last() {
    if (before_.pages != 0) {
        std::uint64_t const link = std::exchange(now_.link, before_.link);
        try {
            point_to(0);
        } catch (std::system_error const&) {
            now_.link = link;
            throw;
        }
    }
    now_ = before_;
    file_.truncate(now_.size);
}

void bigtiff_file::point_to(std::uint64_t directory) {
    bytes pointer;
    put(pointer, directory);
    file_.replace(now_.link, pointer);
}

}  // namespace mediagrabber
