// SPDX-License-Identifier: MIT
#include "report/report_page.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "clock/frame_clock.hpp"
#include "report/chart.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t histogram_bars = 90;  ///< about 9 units of the drawing each
constexpr double max_shown = 3;  ///< longest interval shown, in medians: single pauses would flatten the histogram

constexpr char const style[] =
    ":root{color-scheme:light "
    "dark;--ink:#1b1f24;--faint:#6b7480;--ground:#fff;--bar:#2f6fb5;--loss:#c0392b;--gone:#d98c00}"
    "@media(prefers-color-scheme:dark){:root{--ink:#e4e7eb;--faint:#97a1ad;--ground:#14171a;--bar:#6ba7e8;--loss:#"
    "ef7163;"
    "--gone:#f0b445}}"
    "body{font:16px/1.5 system-ui,sans-serif;color:var(--ink);background:var(--ground);max-width:60rem;margin:2rem "
    "auto;"
    "padding:0 1rem}h1{font-size:1.4rem}h2{font-size:1.1rem;margin-top:2rem}"
    "table{border-collapse:collapse}td{padding:.1rem 1.5rem .1rem 0}td:first-child{color:var(--faint)}"
    "svg{width:100%;height:auto}text{font-size:12px;fill:var(--faint)}.axis{fill:none;stroke:var(--faint)}"
    ".bar{fill:var(--bar)}.loss{fill:var(--loss)}.gone{fill:var(--gone)}.mark{fill:var(--faint)}"
    ".line{fill:none;stroke:var(--bar)}"
    ".images{display:grid;grid-template-columns:repeat(auto-fill,minmax(10rem,1fr));gap:1rem}"
    "figure{margin:0}img{width:100%;image-rendering:auto}figcaption{color:var(--faint);font-size:.85rem}";

std::string escaped(std::string const& text) {
    std::string made;
    for (char const one : text) {
        switch (one) {
            case '&':
                made += "&amp;";
                break;
            case '<':
                made += "&lt;";
                break;
            case '>':
                made += "&gt;";
                break;
            case '"':
                made += "&quot;";
                break;
            default:
                made += one;
        }
    }
    return made;
}

std::string number(double value, int digits) {
    return fmt::format("{:.{}f}", value, digits);
}

std::string utc_time(std::uint64_t timestamp_us) {
    constexpr std::uint64_t us_per_s = 1'000'000;
    return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC", fmt::gmtime(static_cast<std::time_t>(timestamp_us / us_per_s)));
}

std::string base64(std::span<std::uint8_t const> bytes) {
    constexpr char const letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::size_t const count = std::min<std::size_t>(3, bytes.size() - i);
        unsigned group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            group = group << 8U | (k < count ? bytes[i + k] : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += k <= count ? letters[group >> (18 - 6 * k) & 63U] : '=';
        }
    }
    return text;
}

std::vector<std::uint8_t> as_png(small_image const& from) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = from.width;
    image.height = from.height;
    image.format = from.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    png_alloc_size_t bytes = 0;
    std::vector<std::uint8_t> file;
    // The first call determines the size.
    for (int turn = 0; turn < 2; ++turn) {
        file.resize(bytes);
        if (png_image_write_to_memory(&image, turn == 0 ? nullptr : file.data(), &bytes, 0, from.values.data(), 0,
                                      nullptr) == 0) {
            throw std::runtime_error(std::string("cannot encode a thumbnail: ") + image.message);
        }
    }
    file.resize(bytes);
    return file;
}

using row = std::array<std::string, 2>;

std::string table(std::vector<row> const& rows) {
    std::string made = "<table>";
    for (row const& one : rows) {
        made += "<tr><td>" + escaped(one[0]) + "</td><td>" + escaped(one[1]) + "</td></tr>";
    }
    return made + "</table>";
}

std::string summary(recording_facts const& facts, std::span<index_entry const> frames) {
    std::vector<row> rows{{"frames", std::to_string(facts.frames)}};
    if (!frames.empty()) {
        auto const& first = frames.front();
        rows.push_back({"started", utc_time(first.timestamp_us)});
        rows.push_back({"duration", number(facts.duration_s, 3) + " s"});
        rows.push_back({"frame rate", number(facts.frames_per_s, 2) + " frames/s"});
        rows.push_back({"first frame", std::to_string(first.width) + " x " + std::to_string(first.height) + ", " +
                                           std::string(first.format->name)});
    }
    if (facts.time_uncertainty_us) {
        rows.push_back({"exposure times",
                        "known to " + number(*facts.time_uncertainty_us, 0) + " us (median)" +
                            (facts.time_source == name_of(time_source::arrivals) ? " about a constant delay" : "") +
                            ", from " + facts.time_source});
    }
    if (facts.clock_drift_ppm) {
        rows.push_back(
            {"camera clock", number(*facts.clock_drift_ppm, 2) + " ppm faster than this machine's, at the end"});
    }
    rows.push_back({"frames lost before the host", std::to_string(facts.lost_before_host)});
    rows.push_back({"frames dropped by the host", std::to_string(facts.lost_in_host)});
    rows.push_back({"restarts", std::to_string(facts.restarts_s.size())});
    return table(rows);
}

std::string intervals(recording_facts const& facts) {
    if (facts.intervals_us.empty()) {
        return "<p>There are no two consecutive frames.</p>";
    }
    double const from = facts.interval.min_us;
    double const to = std::max(std::min(facts.interval.max_us, max_shown * facts.interval.median_us), from + 1);
    double const width = (to - from) / static_cast<double>(histogram_bars);
    std::vector<bar> bars(histogram_bars);
    for (std::size_t i = 0; i < histogram_bars; ++i) {
        bars[i].from = from + width * static_cast<double>(i);
        bars[i].to = bars[i].from + width;
    }
    std::size_t beyond = 0;
    for (double const each : facts.intervals_us) {
        if (each > to) {
            ++beyond;
        } else {
            bars[std::min(static_cast<std::size_t>((each - from) / width), histogram_bars - 1)].height += 1;
        }
    }
    auto const& figures = facts.interval;
    return table({{"minimum", number(figures.min_us, 0) + " \u00b5s"},
                  {"median", number(figures.median_us, 0) + " \u00b5s"},
                  {"99th percentile", number(figures.p99_us, 0) + " \u00b5s"},
                  {"maximum", number(figures.max_us, 0) + " \u00b5s"},
                  {"beyond the chart", std::to_string(beyond)}}) +
           bar_chart(bars, {.name = "interval", .unit = "\u00b5s", .from = from, .to = to}, "number of intervals",
                     "Histogram of the intervals between consecutive frames");
}

std::string losses(recording_facts const& facts) {
    if (facts.losses.empty() && facts.restarts_s.empty()) {
        return "<p>No frames are missing.</p>";
    }
    double const width = std::max(facts.duration_s / 600, 1e-6);
    std::vector<bar> bars;
    for (loss const& one : facts.losses) {
        bool const in_host = one.in_host >= one.before_host;
        bars.push_back({.from = one.at_s,
                        .to = one.at_s + width,
                        .height = static_cast<double>(one.in_host + one.before_host),
                        .kind = in_host ? "gone" : "loss"});
    }
    for (double const at : facts.restarts_s) {
        bars.push_back({.from = at, .to = at + width, .height = 1, .kind = "mark"});
    }
    return bar_chart(bars, {.name = "time from the first frame", .unit = "s", .from = 0, .to = facts.duration_s},
                     "frames", "Number of missing frames over time") +
           "<p>Red: lost before the host, by the camera's exposure counter. Yellow: dropped by the host. Grey: restart "
           "of "
           "the camera.</p>";
}

/// Chart of a value over time; frames without the value are left out.
std::string series(std::span<index_entry const> frames, recording_facts const& facts,
                   std::optional<double> index_entry::*value, std::string const& name, std::string const& unit) {
    std::vector<point> points;
    for (index_entry const& one : frames) {
        if (one.*value) {
            double const at_us =
                static_cast<double>(one.timestamp_us) - static_cast<double>(frames.front().timestamp_us);
            points.push_back({at_us / 1e6, *(one.*value)});
        }
    }
    if (points.empty()) {
        return "<p>The camera did not report it.</p>";
    }
    return line_chart(points, {.name = "time from the first frame", .unit = "s", .from = 0, .to = facts.duration_s},
                      name, unit, name + " over time");
}

std::string images(std::span<thumbnail const> thumbnails) {
    if (thumbnails.empty()) {
        return "<p>The recording has no images.</p>";
    }
    std::string made = "<div class=\"images\">";
    for (thumbnail const& one : thumbnails) {
        std::string const caption = "frame " + std::to_string(one.frame) + ", " + number(one.at_s, 2) + " s";
        if (!one.error.empty()) {
            made.append("<figure><figcaption>").append(caption).append(": ");
            made.append(escaped(one.error)).append("</figcaption></figure>");
            continue;
        }
        made.append("<figure><img alt=\"").append(caption);
        made.append("\" src=\"data:image/png;base64,").append(base64(as_png(one.image)));
        made.append("\"><figcaption>").append(caption).append("</figcaption></figure>");
    }
    return made + "</div>";
}

}  // namespace

std::string report_page(std::string const& title, recording_facts const& facts, std::span<index_entry const> frames,
                        std::span<thumbnail const> thumbnails) {
    std::ostringstream out;
    out << "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
           "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none';img-src data:;style-src "
           "'unsafe-inline'\">"
        << "<title>" << escaped(title) << "</title><style>" << style << "</style></head><body>\n<h1>" << escaped(title)
        << "</h1>\n"
        << summary(facts, frames) << "\n<h2>Intervals between frames</h2>\n"
        << intervals(facts) << "\n<h2>Missing frames</h2>\n"
        << losses(facts) << "\n<h2>Gain</h2>\n"
        << series(frames, facts, &index_entry::gain_db, "Gain", "dB") << "\n<h2>Exposure time</h2>\n"
        << series(frames, facts, &index_entry::exposure_us, "Exposure time", "\u00b5s")
        << "\n<h2>Camera temperature</h2>\n"
        << series(frames, facts, &index_entry::temperature_c, "Camera temperature", "\u00b0C") << "\n<h2>Images</h2>\n"
        << images(thumbnails) << "\n</body></html>\n";
    return out.str();
}

}  // namespace mediagrabber
