// SPDX-License-Identifier: MIT
#include "stream/truth_log.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace camsim {

namespace {

using json = nlohmann::ordered_json;  // keeps the order in which keys are added

constexpr std::array<std::string_view, 3> outcome_names{"sent", "dropped", "aborted"};
constexpr std::array<std::string_view, 2> scene_names{"chart", "dim"};

/// The enumerator whose value is the index of `name` in `names`.
template <typename enumeration_type, std::size_t Count>
enumeration_type named(std::array<std::string_view, Count> const& names, std::string const& name, char const* what) {
    auto const* const found = std::ranges::find(names, name);
    if (found == names.end()) {
        throw std::invalid_argument("\"" + name + "\" is not a valid " + what);
    }
    return static_cast<enumeration_type>(found - names.begin());
}

truth_header header_from(json const& line) {
    json const& scene = line.at("scene");
    truth_header header;
    header.power_up_ns = line.at("power_up_ns");
    header.model = line.at("model");
    header.serial = line.at("serial");
    header.tick_frequency = line.at("tick_frequency");
    header.clock_drift_ppm = line.at("clock_drift_ppm");
    header.scene.seed = scene.at("seed");
    header.scene.sensor_width = scene.at("sensor_width");
    header.scene.sensor_height = scene.at("sensor_height");
    header.scene.black_level = scene.at("black_level");
    header.scene.noise = scene.at("noise");
    header.scene.illumination = scene.at("illumination");
    header.scene.kind = named<scene_kind>(scene_names, scene.at("kind"), "scene");
    if (scene.contains("images")) {
        header.scene.images = image_set::read(scene.at("images").get<std::string>());
    }
    return header;
}

chunk_set chunks_from(json const& names) {
    chunk_set chunks;
    for (std::string const name : names) {
        auto const* const known = std::ranges::find(chunk_kinds, name, &chunk_kind::name);
        if (known == chunk_kinds.end()) {
            throw std::invalid_argument("\"" + name + "\" is not a chunk");
        }
        chunks.set(static_cast<std::size_t>(known->which));
    }
    return chunks;
}

json names_of(chunk_set const& chunks) {
    json names = json::array();
    for (chunk_kind const& kind : chunk_kinds) {
        if (chunks.test(static_cast<std::size_t>(kind.which))) {
            names.push_back(kind.name);
        }
    }
    return names;
}

json to_json_array(lut_tables const& lut) {
    json channels = json::array();
    for (lut_table const& table : lut.channels) {
        channels.push_back(table);
    }
    return channels;
}

shared_lut lut_from(std::uint64_t number, json const& channels) {
    lut_tables lut{number, {}};
    for (std::size_t channel = 0; channel < lut.channels.size(); ++channel) {
        channels.at(channel).get_to(lut.channels[channel]);
    }
    return std::make_shared<lut_tables const>(lut);
}

/// \param known the LUT of the lines before; becomes the one of this line if it has one
tone tone_from(json const& line, shared_lut& known) {
    if (line.contains("gamma")) {
        return {.gamma = line.at("gamma").get<double>()};
    }
    if (!line.contains("lut")) {
        return {};
    }
    std::uint64_t const number = line.at("lut");
    if (line.contains("lut_tables")) {
        known = lut_from(number, line.at("lut_tables"));
    }
    if (!known || known->number != number) {
        throw std::invalid_argument("the entries of LUT " + std::to_string(number) + " are missing before this line");
    }
    return {.lut = known};
}

std::optional<std::int64_t> optional_number(json const& line, char const* name) {
    return line.contains(name) ? std::optional(line.at(name).get<std::int64_t>()) : std::nullopt;
}

frame_times times_from(json const& line) {
    return {line.at("exposure_start_ns"),         line.at("exposure_end_ns"), optional_number(line, "send_start_ns"),
            optional_number(line, "send_end_ns"), line.at("delay_ns"),        line.at("utc_offset_ns")};
}

/// Frames that were not sent have no send times.
void add_times(json& line, frame_times const& times) {
    line["exposure_start_ns"] = times.exposure_start_ns;
    line["exposure_end_ns"] = times.exposure_end_ns;
    if (times.send_start_ns && times.send_end_ns) {
        line["send_start_ns"] = *times.send_start_ns;
        line["send_end_ns"] = *times.send_end_ns;
    }
    line["delay_ns"] = times.delay_ns;
    line["utc_offset_ns"] = times.utc_offset_ns;
}

truth_frame frame_from(json const& line, shared_lut& lut) {
    truth_frame frame;
    frame.outcome = named<frame_outcome>(outcome_names, line.at("outcome"), "outcome of a frame");
    frame.block_id = line.at("block_id");
    frame.ticks = line.at("ticks");
    frame.exposure_start_us = line.at("exposure_start_us");
    frame.times = times_from(line);
    frame.unsent_packets = line.at("unsent_packets");
    frame.settings.frame_number = line.at("frame");
    frame.settings.exposure_us = line.at("exposure_us");
    frame.settings.gain = line.at("gain");
    frame.settings.area = {line.at("width"), line.at("height"), line.at("offset_x"), line.at("offset_y")};
    std::string const format = line.at("pixel_format");
    auto const known = pixel_format_named(format);
    if (!known) {
        throw std::invalid_argument("\"" + format + "\" is not a pixel format");
    }
    frame.settings.format = *known;
    if (line.contains("chunks")) {
        frame.chunks = chunks_from(line.at("chunks"));
    }
    if (line.contains("power_cycle")) {
        frame.power_cycle = line.at("power_cycle");
    }
    if (line.contains("faults")) {
        frame.faults = line.at("faults");
    }
    frame.settings.applied_tone = tone_from(line, lut);
    return frame;
}

}  // namespace

std::string to_json(truth_header const& header) {
    scene_settings const& scene = header.scene;
    json line{{"model", header.model},
              {"serial", header.serial},
              {"tick_frequency", header.tick_frequency},
              {"clock_drift_ppm", header.clock_drift_ppm},
              {"power_up_ns", header.power_up_ns},
              {"scene",
               {{"seed", scene.seed},
                {"sensor_width", scene.sensor_width},
                {"sensor_height", scene.sensor_height},
                {"black_level", scene.black_level},
                {"noise", scene.noise},
                {"illumination", scene.illumination},
                {"kind", scene_names[static_cast<std::size_t>(scene.kind)]}}}};
    if (scene.images != nullptr) {
        line["scene"]["images"] = scene.images->directory().string();
    }
    return line.dump();
}

std::string to_json(truth_frame const& frame, shared_lut const& written_lut) {
    frame_settings const& settings = frame.settings;
    json line{{"outcome", outcome_names[static_cast<std::size_t>(frame.outcome)]},
              {"block_id", frame.block_id},
              {"frame", settings.frame_number},
              {"ticks", frame.ticks},
              {"exposure_start_us", frame.exposure_start_us},
              {"exposure_us", settings.exposure_us},
              {"gain", settings.gain},
              {"width", settings.area.width},
              {"height", settings.area.height},
              {"offset_x", settings.area.offset_x},
              {"offset_y", settings.area.offset_y},
              {"pixel_format", name_of(settings.format).value_or("")},
              {"payload_bytes", frame_bytes(settings.area, settings.format) + chunk_bytes(frame.chunks)},
              {"unsent_packets", frame.unsent_packets}};
    add_times(line, frame.times);
    if (frame.chunks.any()) {
        line["chunks"] = names_of(frame.chunks);
    }
    if (frame.power_cycle != 1) {
        line["power_cycle"] = frame.power_cycle;
    }
    if (!frame.faults.empty()) {
        line["faults"] = frame.faults;
    }
    if (settings.applied_tone.gamma) {
        line["gamma"] = *settings.applied_tone.gamma;
    }
    if (shared_lut const& lut = settings.applied_tone.lut) {
        line["lut"] = lut->number;
        if (lut != written_lut) {
            line["lut_tables"] = to_json_array(*lut);
        }
    }
    return line.dump();
}

truth_writer::truth_writer(std::string path, truth_header const& header) : path_(std::move(path)), file_(path_) {
    file_ << to_json(header) << std::endl;
    if (!file_) {
        throw std::runtime_error("cannot write the truth file " + path_ + ": " + std::strerror(errno));
    }
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

void truth_writer::add(truth_frame const& frame) {
    std::lock_guard const lock(mutex_);
    queue_.push_back(frame);
    changed_.notify_all();
}

void truth_writer::finish() {
    thread_ = {};
}

bool truth_writer::failed() const {
    std::lock_guard const lock(mutex_);
    return failed_;
}

/// Writes queued frames until stopped, then the remaining ones.
void truth_writer::run(std::stop_token const& stop) {
    std::vector<truth_frame> frames;
    bool more = true;
    while (more) {
        frames.clear();
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, stop, [this] { return !queue_.empty(); });
            std::swap(frames, queue_);
        }
        more = !frames.empty() || !stop.stop_requested();
        write(frames);
    }
}

void truth_writer::write(std::vector<truth_frame> const& frames) {
    for (truth_frame const& frame : frames) {
        write(frame);
    }
    if (file_.flush().fail() && !failed()) {
        std::fprintf(stderr, "camsim: cannot write the truth file %s: %s\n", path_.c_str(), std::strerror(errno));
        std::lock_guard const lock(mutex_);
        failed_ = true;
    }
}

void truth_writer::write(truth_frame const& frame) {
    file_ << to_json(frame, written_lut_) << '\n';
    if (frame.settings.applied_tone.lut) {
        written_lut_ = frame.settings.applied_tone.lut;
    }
}

truth_reader::truth_reader(std::istream& in) : in_(in) {
    std::string line;
    std::getline(in_, line);
    try {
        header_ = header_from(json::parse(line));
    } catch (std::exception const& error) {
        throw std::runtime_error(std::string("line 1 is not a valid truth file header: ") + error.what());
    }
}

std::optional<truth_frame> truth_reader::next() {
    std::string line;
    if (!std::getline(in_, line) || in_.eof()) {
        return std::nullopt;
    }
    ++line_number_;
    try {
        return frame_from(json::parse(line), lut_);
    } catch (std::exception const& error) {
        throw std::runtime_error("line " + std::to_string(line_number_) +
                                 " of the truth file is not a valid frame: " + error.what());
    }
}

}  // namespace camsim
