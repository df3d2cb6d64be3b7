// SPDX-License-Identifier: MIT
#include "overview/page_request.hpp"

#include <curl/curl.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace mediagrabber {

namespace {

struct transfer {
    request_limits const& limits;
    std::stop_token const& stop;
    page_answer answer;
    std::size_t header_bytes = 0;
    char const* exceeded = nullptr;  ///< the part of the answer that was too large
};

bool is_same_name(std::string_view one, std::string_view other) {
    return curl_strnequal(one.data(), other.data(), other.size()) != 0;
}

std::size_t on_header(char* data, std::size_t, std::size_t size, void* context) {
    auto& its = *static_cast<transfer*>(context);
    its.header_bytes += size;
    if (its.header_bytes > its.limits.header_bytes) {
        its.exceeded = "header";
        return 0;
    }
    std::string_view const line(data, size);
    constexpr std::string_view name = "X-Frame:";
    if (size > name.size() && is_same_name(line, name)) {
        auto const value = line.substr(std::min(line.find_first_not_of(' ', name.size()), size));
        std::from_chars(value.data(), value.data() + value.size(), its.answer.frame);
    }
    return size;
}

std::size_t on_body(char* data, std::size_t, std::size_t size, void* context) {
    auto& its = *static_cast<transfer*>(context);
    if (its.answer.body.size() + size > its.limits.body_bytes) {
        its.exceeded = "body";
        return 0;
    }
    its.answer.body.append(data, size);
    return size;
}

/// libcurl calls it about once a second. \return whether to end the transfer
int on_progress(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<transfer*>(context)->stop.stop_requested() ? 1 : 0;
}

/// libcurl's options have no types of their own.
template <typename value>
void set(CURL* handle, CURLoption option, value to) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg,hicpp-vararg): libcurl's interface
    if (auto const result = curl_easy_setopt(handle, option, to); result != CURLE_OK) {
        throw std::runtime_error(fmt::format("the request cannot be prepared: {}", curl_easy_strerror(result)));
    }
}

using header_list = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

header_list headers_with(std::string const& authorization) {
    header_list made(nullptr, &curl_slist_free_all);
    if (!authorization.empty()) {
        made.reset(curl_slist_append(nullptr, ("Authorization: " + authorization).c_str()));
        if (made == nullptr) {
            throw std::bad_alloc();
        }
    }
    return made;
}

/// \param cause  errno of a connection that failed; 0: another reason
std::string reason(CURLcode result, transfer const& its, char const* detail, long cause) {
    if (its.exceeded != nullptr) {
        return fmt::format("the answer's {} is larger than {} bytes", its.exceeded,
                           its.exceeded == std::string_view("body") ? its.limits.body_bytes : its.limits.header_bytes);
    }
    if (result == CURLE_OPERATION_TIMEDOUT) {
        return fmt::format("no complete answer within {:.3g} s", static_cast<double>(its.limits.time.count()) / 1e3);
    }
    if (result == CURLE_COULDNT_CONNECT && cause != 0) {
        return fmt::format("no connection: {}", std::generic_category().message(static_cast<int>(cause)));
    }
    return *detail == '\0' ? curl_easy_strerror(result) : detail;
}

}  // namespace

page_answer get_page(std::string const& url, std::string const& authorization, request_limits const& limits,
                     std::stop_token const& stop) {
    [[maybe_unused]] static auto const initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> const handle(curl_easy_init(), &curl_easy_cleanup);
    if (handle == nullptr) {
        throw std::bad_alloc();
    }
    transfer its{.limits = limits, .stop = stop, .answer = {}};
    std::array<char, CURL_ERROR_SIZE> detail{};
    auto const headers = headers_with(authorization);
    auto* const curl = handle.get();
    set(curl, CURLOPT_URL, url.c_str());
    set(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    set(curl, CURLOPT_PROXY, "");
    set(curl, CURLOPT_NOSIGNAL, 1L);
    set(curl, CURLOPT_QUICK_EXIT, 1L);  // do not wait for a name server that does not answer
    set(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(limits.time.count()));
    set(curl, CURLOPT_HTTPHEADER, headers.get());
    set(curl, CURLOPT_HTTP09_ALLOWED, 0L);
    set(curl, CURLOPT_ERRORBUFFER, detail.data());
    set(curl, CURLOPT_HEADERFUNCTION, &on_header);
    set(curl, CURLOPT_HEADERDATA, &its);
    set(curl, CURLOPT_WRITEFUNCTION, &on_body);
    set(curl, CURLOPT_WRITEDATA, &its);
    set(curl, CURLOPT_NOPROGRESS, 0L);
    set(curl, CURLOPT_XFERINFOFUNCTION, &on_progress);
    set(curl, CURLOPT_XFERINFODATA, &its);
    auto const result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        long cause = 0;
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg,hicpp-vararg): libcurl's interface
        curl_easy_getinfo(curl, CURLINFO_OS_ERRNO, &cause);
        throw std::runtime_error(reason(result, its, detail.data(), cause));
    }
    long status = 0;
    char const* type = nullptr;
    // NOLINTBEGIN(cppcoreguidelines-pro-type-vararg,hicpp-vararg): libcurl's interface
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
    // NOLINTEND(cppcoreguidelines-pro-type-vararg,hicpp-vararg)
    its.answer.status = static_cast<int>(status);
    its.answer.type = type == nullptr ? "" : type;
    return std::move(its.answer);
}

}  // namespace mediagrabber
