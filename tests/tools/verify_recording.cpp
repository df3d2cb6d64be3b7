/// \file
/// verify_recording: compares a recording of mediagrabber with what camsim says that it sent, bit for bit.
///
/// Both tell their frames in the order in which they were taken; they are matched by the camera's timestamp. Every
/// frame that the camera sent between the first and the last one recorded has to be there, too. One whose pixels were
/// falsified on the way, as the camera tells, has to be there and may differ. A frame in another format than the
/// camera's is compared with the camera's converted; with
/// --turned, frames are compared with the camera's turned by 180 degrees.

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

#include "frame_renderer.hpp"
#include "picture.hpp"
#include "truth_log.hpp"

namespace {

namespace fs = std::filesystem;

/// Opens TIFF files; the one that was opened last stays open, and is read on where it was: pages come in their order.
class tiff_reader {
public:
    TIFF* page(fs::path const& file, std::uint32_t number) {
        if (tiff_ == nullptr || file != opened_) {
            tiff_.reset(TIFFOpen(file.c_str(), "r"));
            opened_ = file;
        }
        if (tiff_ == nullptr) {
            throw std::runtime_error("can't be read as TIFF");
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

picture read_tiff(TIFF* tiff) {
    picture read;
    std::uint16_t bits = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &read.width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &read.height);
    TIFFGetField(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    if (bits != 8 && bits != 16) {
        throw std::runtime_error("has " + std::to_string(bits) + " bits a pixel");
    }
    std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize(tiff)));
    read.values.reserve(std::size_t{read.width} * read.height);
    for (std::uint32_t y = 0; y < read.height; ++y) {
        if (TIFFReadScanline(tiff, line.data(), y) != 1) {
            throw std::runtime_error("ends in line " + std::to_string(y));
        }
        for (std::uint32_t x = 0; x < read.width; ++x) {
            read.values.push_back(bits == 8 ? line[x] : static_cast<std::uint16_t>(line[2 * x] | line[2 * x + 1] << 8));
        }
    }
    return read;
}

/// Pixel `x` of a line as the camera sends it.
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
        default:
            value = byte_at(x);
            break;
    }
    return static_cast<std::uint16_t>(value);
}

/// What the pixels of a frame are that was written as it lay in memory.
picture read_raw(fs::path const& file, std::uint64_t offset, std::uint64_t bytes, picture read,
                 camsim::pixel_format format) {
    std::vector<std::byte> pixels(bytes);
    std::ifstream in(file, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    in.read(reinterpret_cast<char*>(pixels.data()), static_cast<std::streamsize>(bytes));
    if (!in) {
        throw std::runtime_error("ends within the frame");
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

/// Renders frames again as the camera sent them.
class sent_frames {
public:
    explicit sent_frames(camsim::scene_settings const& scene) : renderer_(scene) {}

    picture render(camsim::frame_settings const& settings) {
        bytes_.resize(camsim::frame_bytes(settings.area, settings.format));
        renderer_.prepare(settings);
        renderer_.render_lines(0, settings.area.height, bytes_);
        picture sent{.width = settings.area.width, .height = settings.area.height, .values = {}};
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

pixel_meaning meaning_of(camsim::pixel_format format) {
    switch (format) {
        case camsim::pixel_format::mono12:
        case camsim::pixel_format::mono12_packed:
            return {.bits = 12, .bayer = false};
        case camsim::pixel_format::bayer_rg8:
            return {.bits = 8, .bayer = true};
        default:
            return {.bits = 8, .bayer = false};
    }
}

camsim::pixel_format format_called(std::string const& codec) {
    return codec == "MONO12PT"    ? camsim::pixel_format::mono12_packed
           : codec == "MONO12T"   ? camsim::pixel_format::mono12
           : codec == "BayerRG8T" ? camsim::pixel_format::bayer_rg8
                                  : camsim::pixel_format::mono8;
}

struct recorded_frame {
    std::string file;
    std::uint32_t page = 0;
    std::optional<std::uint64_t> offset;  ///< in a file of nothing but pixels
    std::uint64_t bytes = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    camsim::pixel_format format = camsim::pixel_format::mono8;  ///< in a file of nothing but pixels
    pixel_meaning meaning;
    std::uint64_t number = 0;
    std::optional<std::uint64_t> ticks;
};

std::vector<recorded_frame> read_journal(fs::path const& directory) {
    std::ifstream in(directory / "frames.jsonl");
    if (!in) {
        throw std::runtime_error(directory.string() + " holds no frames.jsonl");
    }
    std::vector<recorded_frame> frames;
    for (std::string text; std::getline(in, text);) {
        auto const line = nlohmann::json::parse(text);
        if (line.at("file").is_null()) {
            throw std::runtime_error(
                "the recording has no files to compare, it was made with output.format = \"none\"");
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
        frame.format = format_called(line.at("format"));
        frame.meaning = {.bits = line.at("significant_bits"), .bayer = line.at("format") == "BayerRG8T"};
        if (!line.at("ticks").is_null()) {
            frame.ticks = line.at("ticks").get<std::uint64_t>();
        }
        frames.push_back(std::move(frame));
    }
    return frames;
}

picture read_frame(fs::path const& directory, recorded_frame const& frame, tiff_reader& reader) {
    fs::path const file = directory / frame.file;
    if (!frame.offset) {
        return read_tiff(reader.page(file, frame.page));
    }
    picture const size{.width = frame.width, .height = frame.height, .values = {}};
    return read_raw(file, *frame.offset, frame.bytes, size, frame.format);
}

/// What came out of the comparison.
struct verdict {
    std::uint64_t identical = 0;
    std::uint64_t falsified = 0;  ///< other pixels, and known to have been falsified on the way
    std::uint64_t different = 0;  ///< other pixels, or no frame that the camera sent after the one before
    std::uint64_t missing = 0;    ///< sent between the first and the last one recorded, and not there
    std::uint64_t stray = 0;      ///< files in the directory that the journal does not know
    std::uint64_t skipped = 0;    ///< left out by the camera itself between the first and the last

    bool good() const { return identical + falsified > 0 && different == 0 && missing == 0 && stray == 0; }
};

/// In the order of their exposures. A camera may send a timestamp twice: after power was cut, or when its clock is
/// wrong.
using sent_in_order = std::vector<camsim::truth_frame>;

/// For each recorded frame the place of the frame that it was, among those that were sent after the one before.
using matches = std::vector<std::optional<std::size_t>>;

matches match(std::vector<recorded_frame> const& recorded, sent_in_order const& sent) {
    matches found;
    std::size_t next = 0;
    for (auto const& frame : recorded) {
        auto const begin = sent.begin() + static_cast<std::ptrdiff_t>(next);
        auto const at =
            frame.ticks ? std::find_if(begin, sent.end(),
                                       [&](auto const& one) {
                                           return one.fate != camsim::frame_fate::skipped && one.ticks == *frame.ticks;
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

/// What a recorded frame has to be.
picture expected_picture(camsim::frame_settings const& settings, pixel_meaning recorded, bool is_turned,
                         sent_frames& renderer) {
    pixel_meaning const sent = meaning_of(settings.format);
    picture const original = renderer.render(settings);
    return converted(is_turned ? turned(original, sent.bayer) : original, sent, recorded);
}

bool was_falsified(camsim::truth_frame const& frame) {
    return frame.faults.contains("payload_corruption");
}

void compare(fs::path const& directory, std::vector<recorded_frame> const& recorded, matches const& found,
             sent_in_order const& sent, bool is_turned, sent_frames& renderer, verdict& result) {
    tiff_reader reader;
    for (std::size_t index = 0; index < recorded.size(); ++index) {
        auto const& frame = recorded[index];
        auto const complain = [&](std::string const& what) {
            std::cerr << frame.file << ": " << what << '\n';
            ++result.different;
        };
        if (!found[index]) {
            complain("no frame that the camera sent after the one before has this timestamp");
            continue;
        }
        auto const& original = sent[*found[index]];
        try {
            if (read_frame(directory, frame, reader) ==
                expected_picture(original.settings, frame.meaning, is_turned, renderer)) {
                ++result.identical;
            } else if (was_falsified(original)) {
                ++result.falsified;
            } else {
                complain("differs from what the camera sent as block " + std::to_string(original.block_id));
            }
        } catch (std::runtime_error const& error) {
            complain(error.what());
        }
    }
}

void look_for_gaps(matches const& found, sent_in_order const& sent, verdict& result) {
    std::vector<std::size_t> places;
    for (auto const& place : found) {
        if (place) {
            places.push_back(*place);
        }
    }
    for (std::size_t at = places.empty() ? 0 : places.front(); !places.empty() && at <= places.back(); ++at) {
        if (sent[at].fate == camsim::frame_fate::skipped) {
            ++result.skipped;
        } else if (sent[at].fate == camsim::frame_fate::sent && !std::binary_search(places.begin(), places.end(), at)) {
            std::cerr << "missing: block " << sent[at].block_id << ", ticks " << sent[at].ticks << '\n';
            ++result.missing;
        }
    }
}

void look_for_strays(fs::path const& directory, std::vector<recorded_frame> const& recorded, verdict& result) {
    for (auto const& entry : fs::directory_iterator(directory)) {
        std::string const name = entry.path().filename().string();
        bool const known = name == "frames.jsonl" || std::any_of(recorded.begin(), recorded.end(),
                                                                 [&](auto const& frame) { return frame.file == name; });
        if (!known) {
            std::cerr << "stray file: " << name << '\n';
            ++result.stray;
        }
    }
}

verdict verify(fs::path const& directory, fs::path const& truth_file, bool is_turned) {
    std::ifstream truth(truth_file);
    if (!truth) {
        throw std::runtime_error(truth_file.string() + " can't be read");
    }
    camsim::truth_reader reader(truth);
    sent_in_order sent;
    while (auto const frame = reader.next()) {
        sent.push_back(*frame);
    }
    auto const recorded = read_journal(directory);
    auto const found = match(recorded, sent);
    sent_frames renderer(reader.header().scene);
    verdict result;
    compare(directory, recorded, found, sent, is_turned, renderer, result);
    look_for_gaps(found, sent, result);
    look_for_strays(directory, recorded, result);
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    fs::path directory;
    fs::path truth_file;
    CLI::App app("verify_recording: compares a recording with what camsim sent, bit for bit.", "verify_recording");
    app.add_option("recording", directory, "Directory with frames.jsonl")->required();
    app.add_option("truth", truth_file, "Truth file that camsim wrote")->required();
    bool is_turned = false;
    app.add_flag("--turned", is_turned, "Frames were turned by 180 degrees");
    CLI11_PARSE(app, argc, argv);
    try {
        verdict const result = verify(directory, truth_file, is_turned);
        std::cout << result.identical << " frames identical, " << result.different << " different, " << result.missing
                  << " missing, " << result.stray << " stray files; " << result.skipped << " left out by the camera, "
                  << result.falsified << " falsified on the way\n";
        return result.good() ? 0 : 1;
    } catch (std::exception const& error) {
        std::cerr << "verify_recording: " << error.what() << '\n';
        return 1;
    }
}
