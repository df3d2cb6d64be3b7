// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace mediagrabber {

/// Orders names of headers, which are case-insensitive.
struct case_insensitive_less {
    using is_transparent = void;
    bool operator()(std::string_view left, std::string_view right) const;
};

/// A request, complete but for its body while access is checked.
struct http_request {
    std::string method;
    std::string path;                                                   ///< decoded, without the query
    std::string remote;                                                 ///< the client's numeric address
    std::map<std::string, std::string, case_insensitive_less> headers;  ///< the first value of each name
    std::map<std::string, std::string, std::less<>> parameters;         ///< of the query, decoded
    std::string body;
    std::shared_ptr<void> held;  ///< what the request occupies until its response has been sent

    /// \return the value, empty if the header is absent
    std::string header(std::string_view name) const;
    /// \return the value, empty if the parameter is absent
    std::string parameter(std::string_view name) const;
    /// \return the value of a field in a body of the type application/x-www-form-urlencoded, empty if it is absent
    std::string form_field(std::string_view name) const;
};

/// A response, filled by a handler.
struct http_response {
    int status = 200;
    std::map<std::string, std::string> headers;
    std::string body;
    /// If set, the response has no end, and its body consists of what this function returns; null: nothing yet. It must
    /// not wait. http_server::resume_streams() makes the server call it again.
    std::function<std::shared_ptr<std::string const>()> next_part{};

    void set_header(std::string name, std::string value) {
        headers.insert_or_assign(std::move(name), std::move(value));
    }
    void set_content(std::string content, std::string type) {
        body = std::move(content);
        set_header("Content-Type", std::move(type));
    }
    void redirect(std::string to, int with_status) {
        status = with_status;
        set_header("Location", std::move(to));
    }
};

}  // namespace mediagrabber
