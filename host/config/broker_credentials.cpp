// SPDX-License-Identifier: MIT
#include "config/broker_credentials.hpp"

#include <fmt/format.h>

#include <stdexcept>

#include "base/bounded_file.hpp"
#include "base/secret_file.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_file = 1U << 20U;  ///< bytes; certificate bundles have a quarter of that
constexpr std::size_t max_password = 1024;   ///< bytes

}  // namespace

std::string read_password(std::filesystem::path const& file) {
    check_secret_file(file);
    auto const text = read_bounded_file(file, max_file);
    auto password = text.substr(0, text.find_first_of("\r\n"));
    if (password.empty() || password.size() > max_password || password.find('\0') != password.npos) {
        throw std::runtime_error("does not have a password of 1 to 1024 bytes in its first line");
    }
    return password;
}

void check_pem(std::filesystem::path const& file) {
    if (read_bounded_file(file, max_file).find("-----BEGIN ") == std::string::npos) {
        throw std::runtime_error("does not contain PEM, expected \"-----BEGIN ...\"");
    }
}

void check_key(std::filesystem::path const& file) {
    check_secret_file(file);
    check_pem(file);
}

broker_credentials credentials_of(mqtt_configuration const& chosen) {
    broker_credentials found{.address = parse_broker_address(*chosen.broker),
                             .username = chosen.username,
                             .password = {},
                             .ca_file = chosen.ca_file,
                             .certificate_file = chosen.certificate_file,
                             .key_file = chosen.key_file};
    if (chosen.password_file) {
        try {
            found.password = read_password(*chosen.password_file);
        } catch (std::exception const& error) {
            throw std::runtime_error(fmt::format("mqtt.password_file: {}: {}", *chosen.password_file, error.what()));
        }
    }
    return found;
}

}  // namespace mediagrabber
