// SPDX-License-Identifier: MIT
#include "web/web_server.hpp"

#include <atomic>
#include <charconv>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string_view>
#include <thread>
#include <utility>

#include "base/host_log.hpp"
#include "control/control_message.hpp"
#include "images/frame_snapshots.hpp"
#include "images/full_pixels.hpp"
#include "images/latest_frame.hpp"
#include "images/preview.hpp"
#include "web/access_control.hpp"
#include "web/access_token.hpp"
#include "web/address_limiter.hpp"
#include "web/api_handlers.hpp"
#include "web/http_server.hpp"
#include "web/image_stream.hpp"
#include "web/page_files.hpp"
#include "web/still_request.hpp"
#include "web/web_listener.hpp"
#include "web/web_sessions.hpp"

namespace mediagrabber {

namespace {

using clock = std::chrono::steady_clock;

// More threads than images and changes can occupy together, so that some are always free for the status and a stop.
constexpr std::size_t threads = 48;
constexpr std::size_t max_images = 32;              ///< concurrent requests for the live image and for tiles
constexpr std::size_t max_images_per_address = 24;  ///< leaves images to viewers at other addresses
constexpr std::size_t max_files = 4;  ///< concurrent requests for whole frames in full depth: bounds the memory
constexpr std::size_t max_files_per_address = 3;
constexpr std::size_t max_streams = 8;  ///< concurrent viewers of the stream
constexpr std::size_t max_streams_per_address = 6;
constexpr std::size_t max_changes = 6;  ///< concurrent changes
constexpr std::size_t max_changes_per_address = 4;
constexpr std::chrono::seconds listen_interval{2};  ///< between attempts to listen
constexpr std::chrono::seconds max_image_wait{2};
constexpr std::size_t max_records = 65'536;       ///< the capacity of the frame history
constexpr std::size_t max_history_seconds = 600;  ///< twice what the page's charts show

constexpr char json_type[] = "application/json";
constexpr char text_type[] = "text/plain; charset=utf-8";
constexpr char form_type[] = "application/x-www-form-urlencoded";

enum status_code : int {
    no_content = 204,
    see_other = 303,
    bad_request = 400,
    unauthorized = 401,
    forbidden = 403,
    not_found = 404,
    conflict = 409,
    gone = 410,
    unsupported_type = 415,
    too_many = 429,
    busy = 503
};

/// Forbids foreign content, embedding of the page in other sites, and caching.
constexpr std::pair<char const*, char const*> common_headers[] = {
    {"Content-Security-Policy",
     "default-src 'self'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'; object-src 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Referrer-Policy", "same-origin"},
    {"Cache-Control", "no-store"}};

void answer(http_response& response, int status, std::string const& text) {
    response.status = status;
    response.set_content(text + "\n", text_type);
}

void answer(http_response& response, change_answer const& result) {
    response.set_content(written(result), json_type);
    if (result.status != exit_status::success) {
        response.status = result.status == exit_status::usage ? bad_request : conflict;
    }
}

void complete_response(http_response& response) {
    for (auto const& [name, value] : common_headers) {
        response.set_header(name, value);
    }
    if (response.status >= bad_request && response.body.empty()) {
        answer(response, response.status, "error " + std::to_string(response.status));
    }
}

/// A number in the query; 0 if the parameter is absent, nothing if it is not a number.
std::optional<std::uint64_t> number_in(http_request const& request, char const* name) {
    auto const text = request.parameter(name);
    std::uint64_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const valid = error == std::errc() && end == text.data() + text.size();
    return text.empty() ? std::optional<std::uint64_t>(0) : valid ? std::optional(number) : std::nullopt;
}

bool has_type(http_request const& request, std::string_view type) {
    auto const header = request.header("Content-Type");
    return std::string_view(header).substr(0, header.find(';')) == type;
}

request_origin origin_of(http_request const& request) {
    return {.host = request.header("Host"),
            .origin = request.header("Origin"),
            .fetch_site = request.header("Sec-Fetch-Site"),
            .fetch_mode = request.header("Sec-Fetch-Mode")};
}

/// Paths that need no token: the login page and the static files that it uses.
bool is_public(std::string const& path) {
    return path == "/login" || path == "/page.css" || path == "/icon.svg";
}

}  // namespace

/// Routes and their state. The listener accepts connections; the HTTP server receives requests and owns the threads.
class web_server::site final {
public:
    /// \param pages  served instead of a recording's; null: those of a recording
    site(web_configuration const& chosen, std::vector<page> const* pages)
        : chosen_(chosen),
          of_recording_(pages == nullptr),
          proxied_(chosen.public_origin ? std::optional(parse_public_origin(*chosen.public_origin)) : std::nullopt),
          server_({}, {.before_body = [this](http_request& request,
                                             http_response& response) { return refuses(request, response); },
                       .complete = [this](http_request const& request,
                                          http_response& response) { dispatch(request, response); },
                       .before_send = complete_response}) {
        add_files();
        add_login();
        if (of_recording_) {
            add_resources();
            add_stills();
            add_controls();
        } else {
            add_pages(*pages);
        }
        listen();
    }

    /// Null while the page cannot listen.
    web_address const* address() const { return address_; }
    frame_observer_like& observer() { return latest_; }

    void open(recording_view view) {
        view_ = std::move(view);
        if (listener_ != nullptr) {
            serve();
        } else {
            attempts_ = std::jthread([this](std::stop_token const& stop) { keep_listening(stop); });
        }
    }

    void close() {
        attempts_ = std::jthread();  // requests its stop and joins it
        latest_.cancel();
        full_scale_.cancel();
        stretched_.cancel();
        small_.cancel();
        snapshots_.cancel();
        if (listener_ != nullptr) {
            listener_->stop();
        }
        server_.stop();
        full_scale_stream_.stop();  // no thread of the server opens a stream any more
        stretched_stream_.stop();
    }

private:
    using handler = std::function<void(http_request const&, http_response&)>;

    bool listen();
    void keep_listening(std::stop_token const& stop);
    void serve();
    bool refuses(http_request& request, http_response& response);
    bool is_occupied(http_request& request, http_response& response);
    std::string client_of(http_request const& request) const;
    void dispatch(http_request const& request, http_response& response) const;
    void route(char const* method, char const* path, handler handle) { routes_[{method, path}] = std::move(handle); }
    bool authorise(http_request const& request, http_response& response);
    bool check_token(std::string_view offered, std::string const& remote, http_response& response);
    void add_pages(std::vector<page> const& pages);
    void add_files();
    void add_login();
    void add_resources();
    void add_controls();
    void send_image(http_request const& request, http_response& response);
    void send_stream(http_request const& request, http_response& response);
    void add_still(char const* path, std::function<still_request(http_request const&)> read,
                   std::function<void(frame_view const&, still_request const&, http_response&)> encode);
    void add_stills();
    void send_status(http_response& response);
    void send_history(http_request const& request, http_response& response) const;
    void send_log(http_request const& request, http_response& response) const;
    void log_in(http_request const& request, http_response& response);
    void add_control(char const* path, std::function<change_answer(std::string const& body)> control);

    std::map<std::pair<std::string, std::string>, handler> routes_;  ///< by method and path
    web_configuration const chosen_;
    bool const of_recording_;
    std::optional<public_origin> const proxied_;
    std::optional<access_token> token_;
    std::unique_ptr<web_listener> listener_;             ///< null while the page cannot listen
    std::atomic<web_address const*> address_ = nullptr;  ///< that of listener_
    std::string cookie_;   ///< its name: cookies of one machine are shared by all its ports
    std::string failure_;  ///< why the last attempt to listen failed; empty: it did not
    recording_view view_;
    latest_frame latest_;
    preview full_scale_{latest_, preview::window::full_scale, preview::screen_side};
    preview stretched_{latest_, preview::window::stretched, preview::screen_side};
    preview small_{latest_, preview::window::full_scale, preview::small_side};
    frame_snapshots snapshots_{latest_};
    web_sessions sessions_;
    address_limiter images_{max_images, max_images_per_address};
    address_limiter files_{max_files, max_files_per_address};
    address_limiter streams_{max_streams, max_streams_per_address};
    address_limiter changes_{max_changes, max_changes_per_address};
    image_stream full_scale_stream_{full_scale_, [this] { server_.resume_streams(); }};
    image_stream stretched_stream_{stretched_, [this] { server_.resume_streams(); }};
    http_server server_;     ///< its responses refer to the streams
    std::jthread attempts_;  ///< to listen; while it runs, listener_, token_ and cookie_ are its own
};

/// The recording does not depend on its page: an address that is not there yet, a port in use or an unreadable token
/// file is logged, and tried again later. Without a recording, there is nothing to do but to serve the pages.
bool web_server::site::listen() {
    try {
        token_ = chosen_.token_file ? std::optional(access_token::read(*chosen_.token_file)) : std::nullopt;
        listener_ = std::make_unique<web_listener>(parse_web_address(*chosen_.address));
        cookie_ = "mediagrabber_" + std::to_string(listener_->at().port);
        address_ = &listener_->at();
        return true;
    } catch (std::exception const& error) {
        if (!of_recording_) {
            throw;
        }
        if (failure_ != error.what()) {
            failure_ = error.what();
            log_warning("no live page yet: " + failure_ + "; recording without it, and trying again every " +
                        std::to_string(listen_interval.count()) + " s");
        }
        return false;
    }
}

void web_server::site::keep_listening(std::stop_token const& stop) {
    std::mutex unused;
    std::condition_variable_any stopped;
    // cppcheck-suppress localMutex ; it protects nothing: waiting requires a lock
    std::unique_lock lock(unused);
    while (!stopped.wait_for(lock, stop, listen_interval, [] { return false; }) && !stop.stop_requested()) {
        if (listen()) {
            serve();
            return;
        }
    }
}

void web_server::site::serve() {
    try {
        server_.start(threads);
        listener_->serve({.add = [this](file_handle connection,
                                        std::string const& remote) { server_.add(std::move(connection), remote); },
                          .end_overdue = [this] { return server_.end_overdue(); }});
        log_info((of_recording_ ? "live page: " : "overview: ") + listener_->at().url());
    } catch (std::exception const& error) {
        if (!of_recording_) {
            throw;
        }
        log_warning(std::string("no live page: ") + error.what());
    }
}

/// The address that limits apply to: behind the proxy, that of the proxy's client.
std::string web_server::site::client_of(http_request const& request) const {
    auto const forwarded = request.header("X-Forwarded-For");
    bool const by_proxy = proxied_ && (request.remote == "::1" || request.remote.starts_with("127."));
    if (!by_proxy || forwarded.empty()) {
        return request.remote;
    }
    auto const last = forwarded.find_last_of(", ");  // the proxy appends; what is before is the client's own claim
    return last == forwarded.npos ? forwarded : forwarded.substr(last + 1);
}

/// Limits images and changes. A slot is free again when the response has been sent, so that a client that does not read
/// responses cannot occupy more.
/// \return whether the client must retry; the response is complete then
bool web_server::site::is_occupied(http_request& request, http_response& response) {
    bool const file = request.path == "/frame.tif" || request.path == "/frame.png";
    bool const stream = request.path == "/stream.mjpg";
    bool const image = request.path == "/frame.jpg" || request.path == "/tile.raw" || file || stream;
    bool const change = request.path == "/control/set" || request.path == "/control/lut" ||
                        request.path == "/control/reload";  // not a stop: it must work during other changes
    if (!image && !change) {
        return false;
    }
    auto& limit = file ? files_ : stream ? streams_ : image ? images_ : changes_;
    request.held = limit.acquire(client_of(request));
    if (request.held != nullptr) {
        return false;
    }
    response.set_header("Retry-After", "1");
    if (image) {
        answer(response, busy,
               stream ? "too many viewers of the stream, try again or use /frame.jpg" : "too many viewers, try again");
    } else {
        response.status = busy;
        response.set_content(
            written({.status = exit_status::timed_out, .lines = {"other changes are in progress, try again"}}),
            json_type);
    }
    return true;
}

void web_server::site::dispatch(http_request const& request, http_response& response) const {
    auto const found = routes_.find({request.method == "HEAD" ? "GET" : request.method, request.path});
    if (found == routes_.end()) {
        return answer(response, not_found, "not found");
    }
    found->second(request, response);
}

/// Runs before the body is read. Origin and token are checked first.
/// \return whether the response is complete
bool web_server::site::refuses(http_request& request, http_response& response) {
    bool const changes = request.method != "GET" && request.method != "HEAD";
    auto const reason = reason_to_refuse(origin_of(request), listener_->at(), proxied_ ? &*proxied_ : nullptr, changes);
    if (!reason.empty()) {
        answer(response, forbidden, reason);
        return true;
    }
    if (!is_public(request.path) && !authorise(request, response)) {
        return true;
    }
    char const* const type = request.path == "/login" || request.path == "/logout" ? form_type : json_type;
    if (changes && (!has_type(request, type) || !request.header("Content-Encoding").empty())) {
        answer(response, unsupported_type, std::string("expected Content-Type ") + type + " and no Content-Encoding");
        return true;
    }
    return is_occupied(request, response);
}

/// \return whether the client is authorised; if not, the response is complete
bool web_server::site::authorise(http_request const& request, http_response& response) {
    constexpr std::string_view bearer = "Bearer ";
    auto const shown = request.header("Authorization");
    auto const cookies = request.header("Cookie");
    if (!token_ || sessions_.is_valid(cookie_value(cookies, cookie_), clock::now())) {
        return true;
    }
    if (shown.starts_with(bearer)) {
        return check_token(std::string_view(shown).substr(bearer.size()), client_of(request), response);
    }
    if (request.method == "GET" && request.path == "/") {
        response.redirect("/login", see_other);
        return false;
    }
    response.set_header("WWW-Authenticate", "Bearer");
    answer(response, unauthorized, "token required: log in at /login, or send the header Authorization: Bearer TOKEN");
    return false;
}

/// The right token is accepted at any time: wrong ones from the same address, for example of a proxy, must not lock its
/// owner out. It is too long to be guessed; the delay only slows down clients with wrong tokens.
bool web_server::site::check_token(std::string_view offered, std::string const& remote, http_response& response) {
    auto const now = clock::now();
    if (token_->matches(offered)) {
        sessions_.succeeded(remote);
        return true;
    }
    if (auto const wait = sessions_.retry_after(remote, now); wait != 0) {
        response.set_header("Retry-After", std::to_string(wait));
        answer(response, too_many, "too many wrong tokens, try again in " + std::to_string(wait) + " s");
        return false;
    }
    sessions_.failed(remote, now);
    answer(response, unauthorized, "wrong token");
    return false;
}

void web_server::site::add_pages(std::vector<page> const& pages) {
    for (auto const& one : pages) {
        route("GET", one.path.c_str(), one.respond);
    }
}

void web_server::site::add_files() {
    auto const file = [this](char const* path, char const* name, char const* type) {
        route("GET", path, [name, type](http_request const&, http_response& response) {
            response.set_content(std::string(page_file_content(name)), type);
        });
    };
    file("/page.css", "page.css", "text/css; charset=utf-8");
    file("/icon.svg", "icon.svg", "image/svg+xml");
    if (!of_recording_) {
        return;
    }
    file("/", "page.html", "text/html; charset=utf-8");
    file("/page.js", "page.js", "text/javascript; charset=utf-8");
    file("/charts.js", "charts.js", "text/javascript; charset=utf-8");
    file("/view.js", "view.js", "text/javascript; charset=utf-8");
    file("/align.js", "align.js", "text/javascript; charset=utf-8");
}

void web_server::site::log_in(http_request const& request, http_response& response) {
    http_response refusal;
    if (!token_ || check_token(request.form_field("token"), client_of(request), refusal)) {
        bool const secure = proxied_ && proxied_->secure;
        response.set_header("Set-Cookie", cookie_ + "=" + sessions_.start(clock::now()) +
                                              "; Path=/; HttpOnly; SameSite=Strict" + (secure ? "; Secure" : ""));
        response.redirect("/", see_other);
        return;
    }
    constexpr std::string_view placeholder = "<!--answer-->";
    std::string page(page_file_content("login.html"));
    page.replace(page.find(placeholder), placeholder.size(), refusal.body);
    response.status = refusal.status;
    response.headers.merge(refusal.headers);
    response.set_content(page, "text/html; charset=utf-8");
}

void web_server::site::add_login() {
    route("GET", "/login", [](http_request const&, http_response& response) {
        response.set_content(std::string(page_file_content("login.html")), "text/html; charset=utf-8");
    });
    route("POST", "/login",
          [this](http_request const& request, http_response& response) { log_in(request, response); });
    route("POST", "/logout", [this](http_request const& request, http_response& response) {
        sessions_.end(cookie_value(request.header("Cookie"), cookie_));
        response.redirect("/login", see_other);
    });
}

void web_server::site::add_resources() {
    route("GET", "/frame.jpg",
          [this](http_request const& request, http_response& response) { send_image(request, response); });
    route("GET", "/stream.mjpg",
          [this](http_request const& request, http_response& response) { send_stream(request, response); });
    route("GET", "/status.json", [this](http_request const&, http_response& response) { send_status(response); });
    route("GET", "/history.json",
          [this](http_request const& request, http_response& response) { send_history(request, response); });
    route("GET", "/log.json",
          [this](http_request const& request, http_response& response) { send_log(request, response); });
    route("GET", "/metrics", [this](http_request const&, http_response& response) {
        if (view_.metrics) {
            response.set_content(view_.metrics(), "text/plain; version=0.0.4; charset=utf-8");
        } else {
            answer(response, not_found, "this recording has no metrics");
        }
    });
}

/// Long poll: waits for a frame other than the one that the client has. Without one the response is 204, and the client
/// requests again.
void web_server::site::send_image(http_request const& request, http_response& response) {
    auto const known = number_in(request, "after");
    if (!known) {
        return answer(response, bad_request, "expected a frame number in \"after\"");
    }
    auto& images = request.parameter("size") == "small"         ? small_
                   : request.parameter("window") == "stretched" ? stretched_
                                                                : full_scale_;
    auto const image = images.next(*known, clock::now() + max_image_wait);
    if (!image) {
        response.status = no_content;
        return;
    }
    response.set_header("X-Frame", std::to_string(image->record.number));
    response.set_header("X-Timestamp-Us", std::to_string(image->record.timestamp_us));
    response.set_header("X-Frame-Size",
                        std::to_string(image->record.width) + " " + std::to_string(image->record.height));
    response.set_header("X-Window", std::to_string(image->shown.black) + " " + std::to_string(image->shown.white));
    response.set_content(std::string(image->jpeg.begin(), image->jpeg.end()), "image/jpeg");
}

/// Images until the client disconnects or the recording ends.
void web_server::site::send_stream(http_request const& request, http_response& response) {
    auto& stream = request.parameter("window") == "stretched" ? stretched_stream_ : full_scale_stream_;
    response.set_header("Content-Type", image_stream::content_type);
    response.set_header("X-Accel-Buffering", "no");  // a proxy must not collect images
    response.next_part = stream.open();
}

/// \param read    the query \param encode  fills the response
void web_server::site::add_still(char const* path, std::function<still_request(http_request const&)> read,
                                 std::function<void(frame_view const&, still_request const&, http_response&)> encode) {
    route("GET", path,
          [this, read = std::move(read), encode = std::move(encode)](http_request const& request,
                                                                     http_response& response) {
              try {
                  auto const wanted = read(request);
                  auto const found = wanted.frame ? snapshots_.held(*wanted.frame)
                                                  : snapshots_.next(wanted.after, clock::now() + max_image_wait);
                  if (!found && wanted.frame) {
                      return answer(response, gone,
                                    "frame " + std::to_string(*wanted.frame) +
                                        " is not held (any more): only the last few frames are that a request without "
                                        "\"frame\" has returned");
                  }
                  if (!found) {
                      response.status = no_content;
                      return;
                  }
                  auto const& record = found->record;
                  encode(found->view(), wanted, response);
                  response.set_header("X-Frame", std::to_string(record.number));
                  response.set_header("X-Timestamp-Us", std::to_string(record.timestamp_us));
                  response.set_header("X-Frame-Size",
                                      std::to_string(record.width) + " " + std::to_string(record.height));
                  response.set_header("X-Pixel-Format", std::string(record.format->name));
                  response.set_header("X-Significant-Bits", std::to_string(record.format->significant_bits));
              } catch (still_refused const& refused) {
                  answer(response, bad_request, refused.what());
              }
          });
}

void web_server::site::add_stills() {
    auto const without_8_bits = [](http_request const& request) { return read_image_request(request, false); };
    auto const with_8_bits = [](http_request const& request) { return read_image_request(request, true); };
    add_still("/frame.tif", without_8_bits, [](auto const& frame, auto const& wanted, auto& response) {
        response.set_content(encode_tiff(all_pixels(frame, wanted.colour)), "image/tiff");
    });
    add_still("/frame.png", with_8_bits, [](auto const& frame, auto const& wanted, auto& response) {
        auto const pixels =
            wanted.in_8_bits ? all_pixels_in_8_bits(frame, wanted.colour) : all_pixels(frame, wanted.colour);
        response.set_content(encode_png(pixels), "image/png");
    });
    add_still("/tile.raw", read_tile_request, [](auto const& frame, auto const& wanted, auto& response) {
        check_tile(wanted, frame.record);
        auto tile = part_of(frame, wanted.part, wanted.by);
        response.set_header("X-Tile-Size", std::to_string(tile.width) + " " + std::to_string(tile.height));
        response.set_header("X-Bits", std::to_string(tile.bits));
        response.set_content(std::move(tile.values), "application/octet-stream");
    });
}

void web_server::site::send_status(http_response& response) {
    auto const full = full_scale_.last();
    auto const stretched = stretched_.last();
    bool const second = stretched && (!full || stretched->made > full->made);
    auto const tone = view_.tone == nullptr ? tone_curve::snapshot() : view_.tone->current();
    response.set_content(status_response(view_.status(), tone, second ? stretched.get() : full.get()), json_type);
}

void web_server::site::send_history(http_request const& request, http_response& response) const {
    auto after = number_in(request, "after");
    if (!after) {
        return answer(response, bad_request, "expected a frame number in \"after\"");
    }
    auto const newest = view_.history->newest();
    if (newest && newest->number < *after) {
        after = 0;  // the client's number is from an earlier recording
    }
    auto const records = view_.history->after(*after == 0 ? 0 : *after - 1, max_records);
    response.set_content(history_response(records, *after, max_history_seconds), json_type);
}

void web_server::site::send_log(http_request const& request, http_response& response) const {
    auto const after = number_in(request, "after");
    if (!after) {
        return answer(response, bad_request, "expected a line number in \"after\"");
    }
    response.set_content(log_response(view_.log->after(*after)), json_type);
}

void web_server::site::add_control(char const* path, std::function<change_answer(std::string const& body)> control) {
    route("POST", path, [control = std::move(control)](http_request const& request, http_response& response) {
        try {
            answer(response, control(request.body));
        } catch (setting_refused const& refused) {
            answer(response, change_answer{.status = refused.status(), .lines = {refused.what()}});
        } catch (std::exception const& error) {
            answer(response, change_answer{.status = exit_status::run_failed, .lines = {error.what()}});
        }
    });
}

void web_server::site::add_controls() {
    add_control("/control/set",
                [this](std::string const& body) { return view_.controls.change(read_page_request(body)); });
    add_control("/control/lut",
                [this](std::string const& body) { return view_.controls.calculate_lut(read_lut_request(body)); });
    add_control("/control/reload", [this](std::string const& body) {
        read_empty_request(body);
        return view_.controls.reload();
    });
    route("POST", "/control/stop", [this](http_request const& request, http_response& response) {
        try {
            read_empty_request(request.body);
            answer(response, view_.controls.stop());
        } catch (setting_refused const& refused) {
            answer(response, change_answer{.status = refused.status(), .lines = {refused.what()}});
        }
    });
}

web_server::web_server(web_configuration const& chosen) : site_(std::make_unique<site>(chosen, nullptr)) {}

web_server::web_server(web_configuration const& chosen, std::vector<page> const& pages)
    : site_(std::make_unique<site>(chosen, &pages)) {}

web_server::~web_server() {
    close();
}

web_address const* web_server::address() const {
    return site_->address();
}

frame_observer_like& web_server::observer() {
    return site_->observer();
}

void web_server::open(recording_view view) {
    site_->open(std::move(view));
}

void web_server::close() {
    site_->close();
}

}  // namespace mediagrabber
