// SPDX-License-Identifier: MIT
#include "overview/machine_list.hpp"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "base/bounded_file.hpp"
#include "base/failures.hpp"
#include "config/web_address.hpp"
#include "web/access_token.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_file = 1U << 20U;  ///< bytes
constexpr std::size_t max_name = 100;        ///< bytes
constexpr char example[] = "expected [[machine]] tables with the keys page, name and token_file";

/// Reads one file; errors have its name and the position.
class list_reader {
public:
    explicit list_reader(std::filesystem::path const& file) : file_(file) {}

    std::vector<watched_page> read() const {
        auto const root = parsed();
        std::vector<watched_page> pages;
        for (auto const& [key, value] : root) {
            auto const* const tables = value.as_array();
            if (key.str() != "machine" || tables == nullptr) {
                refuse(value, fmt::format("{}: unknown key, {}", key.str(), example));
            }
            for (auto const& one : *tables) {
                if (!one.is_table()) {
                    refuse(one, example);
                }
                pages.push_back(page_in(*one.as_table()));
            }
        }
        return pages;
    }

private:
    [[noreturn]] void refuse(toml::node const& at, std::string const& what) const {
        throw usage_error(
            fmt::format("{}:{}:{}: {}", file_.string(), at.source().begin.line, at.source().begin.column, what));
    }

    toml::table parsed() const {
        try {
            return toml::parse(read_bounded_file(file_, max_file), file_.string());
        } catch (toml::parse_error const& error) {
            throw usage_error(fmt::format("{}:{}:{}: {}", file_.string(), error.source().begin.line,
                                          error.source().begin.column, error.description()));
        } catch (std::exception const& error) {
            throw usage_error(fmt::format("{}: {}", file_.string(), error.what()));
        }
    }

    watched_page page_in(toml::table const& table) const {
        auto const* const page = table.get("page");
        if (page == nullptr) {
            refuse(table, "page is missing, the address of a live page, for example \"http://10.1.0.11:8080\"");
        }
        watched_page read;
        for (auto const& [key, value] : table) {
            auto const text = value.value<std::string>();
            if (!text) {
                refuse(value, fmt::format("{}: expected a text in quotes", key.str()));
            }
            try {
                take(key.str(), *text, read);
            } catch (std::exception const& error) {
                refuse(value, fmt::format("{}: {}", key.str(), error.what()));
            }
        }
        return read;
    }

    void take(std::string_view key, std::string const& text, watched_page& into) const {
        if (key == "page") {
            into.url = parse_page(text).url;
        } else if (key == "name" && text.size() <= max_name) {
            into.name = text;
        } else if (key == "name") {
            throw std::runtime_error(fmt::format("is longer than {} bytes", max_name));
        } else if (key == "token_file") {
            into.authorization = access_token::read(file_.parent_path() / text).authorization();
        } else {
            throw std::runtime_error(fmt::format("unknown key, {}", example));
        }
    }

    std::filesystem::path const& file_;
};

}  // namespace

watched_page parse_page(std::string_view text) {
    auto const origin = text.ends_with('/') ? text.substr(0, text.size() - 1) : text;
    try {
        return {.url = parse_public_origin(origin).origin + "/"};
    } catch (std::runtime_error const&) {
        throw usage_error(
            fmt::format("\"{}\" is not the address of a live page, expected http://HOST[:PORT] or "
                        "https://HOST[:PORT], for example http://10.1.0.11:8080",
                        text));
    }
}

std::vector<watched_page> read_machine_list(std::filesystem::path const& file) {
    return list_reader(file).read();
}

void check_machines(std::vector<watched_page> const& pages) {
    if (pages.size() > max_machines) {
        throw usage_error(fmt::format("{} live pages are more than the maximum of {}; use several overviews",
                                      pages.size(), max_machines));
    }
    std::set<std::string> seen;
    for (auto const& one : pages) {
        if (!seen.insert(one.url).second) {
            throw usage_error(fmt::format("{} is given twice", one.url));
        }
    }
}

}  // namespace mediagrabber
