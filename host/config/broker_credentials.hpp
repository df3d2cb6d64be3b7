// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "config/broker_address.hpp"
#include "config/configuration.hpp"

namespace mediagrabber {

/// Address, credentials and TLS files for the connection to an MQTT broker.
struct broker_credentials {
    broker_address address;
    std::optional<std::string> username;
    std::optional<std::string> password;
    std::optional<std::string> ca_file;  ///< empty: the system's certificate authorities
    std::optional<std::string> certificate_file;
    std::optional<std::string> key_file;
};

/// Reads a password from the first line of a file, which other users must not be able to access.
/// \throws std::runtime_error with the error, without the file's name
std::string read_password(std::filesystem::path const& file);
/// Checks that a file contains PEM. \throws std::runtime_error as read_password()
void check_pem(std::filesystem::path const& file);
/// Checks that a file contains PEM and that other users cannot access it. \throws std::runtime_error as read_password()
void check_key(std::filesystem::path const& file);

/// Reads the password file. `chosen.broker` must be configured.
/// \throws std::runtime_error with a message for the user
broker_credentials credentials_of(mqtt_configuration const& chosen);

}  // namespace mediagrabber
