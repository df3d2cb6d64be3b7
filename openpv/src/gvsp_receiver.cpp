#include "gvsp_receiver.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "aravis_handle.hpp"
#include "aravis_result.hpp"
#include "block_queue.hpp"
#include "description_check.hpp"
#include "gev_stream_channel.hpp"
#include "gvcp_message.hpp"
#include "loss_report.hpp"
#include "receive_pace.hpp"

namespace openpv {
namespace {

/// A camera sends a block faster than it is taken from the socket when the machine is busy with something else; so
/// there is room for what comes in this time, for two blocks at least, and never less than so many bytes.
constexpr double busy_seconds = 0.1;
constexpr std::size_t fewest_blocks = 2;
constexpr std::size_t smallest_room = 8 << 20;

/// \return bytes, 0 when the camera does not tell, or tells of more than a buffer can have
std::size_t read_payload_size(ArvDevice& device) {
    ArvGcFeatureNode* const node = find_usable_feature(device, "PayloadSize");
    if (node == nullptr || !ARV_IS_GC_INTEGER(node)) {
        return 0;
    }
    error_slot error;
    int64_t const bytes = arv_gc_integer_get_value(ARV_GC_INTEGER(node), error.out());
    bool const sensible = bytes > 0 && bytes <= std::numeric_limits<uint32_t>::max();
    return error.get() == nullptr && sensible ? static_cast<std::size_t>(bytes) : 0;
}

/// \return frames a second, 0 when the camera does not tell
double read_frame_rate(ArvDevice& device) {
    ArvGcFeatureNode* const node = find_usable_feature(device, "AcquisitionFrameRate");
    if (node == nullptr || !ARV_IS_GC_FLOAT(node)) {
        return 0;
    }
    error_slot error;
    double const rate = arv_gc_float_get_value(ARV_GC_FLOAT(node), error.out());
    return error.get() == nullptr && std::isfinite(rate) ? std::max(rate, 0.0) : 0;
}

bool read_can_resend(ArvDevice& device) {
    error_slot error;
    uint32_t capability = 0;
    arv_device_read_register(&device, gvcp::reg::capability, &capability, error.out());
    return error.get() == nullptr && (capability & gvcp::capability_resend) != 0;
}

/// \return the port that the camera sends from, 0 when it does not tell
uint16_t read_source_port(ArvDevice& device) {
    error_slot error;
    uint32_t port = 0;
    arv_device_read_register(&device, gvcp::reg::stream_source_port, &port, error.out());
    return error.get() == nullptr ? static_cast<uint16_t>(port) : uint16_t{0};
}

void make_room(gvsp_socket& socket, ipv4_address camera, std::size_t payload_bytes, double frame_rate) {
    double const blocks = std::clamp(frame_rate * busy_seconds, static_cast<double>(fewest_blocks),
                                     static_cast<double>(block_queue::maximum));
    auto const wanted = static_cast<std::size_t>(blocks * static_cast<double>(payload_bytes));
    std::size_t const granted = socket.make_room(std::max(wanted, smallest_room));
    if (granted < fewest_blocks * payload_bytes) {
        warn_of_small_room(camera, granted, fewest_blocks * payload_bytes);
    }
}

}  // namespace

std::unique_ptr<gvsp_receiver> gvsp_receiver::make(ArvDevice& device, connection_id const& id, block_sink& sink,
                                                   bool streaming, PvResult& result) {
    auto socket = gvsp_socket::open(id.host);
    if (!socket) {
        result = {PvResult::Code::GENERIC_ERROR, "The stream cannot be opened: the host has no socket to give."};
        return nullptr;
    }
    gev_stream_channel channel(device, 0);
    gvsp_assembler::settings settings;
    result = channel.get_packet_size(settings.packet_bytes);
    if (result.IsOK()) {
        result = channel.set_destination({id.host, socket->local_port()});
    }
    if (!result.IsOK()) {
        return nullptr;
    }
    settings.can_resend = read_can_resend(device);
    if (streaming) {
        settings.payload_bytes = read_payload_size(device);
        make_room(*socket, id.camera, settings.payload_bytes, read_frame_rate(device));
    }
    socket->listen_to({id.camera, read_source_port(device)});
    return std::unique_ptr<gvsp_receiver>(new gvsp_receiver(std::move(*socket), id, settings, sink));
}

gvsp_receiver::gvsp_receiver(gvsp_socket socket, connection_id const& id, gvsp_assembler::settings const& settings,
                             block_sink& sink)
    : socket_(std::move(socket)),
      id_(id),
      settings_(settings),
      sink_(sink),
      diary_(id.camera, std::chrono::steady_clock::now()),
      given_(block_queue::maximum) {}

gvsp_receiver::~gvsp_receiver() {
    take_back();
}

void gvsp_receiver::give(PvBuffer::impl& buffer) {
    std::lock_guard const lock(mutex_);
    given_[(first_given_ + given_count_) % given_.size()] = &buffer;
    ++given_count_;
}

void gvsp_receiver::start() {
    if (!thread_.joinable()) {
        thread_ = std::jthread([this](std::stop_token const& stop) { receive(stop); });
    }
}

void gvsp_receiver::take_back() {
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
    std::lock_guard const lock(mutex_);
    given_count_ = 0;
}

void gvsp_receiver::receive(std::stop_token const& stop) {
    gvsp_assembler assembler(settings_, *this);
    while (!stop.stop_requested()) {
        socket_.wait();
        auto const now = std::chrono::steady_clock::now();
        socket_.for_each_packet([&](std::span<std::byte const> packet) { assembler.add(packet, now); });
        assembler.attend(now);
        diary_.attend(assembler.counters(), socket_.kernel_drops(), now);
        if (socket_.is_empty()) {
            std::this_thread::sleep_for(gathering_time(assembler.newest_block(), socket_.room(), now));
        }
    }
    assembler.stop();
    diary_.close(assembler.counters(), socket_.kernel_drops());
}

PvBuffer::impl* gvsp_receiver::next_buffer() {
    std::lock_guard const lock(mutex_);
    if (given_count_ == 0) {
        return nullptr;
    }
    PvBuffer::impl* const next = given_[first_given_];
    first_given_ = (first_given_ + 1) % given_.size();
    --given_count_;
    return next;
}

void gvsp_receiver::block_finished(PvBuffer::impl& buffer, received_block const& block) {
    sink_.block_finished(buffer, block);
}

/// From the socket that the packets come to: a firewall that lets one through lets the other through. There is no
/// answer but the packets.
void gvsp_receiver::ask_again(gvsp::resend_request const& request) {
    request_ = gvcp::next_request(request_);
    std::array<std::byte, gvsp::longest_resend_request> command{};
    std::size_t const bytes = gvsp::encode(request, request_, command);
    socket_.send_to({id_.camera, gvcp::port}, std::span(command).first(bytes));
}

}  // namespace openpv
