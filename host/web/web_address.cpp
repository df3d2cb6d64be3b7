#include "web/web_address.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <charconv>
#include <stdexcept>

namespace mediagrabber {

namespace {

[[noreturn]] void refuse(std::string_view text) {
    throw std::runtime_error("\"" + std::string(text) +
                             "\" is refused, expected ADDRESS:PORT, the address in numbers or \"localhost\" and the"
                             " port from 0 to 65535 (0: any that is free), as 127.0.0.1:8080 or [::1]:8080");
}

bool is_loopback(in_addr const& address) {
    return (ntohl(address.s_addr) >> 24U) == 127U;
}

/// Fills in the family and what is known of the address. \return whether it is one
bool read_host(std::string_view host, bool in_brackets, web_address& into) {
    into.host = host == "localhost" ? "127.0.0.1" : std::string(host);
    in6_addr six{};
    in_addr four{};
    if (in_brackets && inet_pton(AF_INET6, into.host.c_str(), &six) == 1) {
        into.six = true;
        into.loopback = IN6_IS_ADDR_LOOPBACK(&six);
        return true;
    }
    if (!in_brackets && inet_pton(AF_INET, into.host.c_str(), &four) == 1) {
        into.loopback = is_loopback(four);
        return true;
    }
    return false;
}

}  // namespace

web_address parse_web_address(std::string_view text) {
    auto const colon = text.rfind(':');
    if (colon == text.npos) {
        refuse(text);
    }
    auto host = text.substr(0, colon);
    bool const in_brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (in_brackets) {
        host = host.substr(1, host.size() - 2);
    }
    web_address read;
    auto const port = text.substr(colon + 1);
    auto const [end, error] = std::from_chars(port.data(), port.data() + port.size(), read.port);
    bool const whole = error == std::errc() && end == port.data() + port.size();
    if (!whole || !read_host(host, in_brackets, read)) {
        refuse(text);
    }
    return read;
}

}  // namespace mediagrabber
