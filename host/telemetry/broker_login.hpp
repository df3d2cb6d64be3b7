#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "configuration.hpp"
#include "telemetry/broker_address.hpp"

namespace mediagrabber {

/// All that it takes to be let in by a broker, and to know that it is the right one.
struct broker_login {
    broker_address address;
    std::optional<std::string> username;
    std::optional<std::string> password;
    std::optional<std::string> ca_file;  ///< empty: the system's authorities
    std::optional<std::string> certificate_file;
    std::optional<std::string> key_file;
};

/// The first line of a file that no other user may read or change. \throws std::runtime_error with what is wrong,
/// without the file's name
std::string read_password(std::filesystem::path const& file);
/// Sees to it that a file has something in PEM. \throws std::runtime_error the same way
void check_pem(std::filesystem::path const& file);
/// Sees to it that a file has a key that no other user may read or change. \throws std::runtime_error the same way
void check_key(std::filesystem::path const& file);

/// With mqtt.broker configured. \throws std::runtime_error with a message for the operator
broker_login login_of(configuration const& chosen);

}  // namespace mediagrabber
