/// \file
/// Answers of a camera, as the layer reads them itself: registers, with the client that asks for them, and discovery.
///
/// Input: steps of a length, a byte of what happens, and as many bytes of a datagram.

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "fuzz_input.hpp"
#include "gvcp_client.hpp"
#include "gvcp_message.hpp"
#include "loss_verdict.hpp"

namespace {

using datagram = std::vector<std::byte>;

/// What the network does until the input ends.
struct network {
    struct event {
        int error = 0;  ///< 0: a datagram comes
        datagram bytes;
    };
    std::deque<event> events;
    datagram sent;
    datagram last;  ///< that was received
    int send_error = 0;
};
network wire;

// A byte of what happens.
constexpr uint8_t refused_bit = 1;
constexpr uint8_t error_bit = 2;
constexpr uint8_t fitting_bit = 4;  ///< the answer's kind and number are made those of the request
constexpr uint8_t unsendable_bit = 8;

}  // namespace

namespace openpv {

// The socket of the client is the input.
std::optional<udp_socket> udp_socket::bind(udp_endpoint /*local*/) {
    return udp_socket(-1);
}
udp_socket::udp_socket(udp_socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
udp_socket::~udp_socket() = default;
bool udp_socket::connect(udp_endpoint /*remote*/) {
    return true;
}
bool udp_socket::send(std::span<std::byte const> request) {
    wire.sent.assign(request.begin(), request.end());
    errno = wire.send_error;
    return wire.send_error == 0;
}
bool udp_socket::wait_readable(std::chrono::milliseconds /*timeout*/) const {
    return !wire.events.empty();
}
std::optional<udp_socket::datagram> udp_socket::receive(std::span<std::byte> memory) {
    auto const event = std::move(wire.events.front());
    wire.events.pop_front();
    if (event.error != 0) {
        errno = event.error;
        return std::nullopt;
    }
    std::ranges::copy(std::span(event.bytes).first(std::min(event.bytes.size(), memory.size())), memory.begin());
    wire.last = event.bytes;
    return datagram{event.bytes.size(), {}};
}

}  // namespace openpv

namespace {

using namespace openpv;

constexpr std::size_t number_at = 6;

/// Makes bytes an answer to the first request, as far as they go.
void make_fitting(datagram& bytes, uint16_t kind) {
    if (bytes.size() >= gvcp::header_bytes) {
        bytes[2] = std::byte{0};
        bytes[3] = static_cast<std::byte>(kind);
        bytes[number_at] = std::byte{0};
        bytes[number_at + 1] = std::byte{1};
    }
}

void check_printable(std::string const& text, std::size_t most) {
    require(text.size() <= most, "a text is no longer than its field");
    for (char const each : text) {
        require(each >= 0x20 && each < 0x7F, "a text of the network is printable");
    }
}

void check_identity(datagram const& message) {
    auto const found = gvcp::read_discovery_answer(message, 1);
    if (found) {
        require(message.size() >= gvcp::header_bytes + gvcp::discovery_data_bytes, "an identity is all there");
        require(found->mac >> 48U == 0, "a MAC address has 48 bits");
        check_printable(found->vendor, 32);
        check_printable(found->model, 32);
        check_printable(found->version, 32);
        check_printable(found->serial, 16);
        check_printable(found->user_name, 16);
    }
}

void check_answer(register_read answer, uint32_t value) {
    if (answer == register_read::answered) {
        require(wire.last.size() >= gvcp::header_bytes + sizeof value, "a value was received");
        uint32_t sent = 0;
        std::memcpy(&sent, wire.last.data() + gvcp::header_bytes, sizeof sent);
        require(value == __builtin_bswap32(sent), "the value is the one that was received");
    }
    if (answer == register_read::answered || answer == register_read::refused) {
        require(
            std::equal(wire.last.begin() + number_at, wire.last.begin() + number_at + 2, wire.sent.begin() + number_at),
            "an answer has the number of its request");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    constexpr uint16_t discovery_answer = 0x03;
    constexpr uint16_t register_answer = 0x81;
    fuzz_input input(data, size);
    wire = {};
    while (!input.empty()) {
        std::size_t const length = std::size_t{input.byte()} * 2;
        uint8_t const what = input.byte();
        auto const bytes = std::as_bytes(input.bytes(length));
        datagram message(bytes.begin(), bytes.end());
        if ((what & fitting_bit) != 0) {
            make_fitting(message, discovery_answer);
        }
        check_identity(message);
        if ((what & fitting_bit) != 0) {
            make_fitting(message, register_answer);
        }
        int const error = (what & refused_bit) != 0 ? ECONNREFUSED : (what & error_bit) != 0 ? EAGAIN : 0;
        wire.send_error = (what & unsendable_bit) != 0 ? ENETUNREACH : 0;
        wire.events.push_back({error, std::move(message)});
    }
    auto client = gvcp_client::open({}, {});
    std::chrono::steady_clock::time_point now{};
    loss_verdict verdict(now);
    for (int i = 0; i < 4; ++i) {
        uint32_t value = 0;
        register_read const answer =
            client->read(gvcp::reg::control_channel_privilege, std::chrono::seconds(60), value);
        check_answer(answer, value);
        verdict.add(answer, value, now += std::chrono::milliseconds(250));
    }
    return 0;
}
