// SPDX-License-Identifier: MIT
/// \file
/// verify_recording: compares a recording of mediagrabber with the truth file of camsim, bit for bit.
///
/// The frame index and the truth file list frames in the order of their exposures; they are matched by the camera's
/// timestamp. Each frame that the camera sent between the first and the last recorded one must be in the recording. A
/// frame whose pixels a fault has corrupted must be there, but may differ. If the recording has another format than the
/// camera, the camera's frames are converted before the comparison; with --rotated-180, they are rotated, too.

#include <tiffio.h>

#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "image.hpp"
#include "image/frame_renderer.hpp"
#include "stream/truth_log.hpp"

namespace {

namespace fs = std::filesystem;

/// Opens TIFF files. The last one stays open, because pages are read in order.
class tiff_reader {
public:
    TIFF* page(fs::path const& file, std::uint32_t number) {
        if (tiff_ == nullptr || file != opened_) {
            tiff_.reset(TIFFOpen(file.c_str(), "r"));
            opened_ = file;
        }
        if (tiff_ == nullptr) {
            throw std::runtime_error("cannot be read as TIFF");
        }
        std::uint32_t const here = TIFFCurrentDirectory(tiff_.get());
        bool const there = number == here || (number == here + 1 ? TIFFReadDirectory(tiff_.get()) == 1
                                                                 : TIFFSetDirectory(tiff_.get(), number) == 1);
        if (!there) {
            throw std::runtime_error("has no page " + std::to_string(number));
        }
        return tiff_.get();
    }

private:
    struct closer {
        void operator()(TIFF* tiff) const { TIFFClose(tiff); }
    };
    std::unique_ptr<TIFF, closer> tiff_;
    fs::path opened_;
};

image read_tiff(TIFF* tiff) {
    image read;
    std::uint16_t bits = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &read.width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &read.height);
    TIFFGetField(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    if (bits != 8 && bits != 16) {
        throw std::runtime_error("has " + std::to_string(bits) + " bits per pixel");
    }
    std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize(tiff)));
    read.values.reserve(std::size_t{read.width} * read.height);
    for (std::uint32_t y = 0; y < read.height; ++y) {
        if (TIFFReadScanline(tiff, line.data(), y) != 1) {
            throw std::runtime_error("the file ends in line " + std::to_string(y));
        }
        for (std::uint32_t x = 0; x < read.width; ++x) {
            read.values.push_back(bits == 8 ? line[x] : static_cast<std::uint16_t>(line[2 * x] | line[2 * x + 1] << 8));
        }
    }
    return read;
}

/// Pixel `x` of a line in the camera's format.
std::uint16_t sent_value(std::byte const* line, std::uint32_t x, camsim::pixel_format format) {
    auto const byte_at = [line](std::size_t i) { return std::to_integer<unsigned>(line[i]); };
    unsigned value = 0;
    switch (format) {
        case camsim::pixel_format::mono12_packed: {
            std::size_t const pair = std::size_t{x} / 2 * 3;
            value = x % 2 == 0 ? byte_at(pair) << 4U | (byte_at(pair + 1) & 0xFU)
                               : byte_at(pair + 2) << 4U | byte_at(pair + 1) >> 4U;
            break;
        }
        case camsim::pixel_format::mono12:
            value = byte_at(2 * std::size_t{x}) | byte_at(2 * std::size_t{x} + 1) << 8U;
            break;
        case camsim::pixel_format::mono8:
        case camsim::pixel_format::bayer_rg8:
            value = byte_at(x);
            break;
    }
    return static_cast<std::uint16_t>(value);
}

/// Reads a frame that was saved in the camera's format.
/// \param read width and height of the frame
image read_raw(fs::path const& file, std::uint64_t offset, std::uint64_t bytes, image read,
               camsim::pixel_format format) {
    std::vector<std::byte> pixels(bytes);
    std::ifstream in(file, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    in.read(reinterpret_cast<char*>(pixels.data()), static_cast<std::streamsize>(bytes));
    if (!in) {
        throw std::runtime_error("the file ends within the frame");
    }
    std::size_t const stride = camsim::line_bytes(read.width, format);
    if (stride * read.height != bytes) {
        throw std::runtime_error("has " + std::to_string(bytes) + " bytes for the frame");
    }
    for (std::uint32_t y = 0; y < read.height; ++y) {
        for (std::uint32_t x = 0; x < read.width; ++x) {
            read.values.push_back(sent_value(pixels.data() + y * stride, x, format));
        }
    }
    return read;
}

/// Renders the frames that the camera has sent.
class sent_frames {
public:
    explicit sent_frames(camsim::scene_settings const& scene) : renderer_(scene) {}

    image render(camsim::frame_settings const& settings) {
        bytes_.resize(camsim::frame_bytes(settings.area, settings.format));
        renderer_.prepare(settings);
        renderer_.render_lines(0, settings.area.height, bytes_);
        image sent{.width = settings.area.width, .height = settings.area.height, .values = {}};
        std::size_t const stride = camsim::line_bytes(settings.area.width, settings.format);
        sent.values.reserve(std::size_t{sent.width} * sent.height);
        for (std::uint32_t y = 0; y < sent.height; ++y) {
            for (std::uint32_t x = 0; x < sent.width; ++x) {
                sent.values.push_back(sent_value(bytes_.data() + y * stride, x, settings.format));
            }
        }
        return sent;
    }

private:
    camsim::frame_renderer renderer_;
    std::vector<std::byte> bytes_;
};

sample_format samples_of(camsim::pixel_format format) {
    unsigned bits = 0;
    switch (format) {
        case camsim::pixel_format::mono12:
        case camsim::pixel_format::mono12_packed:
            bits = 12;
            break;
        case camsim::pixel_format::mono8:
        case camsim::pixel_format::bayer_rg8:
            bits = 8;
            break;
    }
    return {.bits = bits, .filters = camsim::cfa_of(format)};
}

camsim::pixel_format format_called(std::string const& name) {
    auto const format = camsim::pixel_format_named(name);
    if (!format) {
        throw std::runtime_error("\"" + name + "\" is not a known pixel format");
    }
    return *format;
}

struct recorded_frame {
    std::string file;
    std::uint32_t page = 0;
    std::optional<std::uint64_t> offset;  ///< in a raw file
    std::uint64_t bytes = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    camsim::pixel_format format = camsim::pixel_format::mono8;  ///< in a raw file
    sample_format samples;
    std::uint64_t number = 0;
    std::optional<std::uint64_t> ticks;
};

std::vector<recorded_frame> read_frame_index(fs::path const& directory) {
    std::ifstream in(directory / "frames.jsonl");
    if (!in) {
        throw std::runtime_error(directory.string() + " has no frame index (frames.jsonl)");
    }
    std::vector<recorded_frame> frames;
    for (std::string text; std::getline(in, text);) {
        auto const line = nlohmann::json::parse(text);
        if (line.at("file").is_null()) {
            throw std::runtime_error(
                "the recording has no frames to compare: it was made with output.format = \"none\"");
        }
        recorded_frame frame;
        frame.file = line.at("file");
        frame.number = line.at("frame");
        frame.page = line.value("page", 0U);
        if (line.contains("offset")) {
            frame.offset = line.at("offset").get<std::uint64_t>();
            frame.bytes = line.at("bytes");
        }
        frame.width = line.at("width");
        frame.height = line.at("height");
        frame.format = format_called(line.at("pixel_format"));
        frame.samples = {.bits = line.at("significant_bits"), .filters = camsim::cfa_of(frame.format)};
        if (!line.at("ticks").is_null()) {
            frame.ticks = line.at("ticks").get<std::uint64_t>();
        }
        frames.push_back(std::move(frame));
    }
    return frames;
}

image read_frame(fs::path const& directory, recorded_frame const& frame, tiff_reader& reader) {
    fs::path const file = directory / frame.file;
    if (!frame.offset) {
        return read_tiff(reader.page(file, frame.page));
    }
    image const size{.width = frame.width, .height = frame.height, .values = {}};
    return read_raw(file, *frame.offset, frame.bytes, size, frame.format);
}

/// The result of the comparison.
struct comparison {
    std::uint64_t identical = 0;
    std::uint64_t corrupted = 0;  ///< different pixels, and a fault is known to have corrupted the frame
    std::uint64_t different = 0;  ///< different pixels, or no matching frame in the truth file
    std::uint64_t missing = 0;    ///< sent between the first and the last recorded frame, but not recorded
    std::uint64_t stray = 0;      ///< files in the directory that are not in the frame index
    std::uint64_t dropped = 0;    ///< dropped by the camera between the first and the last recorded frame

    bool good() const { return identical + corrupted > 0 && different == 0 && missing == 0 && stray == 0; }
};

/// The frames of the truth file in the order of their exposures. Timestamps may repeat after a power cycle or with a
/// fault of the clock.
using sent_in_order = std::vector<camsim::truth_frame>;

/// For each recorded frame, the index of the matching frame in the truth file. Indexes increase.
using matches = std::vector<std::optional<std::size_t>>;

matches match(std::vector<recorded_frame> const& recorded, sent_in_order const& sent) {
    matches found;
    std::size_t next = 0;
    for (auto const& frame : recorded) {
        auto const begin = sent.begin() + static_cast<std::ptrdiff_t>(next);
        auto const at = frame.ticks ? std::find_if(begin, sent.end(),
                                                   [&](auto const& one) {
                                                       return one.outcome != camsim::frame_outcome::dropped &&
                                                              one.ticks == *frame.ticks;
                                                   })
                                    : sent.end();
        if (at == sent.end()) {
            found.emplace_back();
            continue;
        }
        found.emplace_back(static_cast<std::size_t>(at - sent.begin()));
        next = *found.back() + 1;
    }
    return found;
}

/// The expected contents of a recorded frame.
image expected_image(camsim::frame_settings const& settings, sample_format recorded, bool is_rotated,
                     sent_frames& renderer) {
    sample_format const sent = samples_of(settings.format);
    image const original = renderer.render(settings);
    return converted(is_rotated ? rotated_180(original, sent.filters) : original, sent, recorded);
}

bool was_corrupted(camsim::truth_frame const& frame) {
    return frame.faults.contains("payload_corruption");
}

void compare(fs::path const& directory, std::vector<recorded_frame> const& recorded, matches const& found,
             sent_in_order const& sent, bool is_rotated, sent_frames& renderer, comparison& result) {
    tiff_reader reader;
    for (std::size_t index = 0; index < recorded.size(); ++index) {
        auto const& frame = recorded[index];
        auto const report = [&](std::string const& what) {
            std::cerr << frame.file << ": " << what << '\n';
            ++result.different;
        };
        if (!found[index]) {
            report("the truth file has no frame with this timestamp after the previous match");
            continue;
        }
        auto const& original = sent[*found[index]];
        try {
            if (read_frame(directory, frame, reader) ==
                expected_image(original.settings, frame.samples, is_rotated, renderer)) {
                ++result.identical;
            } else if (was_corrupted(original)) {
                ++result.corrupted;
            } else {
                report("differs from the camera's block " + std::to_string(original.block_id));
            }
        } catch (std::runtime_error const& error) {
            report(error.what());
        }
    }
}

void find_gaps(matches const& found, sent_in_order const& sent, comparison& result) {
    std::vector<std::size_t> places;
    for (auto const& place : found) {
        if (place) {
            places.push_back(*place);
        }
    }
    for (std::size_t at = places.empty() ? 0 : places.front(); !places.empty() && at <= places.back(); ++at) {
        if (sent[at].outcome == camsim::frame_outcome::dropped) {
            ++result.dropped;
        } else if (sent[at].outcome == camsim::frame_outcome::sent &&
                   !std::binary_search(places.begin(), places.end(), at)) {
            std::cerr << "missing: block " << sent[at].block_id << ", ticks " << sent[at].ticks << '\n';
            ++result.missing;
        }
    }
}

void find_stray_files(fs::path const& directory, std::vector<recorded_frame> const& recorded, comparison& result) {
    for (auto const& entry : fs::directory_iterator(directory)) {
        std::string const name = entry.path().filename().string();
        bool const known =
            name == "frames.jsonl" || name == "segment.json" ||
            std::any_of(recorded.begin(), recorded.end(), [&](auto const& frame) { return frame.file == name; });
        if (!known) {
            std::cerr << "stray file: " << name << '\n';
            ++result.stray;
        }
    }
}

comparison verify(fs::path const& directory, fs::path const& truth_file, bool is_rotated) {
    std::ifstream truth(truth_file);
    if (!truth) {
        throw std::runtime_error(truth_file.string() + " cannot be read");
    }
    camsim::truth_reader reader(truth);
    sent_in_order sent;
    while (auto const frame = reader.next()) {
        sent.push_back(*frame);
    }
    auto const recorded = read_frame_index(directory);
    auto const found = match(recorded, sent);
    sent_frames renderer(reader.header().scene);
    comparison result;
    compare(directory, recorded, found, sent, is_rotated, renderer, result);
    find_gaps(found, sent, result);
    find_stray_files(directory, recorded, result);
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    fs::path directory;
    fs::path truth_file;
    CLI::App app("verify_recording: compares a recording with the truth file of camsim, bit for bit.",
                 "verify_recording");
    app.add_option("recording", directory, "Directory with frames.jsonl")->required();
    app.add_option("truth", truth_file, "Truth file of camsim")->required();
    bool is_rotated = false;
    app.add_flag("--rotated-180", is_rotated, "Frames were rotated by 180 degrees");
    CLI11_PARSE(app, argc, argv);
    try {
        comparison const result = verify(directory, truth_file, is_rotated);
        std::cout << result.identical << " frames identical, " << result.different << " different, " << result.missing
                  << " missing, " << result.stray << " stray files; " << result.dropped << " dropped by the camera, "
                  << result.corrupted << " corrupted by faults\n";
        return result.good() ? 0 : 1;
    } catch (std::exception const& error) {
        std::cerr << "verify_recording: " << error.what() << '\n';
        return 1;
    }
}
