// SPDX-License-Identifier: MIT
#include "exposition.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace {

void require(bool kept, std::string const& rule, std::string const& line) {
    if (!kept) {
        throw std::runtime_error(rule + ": " + line);
    }
}

bool is_metric_name(std::string const& text) {
    static std::regex const name("[a-zA-Z_:][a-zA-Z0-9_:]*");
    return std::regex_match(text, name);
}

bool is_label_name(std::string const& text) {
    static std::regex const name("[a-zA-Z_][a-zA-Z0-9_]*");
    return std::regex_match(text, name) && !text.starts_with("__");
}

/// A value in the syntax of the format; text after it is an error.
double number(std::string const& text, std::string const& line) {
    if (text == "+Inf") {
        return std::numeric_limits<double>::infinity();
    }
    double value = 0.0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    require(error == std::errc() && end == text.data() + text.size(), "a number", line);
    return value;
}

/// Reads labels behind "{" and moves behind "}".
exposition::labels read_labels(std::string const& line, std::size_t& at) {
    exposition::labels found;
    while (line.at(at) != '}') {
        auto const equals = line.find('=', at);
        require(equals != line.npos && line.at(equals + 1) == '"', "a label has a value in quotes", line);
        auto const name = line.substr(at, equals - at);
        require(is_label_name(name), "a label's name", line);
        std::string value;
        for (at = equals + 2; line.at(at) != '"'; ++at) {
            if (line[at] == '\\') {
                char const escaped = line.at(++at);
                require(escaped == '\\' || escaped == '"' || escaped == 'n', "an escape in a label", line);
                value += escaped == 'n' ? '\n' : escaped;
            } else {
                value += line[at];
            }
        }
        ++at;
        require(found.emplace(name, value).second, "a label is there once", line);
        require(line.at(at) == ',' || line.at(at) == '}', "a comma between labels", line);
        at += line[at] == ',' ? 1U : 0U;
    }
    ++at;
    return found;
}

/// Of a histogram's samples, the name of the histogram.
std::string without_suffix(std::string const& name) {
    for (std::string const suffix : {"_bucket", "_sum", "_count"}) {
        if (name.ends_with(suffix)) {
            return name.substr(0, name.size() - suffix.size());
        }
    }
    return name;
}

}  // namespace

exposition::exposition(std::string const& text) {
    require(text.ends_with('\n'), "the last line ends", text.substr(text.rfind('\n') + 1));
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        line.starts_with('#') ? read_comment(line) : read_sample(line);
    }
    for (auto const& [name, one] : families_) {
        check_family(name);
    }
}

void exposition::read_comment(std::string const& line) {
    std::istringstream words(line);
    std::string hash;
    std::string keyword;
    std::string name;
    std::string rest;
    words >> hash >> keyword >> name >> std::ws;
    std::getline(words, rest);
    require(is_metric_name(name) && !rest.empty(), "a comment has a metric and a text", line);
    if (keyword == "HELP") {
        require(families_.emplace(name, family{.help = rest, .type = {}, .samples = {}}).second, "one HELP a metric",
                line);
        current_ = name;
    } else {
        require(keyword == "TYPE" && name == current_, "TYPE follows HELP", line);
        require(rest == "counter" || rest == "gauge" || rest == "histogram", "a type", line);
        require(families_[name].type.empty() && families_[name].samples.empty(), "one TYPE, before all samples", line);
        families_[name].type = rest;
    }
}

void exposition::read_sample(std::string const& line) {
    auto const name_end = line.find_first_of("{ ");
    require(name_end != line.npos, "a sample has a value", line);
    sample found{.name = line.substr(0, name_end), .with = {}, .value = 0.0};
    std::size_t at = name_end;
    if (line[at] == '{') {
        found.with = read_labels(line, ++at);
    }
    require(line.at(at) == ' ', "a blank before the value", line);
    found.value = number(line.substr(at + 1), line);
    auto& one = families_[current_];
    require(!one.type.empty(), "a sample follows its TYPE", line);
    require((one.type == "histogram" ? without_suffix(found.name) : found.name) == current_,
            "a sample follows the comments of its metric", line);
    bool const there = std::any_of(one.samples.begin(), one.samples.end(), [&](sample const& other) {
        return other.name == found.name && other.with == found.with;
    });
    require(!there, "a sample is there once", line);
    one.samples.push_back(std::move(found));
}

void exposition::check_family(std::string const& name) const {
    auto const& one = families_.at(name);
    require(!one.samples.empty(), "a metric has samples", name);
    require((one.type == "counter") == name.ends_with("_total"), "counters and nothing else end in _total", name);
    for (auto const& found : one.samples) {
        require(one.type != "counter" || (std::isfinite(found.value) && found.value >= 0.0), "a count", name);
    }
    if (one.type == "histogram") {
        check_histogram(one, name);
    }
}

void exposition::check_histogram(family const& one, std::string const& name) const {
    double below = -1.0;
    double bound = -1.0;
    for (auto const& found : one.samples) {
        if (found.name == name + "_bucket") {
            double const upper = number(found.with.at("le"), name);
            require(upper > bound && found.value >= below, "buckets rise", name);
            bound = upper;
            below = found.value;
        }
    }
    require(std::isinf(bound), "the last bucket has no end", name);
    auto with = one.samples.back().with;
    with.erase("le");
    require(below == value(name + "_count", with), "the last bucket has all", name);
    require(value(name + "_sum", with) >= 0.0, "a sum", name);
}

bool exposition::contains(std::string const& name) const {
    return std::any_of(families_.begin(), families_.end(), [&](auto const& entry) {
        return std::any_of(entry.second.samples.begin(), entry.second.samples.end(),
                           [&](sample const& found) { return found.name == name; });
    });
}

double exposition::value(std::string const& name, labels const& with) const {
    for (auto const& [family_name, one] : families_) {
        for (auto const& found : one.samples) {
            if (found.name == name && found.with == with) {
                return found.value;
            }
        }
    }
    throw std::out_of_range(name);
}
