// SPDX-License-Identifier: MIT
#include "cli/report_command.hpp"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "report/recording_facts.hpp"
#include "report/recording_reader.hpp"
#include "report/report_page.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_thumbnails = 12;
constexpr std::uint32_t thumbnail_width = 240;  ///< pixels

/// Thumbnails of saved frames, evenly distributed over the recording. Frames that cannot be read are left out.
std::vector<thumbnail> thumbnails_of(std::filesystem::path const& directory, std::vector<index_entry> const& frames,
                                     std::ostream& errors) {
    std::vector<index_entry const*> with_file;
    for (auto const& one : frames) {
        if (one.file) {
            with_file.push_back(&one);
        }
    }
    std::size_t const count = std::min(max_thumbnails, with_file.size());
    std::vector<thumbnail> made;
    for (std::size_t i = 0; i < count; ++i) {
        auto const& frame = *with_file[count == 1 ? 0 : i * (with_file.size() - 1) / (count - 1)];
        double const at_us = static_cast<double>(frame.timestamp_us) - static_cast<double>(frames.front().timestamp_us);
        thumbnail one{.at_s = at_us / 1e6, .frame = frame.number, .image = {}, .error = {}};
        try {
            one.image = read_thumbnail(directory, frame, thumbnail_width);
        } catch (std::exception const& error) {
            one.error = error.what();
            errors << "mediagrabber: no thumbnail of frame " << frame.number << ": " << error.what() << '\n';
        }
        made.push_back(std::move(one));
    }
    return made;
}

void print_json(std::ostream& out, std::filesystem::path const& directory, std::filesystem::path const& page,
                recording_facts const& facts) {
    using json = nlohmann::ordered_json;
    auto losses = json::array();
    for (auto const& one : facts.losses) {
        losses.push_back({{"at_s", one.at_s}, {"lost_in_host", one.in_host}, {"lost_before_host", one.before_host}});
    }
    json const found{{"directory", directory.string()},
                     {"page", page.string()},
                     {"frames", facts.frames},
                     {"duration_s", facts.duration_s},
                     {"frames_per_s", facts.frames_per_s},
                     {"interval_us",
                      {{"min", facts.interval.min_us},
                       {"median", facts.interval.median_us},
                       {"p99", facts.interval.p99_us},
                       {"max", facts.interval.max_us}}},
                     {"lost_in_host", facts.lost_in_host},
                     {"lost_before_host", facts.lost_before_host},
                     {"losses", std::move(losses)},
                     {"counter_resets_s", facts.restarts_s}};
    out << found.dump(2, ' ', false, json::error_handler_t::replace) << '\n';
}

}  // namespace

exit_status report_command(std::filesystem::path const& directory, std::filesystem::path page, bool json,
                           std::ostream& out, std::ostream& errors) {
    auto const frames = read_index(directory);
    std::string const name = std::filesystem::absolute(directory).lexically_normal().filename().string();
    auto const facts = facts_of(frames);
    auto const text = report_page("Recording " + name, facts, frames, thumbnails_of(directory, frames, errors));
    if (page.empty()) {
        page = directory / "report.html";
    }
    std::ofstream file(page);
    file << text;
    file.close();
    if (!file) {
        throw std::system_error(errno, std::generic_category(), page.string() + " cannot be written");
    }
    if (json) {
        print_json(out, directory, page, facts);
    } else {
        out << page.string() << '\n';
    }
    return exit_status::success;
}

}  // namespace mediagrabber
