// SPDX-License-Identifier: MIT
#include "overview/page_watch.hpp"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "base/thread_scheduling.hpp"
#include "overview/page_request.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::seconds interval{1};
constexpr request_limits status_limits{};
/// A live page waits for up to 2 s for a frame. Its images have at most 1600 pixels per side.
constexpr request_limits image_limits{.time = std::chrono::seconds(5), .body_bytes = 4U << 20U};

enum status_code : int { ok = 200, no_content = 204, see_other = 303, unauthorized = 401, too_many = 429, busy = 503 };

std::string reason(page_answer const& answer, bool with_token) {
    if (answer.status == unauthorized || answer.status == see_other) {
        return with_token ? "the page refuses the token" : "the page requires a token: name its file in token_file";
    }
    if (answer.status == too_many || answer.status == busy) {
        return "the page has too many viewers";
    }
    return fmt::format("the page answers with the HTTP status {}", answer.status);
}

bool is_jpeg(page_answer const& answer) {
    return answer.type == "image/jpeg" && answer.body.starts_with("\xFF\xD8\xFF");
}

}  // namespace

page_watch::page_watch(watched_page page, viewer_presence& presence)
    : page_(std::move(page)), presence_(presence), thread_([this](std::stop_token const& stop) { run(stop); }) {}

page_watch::result page_watch::latest() const {
    std::lock_guard const lock(mutex_);
    return latest_;
}

void page_watch::run(std::stop_token const& stop) {
    schedule_as_idle();
    auto next = viewer_presence::clock::time_point::min();
    while (presence_.wait(stop, next)) {
        next = viewer_presence::clock::now() + interval;
        try {
            ask_status(stop);
        } catch (std::exception const& error) {
            std::lock_guard const lock(mutex_);
            latest_ = {.summary = {},
                       .error = shown_text(error.what()),
                       .image = {},
                       .image_error = {},
                       .image_number = latest_.image_number};
            continue;
        }
        try {
            ask_image(stop);
        } catch (std::exception const& error) {
            std::lock_guard const lock(mutex_);
            latest_.image = nullptr;
            latest_.image_error = shown_text(error.what());
        }
    }
}

void page_watch::ask_status(std::stop_token const& stop) {
    auto const answer = get_page(page_.url + "status.json", page_.authorization, status_limits, stop);
    if (answer.status != ok) {
        throw std::runtime_error(reason(answer, !page_.authorization.empty()));
    }
    auto summary = read_summary(answer.body);
    std::lock_guard const lock(mutex_);
    latest_.summary = std::move(summary);
    latest_.error.clear();
}

void page_watch::ask_image(std::stop_token const& stop) {
    auto const known = latest().image != nullptr ? frame_ : 0;
    auto answer = get_page(fmt::format("{}frame.jpg?size=small&after={}", page_.url, known), page_.authorization,
                           image_limits, stop);
    if (answer.status == no_content) {
        std::lock_guard const lock(mutex_);
        latest_.image_error = latest_.image == nullptr ? "no frame yet" : "";
        return;
    }
    if (answer.status != ok) {
        throw std::runtime_error(reason(answer, !page_.authorization.empty()));
    }
    if (!is_jpeg(answer)) {
        throw std::runtime_error("the answer is not a JPEG image");
    }
    frame_ = answer.frame;
    std::lock_guard const lock(mutex_);
    latest_.image = std::make_shared<std::string const>(std::move(answer.body));
    latest_.image_error.clear();
    ++latest_.image_number;
}

}  // namespace mediagrabber
