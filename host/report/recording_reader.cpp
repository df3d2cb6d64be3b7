#include "report/recording_reader.hpp"

#include <tiffio.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace mediagrabber {

namespace {

namespace fs = std::filesystem;

template <typename value>
std::optional<value> value_or_nothing(nlohmann::json const& line, char const* key) {
    auto const found = line.find(key);
    return found == line.end() || found->is_null() ? std::nullopt : std::optional(found->get<value>());
}

journal_entry entry_of(nlohmann::json const& line) {
    journal_entry made;
    made.file = value_or_nothing<std::string>(line, "file");
    made.number = line.at("frame");
    made.timestamp_us = line.at("timestamp_us");
    made.gain_db = value_or_nothing<double>(line, "gain_db");
    made.exposure_us = value_or_nothing<double>(line, "exposure_us");
    made.temperature_c = value_or_nothing<double>(line, "temperature_c");
    made.counter = value_or_nothing<std::uint32_t>(line, "counter");
    made.width = line.at("width");
    made.height = line.at("height");
    made.format = pixel_format_of_codec(line.at("format").get<std::string>());
    if (made.format == nullptr) {
        throw std::runtime_error("the pixel format " + line.at("format").dump() + " is not known");
    }
    // What a journal names lies beside it.
    if (made.file && fs::path(*made.file).filename() != *made.file) {
        throw std::runtime_error("the file name " + line.at("file").dump() + " leads out of the recording");
    }
    return made;
}

/// A page of a file that is read line by line.
class tiff_page {
public:
    explicit tiff_page(fs::path const& file) : tiff_(TIFFOpen(file.c_str(), "r"), TIFFClose) {
        if (tiff_ == nullptr) {
            throw std::runtime_error(file.string() + " can't be read as TIFF");
        }
        TIFFGetField(tiff_.get(), TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tiff_.get(), TIFFTAG_IMAGELENGTH, &height);
        TIFFGetFieldDefaulted(tiff_.get(), TIFFTAG_BITSPERSAMPLE, &bits_);
        TIFFGetFieldDefaulted(tiff_.get(), TIFFTAG_SAMPLESPERPIXEL, &samples_);
        auto const bytes = static_cast<std::size_t>(std::max<tmsize_t>(TIFFScanlineSize(tiff_.get()), 0));
        if (samples_ != 1 || (bits_ != 8 && bits_ != 16) || bytes < std::size_t{width} * bits_ / 8) {
            throw std::runtime_error(file.string() + " is no frame: it has " + std::to_string(samples_) +
                                     " samples of " + std::to_string(bits_) + " bits a pixel");
        }
        line_.resize(bytes);
    }

    /// Lines are gone to downwards: those between have to be read where they are compressed.
    void go_to(std::uint32_t y) {
        while (next_ <= y) {
            if (TIFFReadScanline(tiff_.get(), line_.data(), next_++) != 1) {
                throw std::runtime_error("the file ends in line " + std::to_string(next_ - 1));
            }
        }
    }
    /// \param shift bits to leave out of a value
    std::uint8_t at(std::uint32_t x, unsigned shift) const {
        unsigned const value = bits_ == 8 ? line_[x] : line_[2 * x] | unsigned{line_[2 * x + 1]} << 8U;
        return static_cast<std::uint8_t>(std::min(value >> shift, 255U));
    }

    std::uint32_t width = 0;
    std::uint32_t height = 0;

private:
    std::unique_ptr<TIFF, void (*)(TIFF*)> tiff_;
    std::uint16_t bits_ = 0;
    std::uint16_t samples_ = 0;
    std::vector<std::uint8_t> line_;
    std::uint32_t next_ = 0;
};

}  // namespace

std::vector<journal_entry> read_journal(fs::path const& directory) {
    fs::path const file = directory / "frames.jsonl";
    std::ifstream in(file);
    if (!in) {
        throw std::runtime_error(directory.string() + " holds no recording: there is no frames.jsonl that can be read");
    }
    std::vector<journal_entry> entries;
    for (std::string line; std::getline(in, line);) {
        if (in.eof()) {
            break;  // without an end
        }
        try {
            entries.push_back(entry_of(nlohmann::json::parse(line)));
        } catch (std::exception const& error) {
            throw std::runtime_error(file.string() + ":" + std::to_string(entries.size() + 1) + ": " + error.what());
        }
    }
    return entries;
}

small_picture read_thumbnail(fs::path const& file, pixel_format const& format, std::uint32_t widest) {
    tiff_page page(file);
    unsigned const shift = format.significant_bits - 8;
    std::uint32_t const cell = format.bayer ? 2 : 1;
    std::uint32_t const step = std::max(1U, (page.width / cell + widest - 1) / widest) * cell;
    small_picture made{
        .width = page.width / step, .height = page.height / step, .channels = format.bayer ? 3U : 1U, .values = {}};
    made.values.reserve(std::size_t{made.width} * made.height * made.channels);
    std::vector<std::uint8_t> reds(made.width);
    for (std::uint32_t y = 0; y < made.height; ++y) {
        page.go_to(y * step);
        if (!format.bayer) {
            for (std::uint32_t x = 0; x < made.width; ++x) {
                made.values.push_back(page.at(x * step, shift));
            }
            continue;
        }
        for (std::uint32_t x = 0; x < made.width; ++x) {
            reds[x] = page.at(x * step, shift);
        }
        page.go_to(y * step + 1);
        for (std::uint32_t x = 0; x < made.width; ++x) {
            made.values.insert(made.values.end(), {reds[x], page.at(x * step, shift), page.at(x * step + 1, shift)});
        }
    }
    return made;
}

}  // namespace mediagrabber
