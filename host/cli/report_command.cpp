// SPDX-License-Identifier: MIT
#include "cli/report_command.hpp"

#include <algorithm>
#include <cerrno>
#include <fstream>
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

}  // namespace

exit_status report_command(std::filesystem::path const& directory, std::filesystem::path page, std::ostream& out,
                           std::ostream& errors) {
    auto const frames = read_index(directory);
    std::string const name = std::filesystem::absolute(directory).lexically_normal().filename().string();
    auto const text =
        report_page("Recording " + name, facts_of(frames), frames, thumbnails_of(directory, frames, errors));
    if (page.empty()) {
        page = directory / "report.html";
    }
    std::ofstream file(page);
    file << text;
    file.close();
    if (!file) {
        throw std::system_error(errno, std::generic_category(), page.string() + " cannot be written");
    }
    out << page.string() << '\n';
    return exit_status::success;
}

}  // namespace mediagrabber
