#include "telemetry/broker_login.hpp"

#include <sys/stat.h>

#include <stdexcept>

#include "bounded_file.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t largest_file = 1U << 20U;
constexpr std::size_t longest_password = 1024;
constexpr mode_t of_others = S_IRWXO;

void check_secret(std::filesystem::path const& file) {
    struct stat found {};
    if (stat(file.c_str(), &found) == 0 && (found.st_mode & of_others) != 0) {
        throw std::runtime_error("is open to every user of this machine, expected rights as `chmod o= FILE` gives");
    }
}

}  // namespace

std::string read_password(std::filesystem::path const& file) {
    check_secret(file);
    auto const text = read_bounded_file(file, largest_file);
    auto password = text.substr(0, text.find_first_of("\r\n"));
    if (password.empty() || password.size() > longest_password || password.find('\0') != password.npos) {
        throw std::runtime_error("has no password in its first line, expected 1 to 1024 bytes");
    }
    return password;
}

void check_pem(std::filesystem::path const& file) {
    if (read_bounded_file(file, largest_file).find("-----BEGIN ") == std::string::npos) {
        throw std::runtime_error("has nothing in PEM, expected \"-----BEGIN ...\"");
    }
}

void check_key(std::filesystem::path const& file) {
    check_secret(file);
    check_pem(file);
}

broker_login login_of(configuration const& chosen) {
    broker_login login{.address = parse_broker_address(*chosen.mqtt_broker),
                       .username = chosen.mqtt_username,
                       .password = {},
                       .ca_file = chosen.mqtt_ca_file,
                       .certificate_file = chosen.mqtt_certificate_file,
                       .key_file = chosen.mqtt_key_file};
    if (chosen.mqtt_password_file) {
        try {
            login.password = read_password(*chosen.mqtt_password_file);
        } catch (std::exception const& error) {
            throw std::runtime_error("mqtt.password_file: " + *chosen.mqtt_password_file + ": " + error.what());
        }
    }
    return login;
}

}  // namespace mediagrabber
