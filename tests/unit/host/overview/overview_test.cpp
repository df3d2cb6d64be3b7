// SPDX-License-Identifier: MIT
#include "overview/overview.hpp"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

#include "base/file_handle.hpp"
#include "overview/page_request.hpp"
#include "sample_status.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using nlohmann::json;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

constexpr char token[] = "0123456789abcdefABCDEF";
constexpr std::chrono::seconds deadline{20};

std::string jpeg(char content) {
    return std::string("\xFF\xD8\xFF") + content;
}

/// The live page of a recording on another machine, as a test scripts it.
class other_machine {
public:
    other_machine() {
        server_.Get("/status.json", [this](httplib::Request const& request, httplib::Response& response) {
            answer(request, response, status, "application/json");
        });
        server_.Get("/frame.jpg", [this](httplib::Request const& request, httplib::Response& response) {
            response.set_header("X-Frame", "7");
            answer(request, response, image, image_type);
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) {  // stop() has no effect before
            std::this_thread::yield();
        }
    }
    ~other_machine() {
        server_.stop();
        thread_.join();
    }
    other_machine(other_machine const&) = delete;
    other_machine& operator=(other_machine const&) = delete;

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

    std::string status = sample_status("other").dump();
    std::string image = jpeg('a');
    std::string image_type = "image/jpeg";
    std::string required;  ///< token; empty: none
    std::atomic<int> code = 200;
    std::atomic<int> requests = 0;

private:
    void answer(httplib::Request const& request, httplib::Response& response, std::string const& body,
                std::string const& type) {
        ++requests;
        if (!required.empty() && request.get_header_value("Authorization") != "Bearer " + required) {
            response.status = 401;
            return;
        }
        response.status = code;
        if (code == 302) {
            response.set_header("Location", "/status.json?again");
        }
        response.set_content(body, type.c_str());
    }

    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

/// Accepts connections and sends some bytes on each; never an answer that ends.
class silent_machine {
public:
    explicit silent_machine(std::string bytes = "") : listening_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const plain = reinterpret_cast<sockaddr*>(&address);
        if (bind(listening_.get(), plain, size) != 0 || listen(listening_.get(), 8) != 0 ||
            getsockname(listening_.get(), plain, &size) != 0) {
            throw std::runtime_error("no socket");
        }
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this, bytes = std::move(bytes)] {
            while (true) {
                mediagrabber::file_handle const connection(accept(listening_.get(), nullptr, nullptr));
                if (!connection) {
                    return;
                }
                ++connections_;
                while (!bytes.empty() && send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
                }
                char unread = 0;
                while (recv(connection.get(), &unread, 1, 0) > 0) {
                }
            }
        });
    }
    ~silent_machine() {
        shutdown(listening_.get(), SHUT_RDWR);
        thread_.join();
    }
    silent_machine(silent_machine const&) = delete;
    silent_machine& operator=(silent_machine const&) = delete;

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }
    /// \return the number of connections that it has accepted so far
    int connections() const { return connections_; }

private:
    mediagrabber::file_handle listening_;
    int port_ = 0;
    std::atomic<int> connections_{0};
    std::thread thread_;
};

/// A port at which nobody listens.
std::string dead_url() {
    return other_machine().url();
}

page_answer get(std::string const& url, request_limits const& limits = {}, std::string const& authorization = "") {
    return get_page(url, authorization, limits, {});
}

/// A status with another value of `saved`.
std::string with_saved(json const& value) {
    auto status = sample_status("left");
    status["counts"]["saved"] = value;
    return status.dump();
}

class Overview : public testing::Test {
protected:
    void open(std::vector<watched_page> const& machines) {
        shown = std::make_unique<overview>(machines, [this] {
            ++searches;
            std::lock_guard const lock(mutex);
            if (!search_error.empty()) {
                throw std::runtime_error(search_error);
            }
            return local;
        });
    }
    void find(std::vector<local_recording> recordings) {
        std::lock_guard const lock(mutex);
        local = std::move(recordings);
    }
    json response() const { return json::parse(shown->response()); }
    json recording(std::size_t at) const {
        auto const list = response().at("recordings");
        return at < list.size() ? list[at] : json();
    }
    /// Looks at the overview until the condition holds. \return the recording
    json wait(std::size_t at, std::function<bool(json const&)> const& condition) const {
        for (auto const end = std::chrono::steady_clock::now() + deadline; std::chrono::steady_clock::now() < end;) {
            if (auto const one = recording(at); !one.is_null() && condition(one)) {
                return one;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ADD_FAILURE() << "timed out; the last response: " << response().dump(2);
        return json::object();
    }
    http_response respond(std::string const& path, std::string const& id = "") const {
        for (auto const& one : shown->pages()) {
            if (one.path == path) {
                http_request request;
                request.parameters["id"] = id;
                http_response response;
                one.respond(request, response);
                return response;
            }
        }
        throw std::runtime_error("no page " + path);
    }

    std::mutex mutex;
    std::vector<local_recording> local;
    std::string search_error;
    std::atomic<int> searches = 0;
    std::unique_ptr<overview> shown;
};

bool has_image(json const& one) {
    return one.at("image") != 0;
}

bool has_error(json const& one) {
    return one.at("error") != "";
}

}  // namespace

TEST(PageRequest, ReturnsStatusTypeFrameNumberAndBody) {
    other_machine const machine;
    auto const answer = get(machine.url() + "frame.jpg");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.type, "image/jpeg");
    EXPECT_EQ(answer.frame, 7);
    EXPECT_EQ(answer.body, jpeg('a'));
}

TEST(PageRequest, SendsTheAuthorization) {
    other_machine machine;
    machine.required = token;
    EXPECT_EQ(get(machine.url() + "status.json").status, 401);
    EXPECT_EQ(get(machine.url() + "status.json", {}, std::string("Bearer ") + token).status, 200);
}

TEST(PageRequest, FollowsNoRedirect) {
    other_machine machine;
    machine.code = 302;
    EXPECT_EQ(get(machine.url() + "status.json").status, 302);
    EXPECT_EQ(machine.requests, 1);
}

TEST(PageRequest, UsesNoOtherProtocol) {
    EXPECT_THROW(get("file:///etc/passwd"), std::runtime_error);
    EXPECT_THROW(get("ftp://127.0.0.1/"), std::runtime_error);
}

TEST(PageRequest, UsesNoProxyOfTheEnvironment) {
    other_machine const machine;
    setenv("http_proxy", dead_url().c_str(), 1);
    auto const status = get(machine.url() + "status.json").status;
    unsetenv("http_proxy");
    EXPECT_EQ(status, 200);
}

TEST(PageRequest, EndsAnAnswerThatIsTooLarge) {
    other_machine machine;
    machine.status = std::string(1001, 'x');
    EXPECT_THAT([&] { get(machine.url() + "status.json", {.body_bytes = 1000}); },
                ThrowsMessage<std::runtime_error>("the answer's body is larger than 1000 bytes"));
    EXPECT_EQ(get(machine.url() + "status.json", {.body_bytes = 1001}).body.size(), 1001);
}

TEST(PageRequest, EndsABodyWithoutEnd) {
    silent_machine const machine("HTTP/1.1 200 OK\r\n\r\n" + std::string(1000, 'x'));
    EXPECT_THAT([&] { get(machine.url()); },
                ThrowsMessage<std::runtime_error>(HasSubstr("body is larger than 262144 bytes")));
}

TEST(PageRequest, EndsAHeaderWithoutEnd) {
    silent_machine const machine("HTTP/1.1 100 Continue\r\nX: " + std::string(1000, 'x') + "\r\n\r\n");
    EXPECT_THAT([&] { get(machine.url()); },
                ThrowsMessage<std::runtime_error>(HasSubstr("header is larger than 16384 bytes")));
}

TEST(PageRequest, EndsAtItsTimeLimit) {
    silent_machine const machine;
    EXPECT_THAT([&] { get(machine.url(), {.time = std::chrono::milliseconds(100)}); },
                ThrowsMessage<std::runtime_error>("no complete answer within 0.1 s"));
}

TEST(PageRequest, ReportsWhyThereIsNoConnection) {
    auto const url = dead_url();
    EXPECT_THAT([&] { get(url); }, ThrowsMessage<std::runtime_error>(HasSubstr("Connection refused")));
}

TEST(PageRequest, EndsWithAStop) {
    silent_machine const machine;
    std::stop_source stop;
    stop.request_stop();
    auto const begun = std::chrono::steady_clock::now();
    EXPECT_THROW(get_page(machine.url(), "", {.time = std::chrono::minutes(5)}, stop.get_token()), std::runtime_error);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, deadline);
}

TEST_F(Overview, ShowsSummaryAndImageOfAnotherMachine) {
    other_machine const machine;
    open({{.url = machine.url(), .name = "hall 3"}});
    auto const one = wait(0, has_image);
    EXPECT_EQ(one.at("place"), "hall 3");
    EXPECT_EQ(one.at("link"), machine.url());
    EXPECT_EQ(one.at("error"), "");
    EXPECT_EQ(one.at("image_error"), "");
    EXPECT_EQ(one.at("summary"), json_of(read_summary(machine.status)));
    auto const image = respond("/image.jpg", one.at("id").dump());
    EXPECT_EQ(image.status, 200);
    EXPECT_EQ(image.headers.at("Content-Type"), "image/jpeg");
    EXPECT_EQ(image.body, jpeg('a'));
}

TEST_F(Overview, UsesTheTokenOfTheMachine) {
    other_machine machine;
    machine.required = token;
    open({{.url = machine.url(), .authorization = std::string("Bearer ") + token}});
    wait(0, has_image);
}

TEST_F(Overview, ReportsThatAPageRequiresAnotherToken) {
    other_machine machine;
    machine.required = token;
    other_machine other;
    other.required = token;
    open({{.url = machine.url()}, {.url = other.url(), .authorization = "Bearer wrong"}});
    EXPECT_EQ(wait(0, has_error).at("error"), "the page requires a token: name its file in token_file");
    EXPECT_EQ(wait(1, has_error).at("error"), "the page refuses the token");
}

TEST_F(Overview, ShowsMachinesThatDoNotRespondWithTheReasonWhileTheOthersGoOn) {
    other_machine const machine;
    silent_machine const silent;
    silent_machine const endless("HTTP/1.1 200 OK\r\n\r\n{");
    open({{.url = silent.url()}, {.url = dead_url()}, {.url = endless.url()}, {.url = machine.url()}});
    wait(3, has_image);
    EXPECT_EQ(recording(0).at("summary"), nullptr) << "its time limit is over already";
    EXPECT_THAT(wait(1, has_error).at("error").get<std::string>(), HasSubstr("Connection refused"));
    EXPECT_THAT(wait(2, has_error).at("error").get<std::string>(), HasSubstr("larger than"));
    EXPECT_THAT(wait(0, has_error).at("error").get<std::string>(), HasSubstr("no complete answer within 3 s"));
    EXPECT_TRUE(has_image(recording(3)));
}

TEST_F(Overview, ShowsNoOldValuesOfAMachineThatHasGone) {
    auto machine = std::make_unique<other_machine>();
    open({{.url = machine->url()}});
    auto const id = wait(0, has_image).at("id").dump();
    machine.reset();
    auto const one = wait(0, has_error);
    EXPECT_EQ(one.at("summary"), nullptr);
    EXPECT_EQ(one.at("image"), 0);
    EXPECT_EQ(respond("/image.jpg", id).status, 404);
}

TEST_F(Overview, AcceptsOnlyTheStatusOfARecordingAndJpegImages) {
    other_machine no_status;
    no_status.status = "<script>alert(1)</script>";
    other_machine no_image;
    no_image.image = "<svg onload='alert(1)'/>";
    other_machine other_type;
    other_type.image_type = "text/html";
    other_machine large;
    large.image = jpeg('x') + std::string(5U << 20U, 'x');
    other_machine huge_count;
    huge_count.status = with_saved(1e300);
    other_machine negative_count;
    negative_count.status = with_saved(-1);
    open({{.url = no_status.url()},
          {.url = no_image.url()},
          {.url = other_type.url()},
          {.url = large.url()},
          {.url = huge_count.url()},
          {.url = negative_count.url()}});
    auto const has_image_error = [](json const& one) { return one.at("image_error") != ""; };
    EXPECT_EQ(wait(0, has_error).at("error"), "the answer is not the status of a recording");
    EXPECT_EQ(wait(4, has_error).at("error"), "the answer is not the status of a recording");
    EXPECT_EQ(wait(5, has_error).at("error"), "the answer is not the status of a recording");
    EXPECT_EQ(wait(1, has_image_error).at("image_error"), "the answer is not a JPEG image");
    EXPECT_EQ(wait(2, has_image_error).at("image_error"), "the answer is not a JPEG image");
    EXPECT_EQ(wait(3, has_image_error).at("image_error"), "the answer's body is larger than 4194304 bytes");
    for (auto const* const id : {"1", "2", "3", "4", "5", "0", "", "x", "18446744073709551616"}) {
        EXPECT_EQ(respond("/image.jpg", id).status, 404) << id;
    }
}

TEST_F(Overview, SendsNoRequestsWithoutViewers) {
    other_machine const machine;
    std::atomic<int> unwatched_searches = 0;
    overview const unwatched({{.url = machine.url()}}, [&] {
        ++unwatched_searches;
        return std::vector<local_recording>();
    });
    other_machine const seen;
    open({{.url = seen.url()}});  // its threads start later
    wait(0, [&](json const& one) { return has_image(one) && searches > 1; });
    EXPECT_EQ(machine.requests, 0);
    EXPECT_EQ(unwatched_searches, 0);
}

TEST_F(Overview, ShowsRecordingsOfThisMachine) {
    other_machine const page;
    auto status = sample_status("left");
    find({{.place = "mediagrabber@left", .status = status.dump(), .page = page.url()},
          {.place = "/run/right.sock", .status = status.dump()},
          {.place = "/run/stuck.sock", .error = "does not answer"}});
    open({});
    // In the order of their names.
    auto const right = wait(0, [](json const& one) { return one.at("place") == "/run/right.sock"; });
    EXPECT_EQ(right.at("summary").at("name"), "left");
    EXPECT_EQ(right.at("image_error"), "no live page (web.address)");
    EXPECT_EQ(right.at("link"), nullptr);
    auto const stuck = recording(1);
    EXPECT_EQ(stuck.at("error"), "does not answer");
    EXPECT_EQ(stuck.at("summary"), nullptr);
    auto const left = wait(2, has_image);
    EXPECT_EQ(left.at("link"), page.url());
    EXPECT_EQ(respond("/image.jpg", left.at("id").dump()).body, jpeg('a'));
}

TEST_F(Overview, ReachesALocalPageWithItsTokenAndAtAllAddresses) {
    temporary_directory const directory;
    std::ofstream(directory.path() / "token") << token << '\n';
    std::filesystem::permissions(directory.path() / "token", std::filesystem::perms::owner_read);
    other_machine page;
    page.required = token;
    std::string any = page.url();
    any.replace(any.find("127.0.0.1"), std::string("127.0.0.1").size(), "0.0.0.0");
    local_recording one{.place = "left",
                        .status = sample_status("left").dump(),
                        .page = any,
                        .link = "https://camera.example/",
                        .token_file = directory.path() / "token"};
    find({one});
    open({});
    EXPECT_EQ(wait(0, has_image).at("link"), "https://camera.example/");
    one.token_file = directory.path() / "none";
    find({one});
    auto const without = wait(0, [](json const& shown) { return !has_image(shown); });
    EXPECT_THAT(without.at("image_error").get<std::string>(), HasSubstr("none: No such file or directory"));
    EXPECT_EQ(without.at("summary").at("saved"), 60) << "the state does not need the page";
}

TEST_F(Overview, ForgetsRecordingsThatHaveEndedAndKeepsTheNumbersOfOthers) {
    auto const status = sample_status("left").dump();
    find({{.place = "a", .status = status}, {.place = "b", .status = status}});
    open({});
    auto const id = wait(1, [](json const&) { return true; }).at("id");
    find({{.place = "b", .status = status}});
    auto const left = wait(0, [](json const& one) { return one.at("place") == "b"; });
    EXPECT_EQ(left.at("id"), id);
    EXPECT_EQ(response().at("recordings").size(), 1);
}

TEST_F(Overview, ShowsALocalPageThatIsListedOnlyOnce) {
    other_machine const page;
    find({{.place = "left", .status = sample_status("left").dump(), .page = page.url()}});
    open({{.url = page.url(), .name = "listed"}});
    wait(0, has_image);
    int const before = searches;
    wait(0, [&](json const&) { return searches > before + 1; });
    EXPECT_EQ(response().at("recordings").size(), 1);
}

TEST_F(Overview, EndsPromptlyAlthoughItHasAViewerAndAMachineDoesNotRespond) {
    silent_machine const silent;
    other_machine const machine;
    open({{.url = silent.url()}, {.url = machine.url()}});
    wait(1, has_image);
    auto const begun = std::chrono::steady_clock::now();
    shown.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(2'800));  // below all time limits
}

TEST_F(Overview, EndsPromptlyAlthoughPagesOfThisMachineDoNotRespond) {
    std::vector<std::unique_ptr<silent_machine>> silent;
    std::vector<local_recording> recordings;
    for (int i = 0; i < 12; ++i) {
        silent.push_back(std::make_unique<silent_machine>());
        recordings.push_back(
            {.place = std::to_string(i), .status = sample_status("left").dump(), .page = silent.back()->url()});
    }
    find(recordings);
    open({});
    wait(11, [&](json const&) {
        return std::ranges::all_of(silent, [](auto const& one) { return one->connections() > 0; });
    });
    auto const begun = std::chrono::steady_clock::now();
    shown.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(2'800));  // each takes half a second
}

TEST_F(Overview, ReportsThatTheSearchFailed) {
    search_error = "no descriptors are left";
    open({});
    for (auto const end = std::chrono::steady_clock::now() + deadline;
         response().at("error") == "" && std::chrono::steady_clock::now() < end;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(response().at("error"), "no descriptors are left");
}

TEST_F(Overview, ReplacesTextThatIsNotValidUtf8) {
    find({{.place = "left", .error = "\xFF\xFE"}});
    open({});
    EXPECT_EQ(wait(0, has_error).at("error"), "\uFFFD\uFFFD");
}

TEST_F(Overview, IsServedWithTheRulesOfTheLivePage) {
    temporary_directory const directory;
    std::ofstream(directory.path() / "token") << token << '\n';
    std::filesystem::permissions(directory.path() / "token", std::filesystem::perms::owner_read);
    open({});
    web_configuration values;
    values.address = "127.0.0.1:0";
    values.token_file = (directory.path() / "token").string();
    web_server server(values, shown->pages());
    server.open({});
    httplib::Client client("127.0.0.1", server.address()->port);
    for (auto const* const path : {"/overview.json", "/image.jpg?id=1", "/overview.js"}) {
        EXPECT_EQ(client.Get(path)->status, 401) << path;
    }
    EXPECT_EQ(client.Get("/")->get_header_value("Location"), "/login");
    EXPECT_EQ(client.Get("/page.css")->status, 200);
    client.set_bearer_token_auth(token);
    for (auto const* const path : {"/", "/overview.json", "/overview.js", "/overview.css"}) {
        EXPECT_EQ(client.Get(path)->status, 200) << path;
    }
    EXPECT_THAT(client.Get("/")->get_header_value("Content-Security-Policy"), HasSubstr("default-src 'self'"));
    EXPECT_THAT(client.Get("/")->body, HasSubstr("/overview.js"));
    EXPECT_EQ(client.Get("/image.jpg?id=1")->status, 404);
    for (auto const* const path : {"/status.json", "/frame.jpg", "/metrics", "/page.js"}) {
        EXPECT_EQ(client.Get(path)->status, 404) << path << " is a recording's";
    }
    EXPECT_EQ(client.Post("/control/stop", "{}", "application/json")->status, 404);
    EXPECT_EQ(client.Get("/", {{"Host", "attacker.example"}})->status, 403);
    values.address = "127.0.0.1:" + std::to_string(server.address()->port);
    EXPECT_THROW(web_server(values, shown->pages()), std::runtime_error) << "the port is in use";
}
