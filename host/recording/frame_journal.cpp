#include "recording/frame_journal.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

namespace mediagrabber {

namespace {

template <typename value>
nlohmann::ordered_json or_null(std::optional<value> const& published) {
    return published ? nlohmann::ordered_json(*published) : nlohmann::ordered_json(nullptr);
}

void put_if_known(nlohmann::ordered_json& line, char const* key, std::optional<std::uint64_t> value) {
    if (value) {
        line[key] = *value;
    }
}

}  // namespace

std::string journal_line(frame_record const& record, frame_place const& place) {
    nlohmann::ordered_json line;
    line["file"] = or_null(place.file);
    put_if_known(line, "page", place.page);
    put_if_known(line, "offset", place.offset);
    put_if_known(line, "bytes", place.bytes);
    line["frame"] = record.number;
    line["timestamp_us"] = record.timestamp_us;
    line["handed_over_us"] = record.handed_over_us;
    line["announced_us"] = or_null(record.announced_us);
    line["ticks"] = or_null(record.ticks);
    line["gain_db"] = or_null(record.gain_db);
    line["exposure_us"] = or_null(record.exposure_us);
    line["counter"] = or_null(record.counter);
    line["width"] = record.width;
    line["height"] = record.height;
    line["stride"] = record.stride;
    line["format"] = record.format->codec;
    line["significant_bits"] = record.format->significant_bits;
    line["temperature_c"] = or_null(record.temperature_c);
    return line.dump() + "\n";
}

frame_journal::frame_journal(int directory) {
    file_ = openat(directory, file_name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file_ < 0) {
        throw std::system_error(errno, std::generic_category(), file_name);
    }
}

frame_journal::~frame_journal() {
    close(file_);
}

/// What a full disk has left of a line is taken back.
void frame_journal::append(std::string const& line) {
    ssize_t const written = pwrite(file_, line.data(), line.size(), size_);
    if (written == static_cast<ssize_t>(line.size())) {
        size_ += written;
        return;
    }
    int const error = written < 0 ? errno : ENOSPC;
    if (ftruncate(file_, size_) != 0) {
        throw std::system_error(errno, std::generic_category(), "frames.jsonl ends in a torn line");
    }
    throw std::system_error(error, std::generic_category(), file_name);
}

}  // namespace mediagrabber
