// SPDX-License-Identifier: MIT
#include "control/control_server.hpp"

#include <gmock/gmock.h>

#include <future>

#include "base/message_line.hpp"
#include "base/unix_socket.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using namespace std::chrono_literals;

namespace {

/// A server whose changes wait until they are released.
class ControlServer : public testing::Test {
protected:
    void open() {
        server_->open([this](change_request const& request) {
            if (!request.is_change()) {
                return change_answer{.status = exit_status::success, .lines = {"at once"}};
            }
            begun_.set_value();
            released_.wait();
            return change_answer{.status = exit_status::success, .lines = {request.settings[0].path}};
        });
    }
    file_handle send(change_request const& request) const {
        auto connection = connect_to(path_);
        write_all(connection, written(request));
        return connection;
    }
    static std::string first_line(file_handle const& connection) {
        auto const line = read_line(connection, max_message, std::chrono::steady_clock::now() + 30s);
        return line ? read_answer(*line).lines.at(0) : "no answer";
    }
    static change_request change() {
        change_request request;
        request.settings = {{"gain.db", "1"}};
        return request;
    }
    static change_request query() {
        change_request request;
        request.asks_status = true;
        return request;
    }

    temporary_directory const directory_;
    std::filesystem::path const path_ = directory_.path() / "control";
    std::promise<void> begun_;
    std::promise<void> release_;
    std::shared_future<void> released_ = release_.get_future().share();
    std::unique_ptr<control_server> server_ = std::make_unique<control_server>(path_, std::nullopt);
};

}  // namespace

TEST_F(ControlServer, AnswersAQueryWhileAChangeWaits) {
    open();
    auto const waiting = send(change());
    begun_.get_future().wait();
    EXPECT_EQ(first_line(send(query())), "at once");
    release_.set_value();
    EXPECT_EQ(first_line(waiting), "gain.db");
}

TEST_F(ControlServer, AnswersWaitingChangesWhenItEnds) {
    open();
    auto const waiting = send(change());
    begun_.get_future().wait();
    auto ended = std::async(std::launch::async, [this] { server_.reset(); });
    release_.set_value();
    EXPECT_EQ(first_line(waiting), "gain.db");
    ended.get();
}

TEST_F(ControlServer, AnswersWhileOtherClientsSendNothing) {
    open();
    std::vector<file_handle> silent;
    for (int i = 0; i < 40; ++i) {
        silent.push_back(connect_to(path_));
    }
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(first_line(send(query())), "at once");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s) << "each of them may stay for half a second";
}

TEST_F(ControlServer, ReadsARequestThatArrivesInParts) {
    open();
    auto const connection = connect_to(path_);
    auto const request = written(query());
    write_all(connection, request.substr(0, 5));
    EXPECT_EQ(first_line(send(query())), "at once");
    write_all(connection, request.substr(5));
    EXPECT_EQ(first_line(connection), "at once");
}

TEST_F(ControlServer, DisconnectsAClientThatSendsNothing) {
    open();
    auto const connection = connect_to(path_);
    EXPECT_EQ(first_line(connection), "no answer");
}

TEST_F(ControlServer, DisconnectsAClientWhoseRequestIsTooLong) {
    open();
    auto const connection = connect_to(path_);
    write_all(connection, std::string(max_message + 1, 'x'));
    EXPECT_EQ(first_line(connection), "no answer");
}
