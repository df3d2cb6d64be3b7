#include "web/web_server.hpp"

#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

#include "control_message.hpp"
#include "host_log.hpp"
#include "web/access_token.hpp"
#include "web/busy_places.hpp"
#include "web/connection_stream.hpp"
#include "web/live_picture.hpp"
#include "web/login_sessions.hpp"
#include "web/newest_frame.hpp"
#include "web/page_answers.hpp"
#include "web/page_files.hpp"
#include "web/request_rules.hpp"
#include "web/web_listener.hpp"

namespace mediagrabber {

namespace {

using httplib::Request;
using httplib::Response;
using handling = httplib::Server::HandlerResponse;
using clock = std::chrono::steady_clock;

// More threads than pictures and changes together can keep busy: there is always one for a question or a stop.
constexpr std::size_t threads = 48;
constexpr std::size_t most_pictures = 32;  ///< that are waited for, or sent, at once
constexpr std::size_t most_changes = 4;    ///< that are under way at once
constexpr std::size_t longest_body = 16 * 1024;
constexpr std::chrono::seconds longest_picture_wait{2};
constexpr std::size_t records_asked = 65'536;
constexpr std::size_t most_stretches = 600;

constexpr char json_type[] = "application/json";
constexpr char text_type[] = "text/plain; charset=utf-8";
constexpr char form_type[] = "application/x-www-form-urlencoded";

enum status_code : int {
    no_content = 204,
    see_other = 303,
    bad_request = 400,
    unauthorized = 401,
    forbidden = 403,
    conflict = 409,
    unsupported_type = 415,
    too_many = 429,
    failed = 500,
    busy = 503
};

/// Nothing but this program's own files is loaded, nobody shows the page inside of another one, nothing is kept.
httplib::Headers headers_of_all() {
    return {{"Content-Security-Policy",
             "default-src 'self'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'; object-src 'none'"},
            {"X-Content-Type-Options", "nosniff"},
            {"X-Frame-Options", "DENY"},
            {"Cross-Origin-Resource-Policy", "same-origin"},
            {"Cross-Origin-Opener-Policy", "same-origin"},
            {"Referrer-Policy", "same-origin"},
            {"Cache-Control", "no-store"}};
}

void answer(Response& response, int status, std::string const& text) {
    response.status = status;
    response.set_content(text + "\n", text_type);
}

void answer(Response& response, change_answer const& told) {
    response.set_content(written(told), json_type);
    if (told.status != exit_status::success) {
        response.status = told.status == exit_status::usage ? bad_request : conflict;
    }
}

/// A number of a frame or a line in the query, 0 when it is not given.
std::optional<std::uint64_t> number_in(Request const& request, char const* name) {
    auto const text = request.get_param_value(name);
    std::uint64_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const whole = error == std::errc() && end == text.data() + text.size();
    return text.empty() ? std::optional<std::uint64_t>(0) : whole ? std::optional(number) : std::nullopt;
}

bool has_type(Request const& request, std::string_view type) {
    auto const told = request.get_header_value("Content-Type");
    return std::string_view(told).substr(0, told.find(';')) == type;
}

request_origin origin_of(Request const& request) {
    return {.host = request.get_header_value("Host"),
            .origin = request.get_header_value("Origin"),
            .fetch_site = request.get_header_value("Sec-Fetch-Site"),
            .fetch_mode = request.get_header_value("Sec-Fetch-Mode")};
}

/// What is there before somebody has shown the token: constant files, and the place to show it.
bool is_open_to_all(std::string const& path) {
    return path == "/login" || path == "/page.css" || path == "/icon.svg";
}

}  // namespace

/// The routes, and what they need. Sockets are the listener's: of the HTTP library this is the parser and the routing.
class web_server::site final : private httplib::Server {
public:
    explicit site(configuration const& chosen)
        : token_(chosen.web_token_file ? std::optional(access_token::read(*chosen.web_token_file)) : std::nullopt),
          listener_(parse_web_address(*chosen.web_address)),
          cookie_("mediagrabber_" + std::to_string(listener_.at().port)) {
        set_default_headers(headers_of_all());
        set_payload_max_length(longest_body);
        set_pre_routing_handler(
            [this](Request const& request, Response& response) { return guard(request, response); });
        set_exception_handler([](Request const&, Response& response, std::exception_ptr failure) {
            try {
                std::rethrow_exception(std::move(failure));
            } catch (std::exception const& error) {
                answer(response, failed, error.what());
            }
        });
        set_error_handler([](Request const&, Response& response) {
            if (response.body.empty()) {
                response.set_content("error " + std::to_string(response.status) + "\n", text_type);
            }
        });
        add_files();
        add_login();
        add_answers();
        add_controls();
    }

    web_address const& address() const { return listener_.at(); }
    frame_watcher_like& watcher() { return newest_; }

    void open(recording_view view) {
        view_ = std::move(view);
        listener_.serve(
            threads, [this](file_handle const& connection, std::string const& remote) { serve(connection, remote); });
    }

    void close() {
        newest_.cancel();
        picture_.cancel();
        stretched_.cancel();
        listener_.stop();
    }

private:
    void serve(file_handle const& connection, std::string const& remote) noexcept;
    handling guard(Request const& request, Response& response);
    bool let_in(Request const& request, Response& response);
    bool shows_token(std::string_view offered, std::string const& remote, Response& response);
    void add_files();
    void add_login();
    void add_answers();
    void add_controls();
    void send_picture(Request const& request, Response& response);
    void send_status(Response& response);
    void send_history(Request const& request, Response& response) const;
    void send_log(Request const& request, Response& response) const;
    void log_in(Request const& request, Response& response);
    void add_control(char const* path, std::function<change_answer(std::string const& body)> control);

    std::optional<access_token> const token_;
    web_listener listener_;
    std::string const cookie_;  ///< its name: cookies of one machine are shared by all its ports
    recording_view view_;
    newest_frame newest_;
    live_picture picture_{newest_, live_picture::window::full_scale};
    live_picture stretched_{newest_, live_picture::window::stretched};
    login_sessions sessions_;
    busy_places pictures_{most_pictures};
    busy_places changes_{most_changes};
};

/// One request a connection: one that is kept open would keep a thread.
void web_server::site::serve(file_handle const& connection, std::string const& remote) noexcept {
    try {
        connection_stream stream(connection, remote, {});
        bool closed = false;
        process_request(stream, true, closed, [](Request& request) { request.ranges.clear(); });
        stream.finish();
    } catch (std::exception const& error) {
        log_warning(std::string("the page: ") + error.what());
    }
}

/// Before anything else of a request is looked at than its headers.
handling web_server::site::guard(Request const& request, Response& response) {
    bool const changes = request.method != "GET" && request.method != "HEAD";
    auto const reason = reason_to_refuse(origin_of(request), listener_.at(), changes);
    if (!reason.empty()) {
        answer(response, forbidden, reason);
        return handling::Handled;
    }
    if (!is_open_to_all(request.path) && !let_in(request, response)) {
        return handling::Handled;
    }
    char const* const type = request.path == "/login" || request.path == "/logout" ? form_type : json_type;
    if (changes && (!has_type(request, type) || request.has_header("Content-Encoding"))) {
        answer(response, unsupported_type, std::string("expected Content-Type ") + type + " and no Content-Encoding");
        return handling::Handled;
    }
    return handling::Unhandled;
}

/// \return whether this visitor may go on; if not, the answer says how
bool web_server::site::let_in(Request const& request, Response& response) {
    constexpr std::string_view bearer = "Bearer ";
    auto const shown = request.get_header_value("Authorization");
    auto const cookies = request.get_header_value("Cookie");
    if (!token_ || sessions_.is_open(cookie_value(cookies, cookie_), clock::now())) {
        return true;
    }
    if (shown.starts_with(bearer)) {
        return shows_token(std::string_view(shown).substr(bearer.size()), request.remote_addr, response);
    }
    if (request.method == "GET" && request.path == "/") {
        response.set_redirect("/login", see_other);
        return false;
    }
    response.set_header("WWW-Authenticate", "Bearer");
    answer(response, unauthorized,
           "the token is needed: log in at " + std::string("/login") + ", or send it as Authorization: Bearer TOKEN");
    return false;
}

bool web_server::site::shows_token(std::string_view offered, std::string const& remote, Response& response) {
    auto const now = clock::now();
    if (auto const wait = sessions_.wait_of(remote, now); wait != 0) {
        response.set_header("Retry-After", std::to_string(wait));
        answer(response, too_many, "too many wrong tokens, try again in " + std::to_string(wait) + " s");
        return false;
    }
    if (!token_->is(offered)) {
        sessions_.failed(remote, now);
        answer(response, unauthorized, "that is not the token");
        return false;
    }
    sessions_.succeeded(remote);
    return true;
}

void web_server::site::add_files() {
    auto const file = [this](char const* path, char const* name, char const* type) {
        Get(path, [name, type](Request const&, Response& response) {
            response.set_content(std::string(page_file_content(name)), type);
        });
    };
    file("/", "page.html", "text/html; charset=utf-8");
    file("/page\\.css", "page.css", "text/css; charset=utf-8");
    file("/page\\.js", "page.js", "text/javascript; charset=utf-8");
    file("/charts\\.js", "charts.js", "text/javascript; charset=utf-8");
    file("/icon\\.svg", "icon.svg", "image/svg+xml");
}

void web_server::site::log_in(Request const& request, Response& response) {
    Response refusal;
    if (!token_ || shows_token(request.get_param_value("token"), request.remote_addr, refusal)) {
        response.set_header("Set-Cookie",
                            cookie_ + "=" + sessions_.begin(clock::now()) + "; Path=/; HttpOnly; SameSite=Strict");
        response.set_redirect("/", see_other);
        return;
    }
    constexpr std::string_view place = "<!--answer-->";
    std::string page(page_file_content("login.html"));
    page.replace(page.find(place), place.size(), refusal.body);
    response.status = refusal.status;
    response.headers.merge(refusal.headers);
    response.set_content(page, "text/html; charset=utf-8");
}

void web_server::site::add_login() {
    Get("/login", [](Request const&, Response& response) {
        response.set_content(std::string(page_file_content("login.html")), "text/html; charset=utf-8");
    });
    Post("/login", [this](Request const& request, Response& response) { log_in(request, response); });
    Post("/logout", [this](Request const& request, Response& response) {
        sessions_.end(cookie_value(request.get_header_value("Cookie"), cookie_));
        response.set_redirect("/login", see_other);
    });
}

void web_server::site::add_answers() {
    Get("/frame\\.jpg", [this](Request const& request, Response& response) { send_picture(request, response); });
    Get("/status\\.json", [this](Request const&, Response& response) { send_status(response); });
    Get("/history\\.json", [this](Request const& request, Response& response) { send_history(request, response); });
    Get("/log\\.json", [this](Request const& request, Response& response) { send_log(request, response); });
    Get("/metrics", [this](Request const&, Response& response) {
        if (view_.metrics) {
            response.set_content(view_.metrics(), "text/plain; version=0.0.4; charset=utf-8");
        } else {
            answer(response, 404, "there are no metrics");
        }
    });
}

/// Waits for the next frame behind the one that the visitor knows; without one he is told so, and comes again.
void web_server::site::send_picture(Request const& request, Response& response) {
    auto const known = number_in(request, "after");
    if (!known) {
        return answer(response, bad_request, "expected a frame's number in \"after\"");
    }
    busy_places::place const place(pictures_);
    if (!place) {
        response.set_header("Retry-After", "1");
        return answer(response, busy, "too many look at the picture at once");
    }
    auto& pictures = request.get_param_value("window") == "stretched" ? stretched_ : picture_;
    auto const picture = pictures.next(*known, clock::now() + longest_picture_wait);
    if (!picture) {
        response.status = no_content;
        return;
    }
    response.set_header("X-Frame", std::to_string(picture->record.number));
    response.set_header("X-Timestamp-Us", std::to_string(picture->record.timestamp_us));
    response.set_header("X-Window", std::to_string(picture->shown.black) + " " + std::to_string(picture->shown.white));
    response.set_content(picture->jpeg.data(), picture->jpeg.size(), "image/jpeg");
}

void web_server::site::send_status(Response& response) {
    auto const full = picture_.last();
    auto const stretched = stretched_.last();
    bool const second = stretched && (!full || stretched->made > full->made);
    auto const tone = view_.tone == nullptr ? tone_curve::snapshot() : view_.tone->current();
    response.set_content(status_answer(view_.status(), tone, second ? stretched.get() : full.get()), json_type);
}

void web_server::site::send_history(Request const& request, Response& response) const {
    auto after = number_in(request, "after");
    if (!after) {
        return answer(response, bad_request, "expected a frame's number in \"after\"");
    }
    auto const newest = view_.history->newest();
    if (newest && newest->number < *after) {
        after = 0;  // the visitor's numbers are of a recording before this one
    }
    auto const records = view_.history->after(*after == 0 ? 0 : *after - 1, records_asked);
    response.set_content(history_answer(records, *after, most_stretches), json_type);
}

void web_server::site::send_log(Request const& request, Response& response) const {
    auto const after = number_in(request, "after");
    if (!after) {
        return answer(response, bad_request, "expected a line's number in \"after\"");
    }
    response.set_content(log_answer(view_.log->after(*after)), json_type);
}

void web_server::site::add_control(char const* path, std::function<change_answer(std::string const& body)> control) {
    Post(path, [this, control = std::move(control)](Request const& request, Response& response) {
        busy_places::place const place(changes_);
        if (!place) {
            response.status = busy;
            response.set_content(
                written({.status = exit_status::timed_out, .lines = {"other changes are under way, try again"}}),
                json_type);
            return;
        }
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
    add_control("/control/table",
                [this](std::string const& body) { return view_.controls.calculate_table(read_table_request(body)); });
    add_control("/control/reload", [this](std::string const& body) {
        read_empty_request(body);
        return view_.controls.reload();
    });
    // A stop finds a place whatever else is under way.
    Post("/control/stop", [this](Request const& request, Response& response) {
        try {
            read_empty_request(request.body);
            answer(response, view_.controls.stop());
        } catch (setting_refused const& refused) {
            answer(response, change_answer{.status = refused.status(), .lines = {refused.what()}});
        }
    });
}

web_server::web_server(configuration const& chosen) : site_(std::make_unique<site>(chosen)) {}

web_server::~web_server() {
    close();
}

web_address const& web_server::address() const {
    return site_->address();
}

frame_watcher_like& web_server::watcher() {
    return site_->watcher();
}

void web_server::open(recording_view view) {
    site_->open(std::move(view));
    log_info("the page is at " + address().url());
}

void web_server::close() {
    site_->close();
}

}  // namespace mediagrabber
