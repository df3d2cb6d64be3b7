#include "recording/bigtiff_file.hpp"

#include <tiff.h>

#include <array>
#include <cstring>
#include <string>
#include <utility>

#include "recording/frame_pixels.hpp"
#include "recording/tiff_tags.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint64_t header_bytes = 16;
constexpr std::uint64_t first_link = 8;  ///< place of the pointer to the first page, in the header
constexpr std::uint64_t alignment = 8;

using bytes = std::vector<std::byte>;

/// Little-endian, as the machine.
template <typename number>
void put(bytes& into, number value) {
    auto const at = into.size();
    into.resize(at + sizeof value);
    std::memcpy(into.data() + at, &value, sizeof value);
}

/// The directory of a page: entries in the order of their tags, the pointer to the next page, and values that have no
/// room in their entry.
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

    /// Bytes from the beginning to the pointer to the next page.
    std::uint64_t link_offset() const { return sizeof(std::uint64_t) + entries_.size() * entry_bytes; }

    /// \param place  where in the file it will lie
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
        default:
            return COMPRESSION_NONE;
    }
}

void add_meaning(page_directory& page, pixel_format const& format) {
    if (format.bayer) {
        page.add_bytes(TIFFTAG_CFAREPEATPATTERNDIM, TIFF_SHORT, tiff_cell_sides.size(), tiff_cell_sides.data(),
                       sizeof tiff_cell_sides);
        page.add_bytes(TIFFTAG_CFAPATTERN, TIFF_BYTE, tiff_cell_colours.size(), tiff_cell_colours.data(),
                       sizeof tiff_cell_colours);
    }
}

/// \param strip_place  where the pixels lie in the file
page_directory describe(frame_record const& record, tiff_file const& like, std::uint64_t strip_place,
                        std::uint64_t strip_bytes) {
    page_directory page;
    page.add(TIFFTAG_IMAGEWIDTH, record.width);
    page.add(TIFFTAG_IMAGELENGTH, record.height);
    page.add(TIFFTAG_BITSPERSAMPLE, static_cast<std::uint16_t>(unpacked_bits(*record.format)));
    page.add(TIFFTAG_COMPRESSION, code_of(like.compression()));
    page.add(TIFFTAG_PHOTOMETRIC,
             static_cast<std::uint16_t>(record.format->bayer ? PHOTOMETRIC_CFA : PHOTOMETRIC_MINISBLACK));
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
    add_meaning(page, *record.format);
    return page;
}

}  // namespace

bigtiff_file::bigtiff_file(int directory, tiff_file like) : like_(std::move(like)), file_(directory, file_name) {}

/// With the first frame: a file without a page is nothing that can be opened.
void bigtiff_file::begin_file() {
    bytes header{std::byte{'I'}, std::byte{'I'}};
    put(header, std::uint16_t{TIFF_VERSION_BIG});
    put(header, std::uint16_t{sizeof(std::uint64_t)});  // bytes of an offset
    put(header, std::uint16_t{0});
    put(header, std::uint64_t{0});  // no page
    file_.append({header});
    now_ = {.size = header_bytes, .link = first_link, .pages = 0};
}

written_frame bigtiff_file::write(frame_view const& frame) {
    if (now_.size == 0) {
        begin_file();
    }
    bool const compressed = like_.compression() != tiff_compression::none;
    auto const strip =
        compressed ? std::span<std::byte const>(room_ = like_.encoded_strip(frame)) : unpacked(frame, room_);
    auto const page = describe(frame.record, like_, now_.size, strip.size());
    // The pointer to the next page is to lie at a multiple of 8.
    std::uint64_t const end = now_.size + strip.size() + page.link_offset();
    std::array<std::byte, alignment> const gap{};
    auto const padding = std::span(gap).first((alignment - end % alignment) % alignment);
    std::uint64_t const place = now_.size + strip.size() + padding.size();
    auto const directory = page.lay_out(place);
    file_.append({strip, padding, directory});
    try {
        point_to(place);
    } catch (...) {
        file_.cut(now_.size);
        throw;
    }
    before_ =
        std::exchange(now_, state{.size = file_.size(), .link = place + page.link_offset(), .pages = now_.pages + 1});
    return {.place = {.file = file_.name(), .page = before_.pages, .offset = {}, .bytes = {}},
            .bytes = now_.size - before_.size};
}

void bigtiff_file::take_back() {
    now_ = before_;
    point_to(0);
    file_.cut(now_.size);
}

void bigtiff_file::point_to(std::uint64_t directory) {
    bytes pointer;
    put(pointer, directory);
    file_.replace(now_.link, pointer);
}

}  // namespace mediagrabber
