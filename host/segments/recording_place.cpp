// SPDX-License-Identifier: MIT
#include "segments/recording_place.hpp"

#include <algorithm>
#include <array>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <string_view>
#include <system_error>

#include "base/failures.hpp"

namespace mediagrabber {

namespace {

namespace fs = std::filesystem;

struct placeholder {
    std::string_view text;
    char const* format;        ///< of std::put_time
    std::string_view matches;  ///< regular expression; recordings of the pre-trigger buffer have milliseconds
};

constexpr std::array<placeholder, 2> placeholders{{
    {"{time}", "%Y%m%dT%H%M%SZ", R"(\d{8}T\d{6}(\.\d{3})?Z)"},
    {"{date}", "%Y%m%d", R"(\d{8})"},
}};

std::string utc_text(std::chrono::system_clock::time_point when, char const* format) {
    std::time_t const seconds = std::chrono::system_clock::to_time_t(when);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::ostringstream text;
    text << std::put_time(&parts, format);
    return text.str();
}

void replace_all(std::string& text, std::string_view from, std::string_view by) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + by.size())) {
        text.replace(at, from.size(), by);
    }
}

/// \return whether the last part of a configured directory has {time}
bool has_time_at_end(std::string const& configured) {
    return fs::path(configured).filename().string().find(placeholders[0].text) != std::string::npos;
}

bool has_placeholder(std::string const& name) {
    return std::ranges::any_of(placeholders, [&](auto const& one) { return name.find(one.text) != std::string::npos; });
}

/// A regular expression for the names that a part of a path stands for.
std::string expression_for(std::string const& part) {
    std::string escaped;
    for (char const c : part) {
        escaped += std::string_view(R"(.[](){}*+?^$|\)").find(c) == std::string_view::npos ? "" : "\\";
        escaped += c;
    }
    for (auto const& one : placeholders) {
        std::string const bare(one.text.substr(1, one.text.size() - 2));
        replace_all(escaped, "\\{" + bare + "\\}", one.matches);
    }
    replace_all(escaped, R"(\{event\})", "(-[A-Za-z0-9][A-Za-z0-9._-]*)?");
    return escaped;
}

}  // namespace

fs::path recording_place(std::string const& configured, std::chrono::system_clock::time_point start) {
    std::string place = configured;
    for (auto const& one : placeholders) {
        replace_all(place, one.text, utc_text(start, one.format));
    }
    fs::path unused = place;
    std::error_code unknown;
    for (int number = 2; has_time_at_end(configured) && fs::exists(unused, unknown); ++number) {
        unused = place + "-" + std::to_string(number);
    }
    return unused;
}

void check_directory_of_segments(output_configuration const& values) {
    if ((values.has_segments() || values.has_retention()) && !has_time_at_end(values.directory)) {
        throw usage_error(
            "output.directory: \"" + values.directory +
            "\" must have {time} in its last part, for example \"recordings/{date}/{time}\": output.segment_s,"
            " segment_frames, keep_days, keep_bytes and min_free_bytes require it");
    }
}

recording_places::recording_places(std::string const& configured) {
    fs::path const whole(configured);
    for (auto part = whole.begin(); part != whole.end(); ++part) {
        std::string const name = part->string();
        if (levels_.empty() && !has_placeholder(name)) {
            root_ /= *part;
        } else {
            levels_.push_back(
                {.names = std::regex(expression_for(name) + (std::next(part) == whole.end() ? R"((-\d+)?)" : "")),
                 .has_event = name.find("{event}") != std::string::npos});
        }
    }
    if (root_.empty()) {
        root_ = ".";
    }
}

void recording_places::visit_each(std::function<bool(fs::path const&)> const& visit) const {
    visit_below(root_, 0, visit);
}

/// \return false to end the visits
bool recording_places::visit_below(fs::path const& directory, std::size_t depth,
                                   std::function<bool(fs::path const&)> const& visit) const {
    if (depth == levels_.size()) {
        return visit(directory);
    }
    std::vector<std::pair<fs::file_time_type, std::string>> found;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        std::string name = entry->path().filename().string();
        std::error_code unknown;
        if (std::regex_match(name, levels_[depth].names) && entry->is_directory(unknown) &&
            !entry->is_symlink(unknown)) {
            found.emplace_back(levels_[depth].has_event ? entry->last_write_time(unknown) : fs::file_time_type(),
                               std::move(name));
        }
    }
    std::ranges::sort(found);
    return std::ranges::all_of(found,
                               [&](auto const& one) { return visit_below(directory / one.second, depth + 1, visit); });
}

}  // namespace mediagrabber
