// SPDX-License-Identifier: MIT
#include "web/access_token.hpp"

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/bounded_file.hpp"
#include "base/secret_file.hpp"
#include "config/web_address.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_token_file = 4'096;  ///< bytes
constexpr char how_to_create[] = "create one with: (umask 077; head -c 24 /dev/urandom | base64 >FILE)";

bool is_visible(char c) {
    return c > ' ' && c < '\x7F';
}

std::string without_line_end(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

}  // namespace

access_token::access_token(std::string secret) : secret_(std::move(secret)) {
    if (secret_.size() < min_token) {
        throw std::runtime_error("the token has " + std::to_string(secret_.size()) + " characters, expected at least " +
                                 std::to_string(min_token) + "; " + how_to_create);
    }
    if (!std::all_of(secret_.begin(), secret_.end(), is_visible)) {
        throw std::runtime_error(std::string("the token contains blanks or control characters; ") + how_to_create);
    }
}

access_token access_token::read(std::filesystem::path const& file) {
    if (std::error_code failed; !std::filesystem::exists(file, failed)) {
        auto const reason = failed ? failed : std::make_error_code(std::errc::no_such_file_or_directory);
        throw std::runtime_error(file.string() + ": " + reason.message() + "; " + how_to_create);
    }
    try {
        check_secret_file(file);
        return access_token(without_line_end(read_bounded_file(file, max_token_file)));
    } catch (std::runtime_error const& error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
}

bool access_token::matches(std::string_view offered) const {
    return same_in_constant_time(secret_, offered);
}

bool same_in_constant_time(std::string_view secret, std::string_view offered) {
    // NOLINTNEXTLINE(bugprone-signed-char-misuse,cert-str34-c): bits are compared, not numbers
    auto const bits = [](char c) { return static_cast<unsigned char>(c); };
    unsigned volatile difference = secret.size() == offered.size() ? 0U : 1U;
    for (std::size_t i = 0; i < offered.size(); ++i) {
        char const own = secret.empty() ? '\0' : secret[i % secret.size()];
        difference = difference | static_cast<unsigned>(bits(own) ^ bits(offered[i]));
    }
    return difference == 0U && !secret.empty();
}

void check_web_values(web_configuration const& values) {
    if (!values.address) {
        return;
    }
    auto const address = parse_web_address(*values.address);
    if (!address.loopback && !values.token_file) {
        throw std::runtime_error(*values.address +
                                 " is reachable from other machines and needs web.token_file (--web-token); " +
                                 how_to_create + ", or use 127.0.0.1:" + std::to_string(address.port));
    }
    if (values.public_origin && !values.token_file) {
        throw std::runtime_error("a page that is served at web.public_origin needs web.token_file (--web-token); " +
                                 std::string(how_to_create));
    }
}

}  // namespace mediagrabber
