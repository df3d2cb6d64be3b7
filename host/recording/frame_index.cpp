// SPDX-License-Identifier: MIT
#include "recording/frame_index.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "base/system_call.hpp"

namespace mediagrabber {

namespace {

using json = nlohmann::ordered_json;

template <typename value>
json or_null(std::optional<value> const& published) {
    return published ? json(*published) : json(nullptr);
}

void put_if_known(json& line, char const* key, std::optional<std::uint64_t> value) {
    if (value) {
        line[key] = *value;
    }
}

}  // namespace

std::string index_line(frame_record const& record, frame_place const& place) {
    json line;
    line["file"] = or_null(place.file);
    put_if_known(line, "page", place.page);
    put_if_known(line, "offset", place.offset);
    put_if_known(line, "bytes", place.bytes);
    line["frame"] = record.number;
    line["timestamp_us"] = record.timestamp_us;
    line["handed_over_us"] = record.handed_over_us;
    line["announced_us"] = or_null(record.announced_us);
    line["ticks"] = or_null(record.ticks);
    auto const& exposed = record.exposed;
    line["time_us"] = exposed ? json(exposed->time_us) : json(nullptr);
    line["time_uncertainty_us"] = exposed ? json(static_cast<std::uint64_t>(exposed->uncertainty_us)) : json(nullptr);
    line["time_source"] = exposed ? json(name_of(exposed->source)) : json(nullptr);
    line["clock_drift_ppm"] = exposed ? or_null(exposed->clock_drift_ppm) : json(nullptr);
    line["gain_db"] = or_null(record.gain_db);
    line["exposure_us"] = or_null(record.exposure_us);
    line["counter"] = or_null(record.counter);
    line["width"] = record.width;
    line["height"] = record.height;
    line["stride"] = record.stride;
    line["pixel_format"] = record.format->name;
    line["significant_bits"] = record.format->significant_bits;
    line["temperature_c"] = or_null(record.temperature_c);
    return line.dump() + "\n";
}

frame_index::frame_index(int directory) : directory_(directory) {
    file_ = uninterrupted([&] { return openat(directory, file_name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); });
    if (file_ < 0) {
        throw std::system_error(errno, std::generic_category(), file_name);
    }
    flock(file_, LOCK_EX | LOCK_NB);  // see is_finished_recording()
}

frame_index::~frame_index() {
    if (size_ == 0) {
        unlinkat(directory_, file_name, 0);
    }
    close(file_);
}

/// Usually a single pwrite(). After a part of the line, the next call returns the reason. Removes such a part.
void frame_index::append(std::string const& line) {
    std::size_t done = 0;
    while (done < line.size()) {
        ssize_t const written = uninterrupted(
            [&] { return pwrite(file_, line.data() + done, line.size() - done, size_ + static_cast<off_t>(done)); });
        if (written <= 0) {
            int const error = written < 0 ? errno : EIO;
            bool const removed = uninterrupted([&] { return ftruncate(file_, size_); }) == 0;
            throw std::system_error(error, std::generic_category(),
                                    removed ? file_name : "frames.jsonl ends in an incomplete line");
        }
        done += static_cast<std::size_t>(written);
    }
    size_ += static_cast<off_t>(line.size());
}

}  // namespace mediagrabber
