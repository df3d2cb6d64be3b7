// SPDX-License-Identifier: MIT
#include "overview/overview.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <utility>

#include "config/web_address.hpp"
#include "web/access_token.hpp"
#include "web/page_files.hpp"

namespace mediagrabber {

namespace {

using nlohmann::json;

constexpr std::chrono::seconds interval{1};
constexpr int not_found = 404;

/// A page that listens on all addresses is reached at the loopback address.
std::string reachable(std::string const& url) {
    for (auto const& [any, loopback] :
         {std::pair("http://0.0.0.0:", "http://127.0.0.1:"), {"http://[::]:", "http://[::1]:"}}) {
        if (url.starts_with(any)) {
            return loopback + url.substr(std::string_view(any).size());
        }
    }
    return url;
}

json entry(std::uint64_t id, std::string const& place, std::string const& link) {
    return {{"id", id},         {"place", place},     {"link", link.empty() ? json(nullptr) : json(link)},
            {"error", ""},      {"summary", nullptr}, {"image", 0},
            {"image_error", ""}};
}

void add_image(json& to, page_watch::result const& shown) {
    to["image"] = shown.image == nullptr ? 0 : shown.image_number;
    to["image_error"] = shown.image_error;
}

/// The summary in the status of a recording of this machine.
void add_status(json& to, local_recording const& found) {
    try {
        if (found.error.empty()) {
            to["summary"] = json_of(read_summary(found.status));
        } else {
            to["error"] = shown_text(found.error);
        }
    } catch (std::exception const& error) {
        to["error"] = error.what();
    }
}

std::uint64_t number_in(std::string const& text) {
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

}  // namespace

overview::overview(std::vector<watched_page> const& machines, std::function<std::vector<local_recording>()> find)
    : find_(std::move(find)), next_id_(machines.size() + 1) {
    for (auto const& one : machines) {
        machines_.push_back(
            {.id = machines_.size() + 1, .page = one, .watch = std::make_unique<page_watch>(one, presence_)});
    }
    search_ = std::jthread([this](std::stop_token const& stop) { follow_local(stop); });
}

overview::~overview() {
    search_ = std::jthread();  // requests its stop and joins it
    for (auto const& one : machines_) {
        one.watch->request_stop();
    }
    end_together(local_);
}

/// Each watch takes up to a second to end, all of them at the same time.
void overview::end_together(std::map<std::string, local>& some) {
    for (auto const& [place, one] : some) {
        if (one.watch != nullptr) {
            one.watch->request_stop();
        }
    }
    some.clear();
}

void overview::follow_local(std::stop_token const& stop) {
    auto next = viewer_presence::clock::time_point::min();
    while (presence_.wait(stop, next)) {
        next = viewer_presence::clock::now() + interval;
        std::string error;
        try {
            take(find_());
        } catch (std::exception const& failure) {
            error = failure.what();
        }
        std::lock_guard const lock(mutex_);
        search_error_ = error;
    }
}

overview::local overview::made(std::uint64_t id, local_recording found) {
    local one{.id = id, .found = std::move(found), .image_error = {}, .watch = nullptr};
    if (one.found.page.empty()) {
        one.image_error = one.found.error.empty() ? "no live page (web.address)" : "";
        return one;
    }
    watched_page page{.url = reachable(one.found.page)};
    try {
        page.authorization = one.found.token_file ? access_token::read(*one.found.token_file).authorization() : "";
        one.watch = std::make_unique<page_watch>(std::move(page), presence_);
    } catch (std::exception const& error) {
        one.image_error = shown_text(error.what());
    }
    return one;
}

/// Replaces the recordings of this machine. A watch goes on while the page of its recording stays the same.
void overview::take(std::vector<local_recording> found) {
    std::map<std::string, local> next;
    std::unique_lock lock(mutex_);
    for (auto& one : found) {
        bool const listed =
            std::ranges::any_of(machines_, [&](machine const& other) { return other.page.url == reachable(one.page); });
        if (listed || next.size() == max_machines) {
            continue;
        }
        std::string const place = one.place;
        auto const before = local_.find(place);
        bool const known = before != local_.end();
        std::uint64_t const id = known ? before->second.id : next_id_++;
        if (known && before->second.watch != nullptr && before->second.found.page == one.page &&
            before->second.found.token_file == one.token_file) {
            before->second.found = std::move(one);
            next.insert_or_assign(place, std::move(before->second));
        } else {
            next.insert_or_assign(place, made(id, std::move(one)));
        }
    }
    local_.swap(next);
    lock.unlock();
    end_together(next);  // those of earlier recordings
}

std::string overview::response() {
    presence_.note();
    auto list = json::array();
    for (auto const& one : machines_) {
        auto const latest = one.watch->latest();
        auto& shown = list.emplace_back(entry(one.id, one.page.name, one.page.url));
        shown["error"] = latest.error;
        if (latest.summary) {
            shown["summary"] = json_of(*latest.summary);
        }
        add_image(shown, latest);
    }
    std::lock_guard const lock(mutex_);
    for (auto const& [place, one] : local_) {
        auto& shown = list.emplace_back(entry(one.id, place, one.found.link.empty() ? one.found.page : one.found.link));
        add_status(shown, one.found);
        shown["image_error"] = one.image_error;
        if (one.watch != nullptr) {
            auto const latest = one.watch->latest();
            add_image(shown, latest);
            shown["image_error"] = latest.error.empty() ? latest.image_error : latest.error;
        }
    }
    return json{{"recordings", std::move(list)}, {"error", search_error_}}.dump(-1, ' ', false,
                                                                                json::error_handler_t::replace);
}

std::shared_ptr<std::string const> overview::image_of(std::uint64_t id) {
    if (id >= 1 && id <= machines_.size()) {
        return machines_[id - 1].watch->latest().image;
    }
    std::lock_guard const lock(mutex_);
    auto const found = std::ranges::find_if(local_, [id](auto const& one) { return one.second.id == id; });
    return found == local_.end() || found->second.watch == nullptr ? nullptr : found->second.watch->latest().image;
}

void overview::send_image(http_request const& request, http_response& response) {
    auto const image = image_of(number_in(request.parameter("id")));
    if (image == nullptr) {
        response.status = not_found;
        return;
    }
    response.set_content(*image, "image/jpeg");
}

std::vector<web_server::page> overview::pages() {
    auto const file = [](char const* path, char const* name, char const* type) {
        return web_server::page{path, [name, type](http_request const&, http_response& response) {
                                    response.set_content(std::string(page_file_content(name)), type);
                                }};
    };
    return {file("/", "overview.html", "text/html; charset=utf-8"),
            file("/overview.css", "overview.css", "text/css; charset=utf-8"),
            file("/overview.js", "overview.js", "text/javascript; charset=utf-8"),
            {"/overview.json",
             [this](http_request const&, http_response& response) {
                 response.set_content(this->response(), "application/json");
             }},
            {"/image.jpg",
             [this](http_request const& request, http_response& response) { send_image(request, response); }}};
}

}  // namespace mediagrabber
