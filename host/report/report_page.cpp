#include "report/report_page.hpp"

#include <png.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "report/chart.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t histogram_bars = 90;
constexpr double longest_shown = 3;  ///< intervals, as multiples of the median; longer ones are counted

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
    ".pictures{display:grid;grid-template-columns:repeat(auto-fill,minmax(10rem,1fr));gap:1rem}"
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
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::string time_of_day(std::uint64_t timestamp_us) {
    constexpr std::uint64_t us_per_s = 1'000'000;
    auto const seconds = static_cast<std::time_t>(timestamp_us / us_per_s);
    std::tm parts{};
    char text[64] = "";
    if (gmtime_r(&seconds, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    }
    return text;
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

std::vector<std::uint8_t> as_png(small_picture const& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = picture.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    png_alloc_size_t bytes = 0;
    std::vector<std::uint8_t> file;
    // Asked first how long it will be.
    for (int turn = 0; turn < 2; ++turn) {
        file.resize(bytes);
        if (png_image_write_to_memory(&image, turn == 0 ? nullptr : file.data(), &bytes, 0, picture.values.data(), 0,
                                      nullptr) == 0) {
            throw std::runtime_error(std::string("a thumbnail can't be made: ") + image.message);
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

std::string summary(recording_facts const& facts, std::span<journal_entry const> frames) {
    std::vector<row> rows{{"frames", std::to_string(facts.frames)}};
    if (!frames.empty()) {
        auto const& first = frames.front();
        rows.push_back({"begun", time_of_day(first.timestamp_us)});
        rows.push_back({"duration", number(facts.duration_s, 3) + " s"});
        rows.push_back({"rate", number(facts.frames_per_s, 2) + " frames/s"});
        rows.push_back({"first frame", std::to_string(first.width) + " x " + std::to_string(first.height) + ", " +
                                           std::string(first.format->codec)});
    }
    rows.push_back({"lost before this machine", std::to_string(facts.lost_before_host)});
    rows.push_back({"lost in this machine", std::to_string(facts.lost_in_host)});
    rows.push_back({"begun anew", std::to_string(facts.restarts_s.size()) + " times"});
    return table(rows);
}

std::string intervals(recording_facts const& facts) {
    if (facts.intervals_us.empty()) {
        return "<p>No two frames follow each other.</p>";
    }
    double const from = facts.interval.least_us;
    double const to = std::max(std::min(facts.interval.most_us, longest_shown * facts.interval.median_us), from + 1);
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
    return table({{"least", number(figures.least_us, 0) + " us"},
                  {"median", number(figures.median_us, 0) + " us"},
                  {"99 % are at most", number(figures.p99_us, 0) + " us"},
                  {"greatest", number(figures.most_us, 0) + " us"},
                  {"longer than is shown", std::to_string(beyond)}}) +
           bar_chart(bars, {.from = from, .to = to, .unit = "us"}, "How often each interval between frames occurs");
}

std::string losses(recording_facts const& facts) {
    if (facts.losses.empty() && facts.restarts_s.empty()) {
        return "<p>No frame is missing.</p>";
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
    return bar_chart(bars, {.from = 0, .to = facts.duration_s, .unit = "s"}, "When frames were lost, and how many") +
           "<p>Red: lost before this machine, by the camera's counter. Yellow: handed over and not written. Grey: the "
           "camera"
           " began anew.</p>";
}

/// A value over the time of the recording, where frames have it.
std::string series(std::span<journal_entry const> frames, recording_facts const& facts,
                   std::optional<double> journal_entry::*value, std::string const& unit, std::string const& described) {
    std::vector<point> points;
    for (journal_entry const& one : frames) {
        if (one.*value) {
            double const at_us =
                static_cast<double>(one.timestamp_us) - static_cast<double>(frames.front().timestamp_us);
            points.push_back({at_us / 1e6, *(one.*value)});
        }
    }
    if (points.empty()) {
        return "<p>No frame tells it.</p>";
    }
    return line_chart(points, {.from = 0, .to = facts.duration_s, .unit = "s"}, unit, described);
}

std::string pictures(std::span<thumbnail const> thumbnails) {
    if (thumbnails.empty()) {
        return "<p>The recording has no pictures.</p>";
    }
    std::string made = "<div class=\"pictures\">";
    for (thumbnail const& one : thumbnails) {
        std::string const caption = "frame " + std::to_string(one.frame) + ", " + number(one.at_s, 2) + " s";
        if (!one.missing.empty()) {
            made.append("<figure><figcaption>").append(caption).append(": ");
            made.append(escaped(one.missing)).append("</figcaption></figure>");
            continue;
        }
        made.append("<figure><img alt=\"").append(caption);
        made.append("\" src=\"data:image/png;base64,").append(base64(as_png(one.picture)));
        made.append("\"><figcaption>").append(caption).append("</figcaption></figure>");
    }
    return made + "</div>";
}

}  // namespace

std::string report_page(std::string const& title, recording_facts const& facts, std::span<journal_entry const> frames,
                        std::span<thumbnail const> thumbnails) {
    std::ostringstream out;
    out << "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
           "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none';img-src data:;style-src "
           "'unsafe-inline'\">"
        << "<title>" << escaped(title) << "</title><style>" << style << "</style></head><body>\n<h1>" << escaped(title)
        << "</h1>\n"
        << summary(facts, frames) << "\n<h2>Intervals between frames</h2>\n"
        << intervals(facts) << "\n<h2>Lost frames</h2>\n"
        << losses(facts) << "\n<h2>Gain</h2>\n"
        << series(frames, facts, &journal_entry::gain_db, "dB", "Gain over time") << "\n<h2>Exposure time</h2>\n"
        << series(frames, facts, &journal_entry::exposure_us, "us", "Exposure time over time")
        << "\n<h2>The camera's temperature</h2>\n"
        << series(frames, facts, &journal_entry::temperature_c, "\u00b0C", "The camera's temperature over time")
        << "\n<h2>Pictures</h2>\n"
        << pictures(thumbnails) << "\n</body></html>\n";
    return out.str();
}

}  // namespace mediagrabber
