// SPDX-License-Identifier: MIT
#include "report/recording_reader.hpp"

#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

#include "frames/frame_pixels.hpp"

namespace mediagrabber {

namespace {

namespace fs = std::filesystem;

template <typename value>
std::optional<value> value_or_nothing(nlohmann::json const& line, char const* key) {
    auto const found = line.find(key);
    return found == line.end() || found->is_null() ? std::nullopt : std::optional(found->get<value>());
}

index_entry entry_of(nlohmann::json const& line) {
    index_entry made;
    made.file = value_or_nothing<std::string>(line, "file");
    made.page = value_or_nothing<std::uint64_t>(line, "page");
    made.offset = value_or_nothing<std::uint64_t>(line, "offset");
    made.number = line.at("frame");
    made.timestamp_us = line.at("timestamp_us");
    made.gain_db = value_or_nothing<double>(line, "gain_db");
    made.exposure_us = value_or_nothing<double>(line, "exposure_us");
    made.temperature_c = value_or_nothing<double>(line, "temperature_c");
    made.time_uncertainty_us = value_or_nothing<double>(line, "time_uncertainty_us");
    made.time_source = value_or_nothing<std::string>(line, "time_source");
    made.clock_drift_ppm = value_or_nothing<double>(line, "clock_drift_ppm");
    made.counter = value_or_nothing<std::uint32_t>(line, "counter");
    made.width = line.at("width");
    made.height = line.at("height");
    made.format = frame_format_named(line.at("pixel_format").get<std::string>());
    if (made.format == nullptr) {
        throw std::runtime_error("unknown pixel format " + line.at("pixel_format").dump());
    }
    // A recording may come from elsewhere: its index must not name files outside of it.
    if (made.file && fs::path(*made.file).filename() != *made.file) {
        throw std::runtime_error("the file name " + line.at("file").dump() + " is outside of the recording");
    }
    return made;
}

/// Reads the lines of a frame in ascending order.
class frame_lines_like {
public:
    virtual ~frame_lines_like() = default;
    /// Reads line `y`. \throws std::runtime_error
    virtual void go_to(std::uint32_t y) = 0;
    /// \return a value of the current line, on the scale of the pixel format
    virtual unsigned at(std::uint32_t x) const = 0;

    std::uint32_t width = 0;
    std::uint32_t height = 0;

protected:
    frame_lines_like() = default;
    frame_lines_like(frame_lines_like const&) = default;
    frame_lines_like& operator=(frame_lines_like const&) = default;
};

[[gnu::format(printf, 4, 0)]] int take_message(TIFF* /*tiff*/, void* user, char const* /*module*/, char const* format,
                                               va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    auto& message = *static_cast<std::string*>(user);
    if (message.empty()) {
        message = text.data();
    }
    return 1;
}

int ignore_warning(TIFF* /*tiff*/, void* /*user*/, char const* /*module*/, char const* /*format*/,
                   va_list /*arguments*/) {
    return 1;
}

/// A page of a TIFF file.
class tiff_lines final : public frame_lines_like {
public:
    tiff_lines(fs::path const& file, std::uint64_t page) : name_(file.string()), tiff_(open(file), TIFFClose) {
        if (tiff_ == nullptr) {
            fail("cannot be read as TIFF");
        }
        if (page > max_pages || TIFFSetDirectory(tiff_.get(), static_cast<tdir_t>(page)) != 1) {
            fail("has no page " + std::to_string(page));
        }
        TIFFGetField(tiff_.get(), TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tiff_.get(), TIFFTAG_IMAGELENGTH, &height);
        TIFFGetFieldDefaulted(tiff_.get(), TIFFTAG_BITSPERSAMPLE, &bits_);
        TIFFGetFieldDefaulted(tiff_.get(), TIFFTAG_SAMPLESPERPIXEL, &samples_);
        auto const bytes = static_cast<std::size_t>(std::max<tmsize_t>(TIFFScanlineSize(tiff_.get()), 0));
        if (samples_ != 1 || (bits_ != 8 && bits_ != 16) || bytes < std::size_t{width} * bits_ / 8) {
            throw std::runtime_error(name_ + " is not a frame: it has " + std::to_string(samples_) + " samples of " +
                                     std::to_string(bits_) + " bits per pixel");
        }
        line_.resize(bytes);
    }

    /// Reads the lines in between, too: compressed strips are decoded in order.
    void go_to(std::uint32_t y) override {
        while (next_ <= y) {
            if (TIFFReadScanline(tiff_.get(), line_.data(), next_++) != 1) {
                fail("ends in line " + std::to_string(next_ - 1));
            }
        }
    }
    unsigned at(std::uint32_t x) const override {
        return bits_ == 8 ? line_[x] : line_[2 * std::size_t{x}] | unsigned{line_[2 * std::size_t{x} + 1]} << 8U;
    }

private:
    static constexpr std::uint64_t max_pages = std::numeric_limits<tdir_t>::max();

    /// libtiff's error message becomes part of the exception's.
    TIFF* open(fs::path const& file) {
        std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> const options(TIFFOpenOptionsAlloc(),
                                                                                   TIFFOpenOptionsFree);
        TIFFOpenOptionsSetErrorHandlerExtR(options.get(), take_message, &message_);
        TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignore_warning, nullptr);
        return TIFFOpenExt(file.c_str(), "r", options.get());
    }
    [[noreturn]] void fail(std::string const& what) const {
        throw std::runtime_error(name_ + " " + what + (message_.empty() ? "" : ": " + message_));
    }

    std::string const name_;
    std::string message_;
    std::unique_ptr<TIFF, void (*)(TIFF*)> tiff_;
    std::uint16_t bits_ = 0;
    std::uint16_t samples_ = 0;
    std::vector<std::uint8_t> line_;
    std::uint32_t next_ = 0;
};

/// A frame in a raw file.
class raw_lines final : public frame_lines_like {
public:
    raw_lines(fs::path const& file, index_entry const& entry)
        : name_(file.string()), in_(file, std::ios::binary), offset_(*entry.offset) {
        if (!in_) {
            throw std::runtime_error(name_ + " cannot be read: " + std::generic_category().message(errno));
        }
        width = entry.width;
        height = entry.height;
        record_.format = entry.format;
        record_.width = width;
        record_.height = 1;
        record_.stride = static_cast<std::uint32_t>(entry.format->line_bytes(width));
        stored_.resize(record_.stride);
        line_.resize(std::size_t{width} * unpacked_bits(*entry.format) / 8);
    }

    void go_to(std::uint32_t y) override {
        in_.seekg(static_cast<std::streamoff>(offset_ + std::uint64_t{y} * stored_.size()));
        in_.read(reinterpret_cast<char*>(stored_.data()), static_cast<std::streamsize>(stored_.size()));
        if (!in_) {
            throw std::runtime_error(name_ + " ends in line " + std::to_string(y) + " of a frame");
        }
        unpack_line({record_, stored_}, 0, line_);
    }
    unsigned at(std::uint32_t x) const override {
        auto const byte_at = [this](std::size_t i) { return std::to_integer<unsigned>(line_[i]); };
        return unpacked_bits(*record_.format) == 8
                   ? byte_at(x)
                   : byte_at(2 * std::size_t{x}) | byte_at(2 * std::size_t{x} + 1) << 8U;
    }

private:
    std::string const name_;
    std::ifstream in_;
    std::uint64_t const offset_;
    frame_record record_;  ///< of a single line
    std::vector<std::byte> stored_;
    std::vector<std::byte> line_;
};

std::unique_ptr<frame_lines_like> lines_of(fs::path const& directory, index_entry const& entry) {
    fs::path const file = directory / entry.file.value();
    if (entry.offset) {
        return std::make_unique<raw_lines>(file, entry);
    }
    return std::make_unique<tiff_lines>(file, entry.page.value_or(0));
}

constexpr char index_name[] = "frames.jsonl";

/// Appends the frames of a segment, whose files are then named relative to `directory`.
void read_index_file(fs::path const& directory, fs::path const& segment, std::vector<index_entry>& entries) {
    fs::path const file = directory / segment / index_name;
    std::ifstream in(file);
    if (!in) {
        throw std::runtime_error(file.string() + " cannot be read");
    }
    std::size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        if (in.eof()) {
            break;  // no line end: incomplete
        }
        ++number;
        try {
            entries.push_back(entry_of(nlohmann::json::parse(line)));
        } catch (std::exception const& error) {
            throw std::runtime_error(file.string() + ":" + std::to_string(number) + ": " + error.what());
        }
        if (auto& name = entries.back().file; name) {
            *name = (segment / *name).string();
        }
    }
}

}  // namespace

std::vector<index_entry> read_index(fs::path const& directory) {
    std::vector<index_entry> entries;
    if (fs::exists(directory / index_name)) {
        read_index_file(directory, {}, entries);
        return entries;
    }
    std::vector<fs::path> segments;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().filename() == index_name) {
            segments.push_back(entry->path().parent_path().lexically_relative(directory));
        }
    }
    if (segments.empty()) {
        throw std::runtime_error(directory.string() + " is not a recording: it has no readable frames.jsonl");
    }
    std::ranges::sort(segments);  // their names are times
    for (fs::path const& segment : segments) {
        read_index_file(directory, segment, entries);
    }
    return entries;
}

small_image read_thumbnail(fs::path const& directory, index_entry const& entry, std::uint32_t max_width) {
    auto const lines = lines_of(directory, entry);
    bool const bayer = entry.format->cfa == colour_filter::bayer_rg;
    auto const value_at = [&, shift = entry.format->significant_bits - 8](std::uint32_t x) {
        return static_cast<std::uint8_t>(std::min(lines->at(x) >> shift, 255U));
    };
    std::uint32_t const cell = bayer ? 2 : 1;
    std::uint32_t const step = std::max(1U, (lines->width / cell + max_width - 1) / max_width) * cell;
    small_image image{
        .width = lines->width / step, .height = lines->height / step, .channels = bayer ? 3U : 1U, .values = {}};
    image.values.reserve(std::size_t{image.width} * image.height * image.channels);
    std::vector<std::uint8_t> reds(image.width);
    for (std::uint32_t y = 0; y < image.height; ++y) {
        lines->go_to(y * step);
        if (!bayer) {
            for (std::uint32_t x = 0; x < image.width; ++x) {
                image.values.push_back(value_at(x * step));
            }
            continue;
        }
        for (std::uint32_t x = 0; x < image.width; ++x) {
            reds[x] = value_at(x * step);
        }
        lines->go_to(y * step + 1);
        for (std::uint32_t x = 0; x < image.width; ++x) {
            image.values.insert(image.values.end(), {reds[x], value_at(x * step), value_at(x * step + 1)});
        }
    }
    return image;
}

}  // namespace mediagrabber
