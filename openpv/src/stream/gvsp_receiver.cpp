// SPDX-License-Identifier: MIT
#include "stream/gvsp_receiver.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <limits>
#include <utility>

#include <pthread.h>

#include "genicam/node_graph.hpp"
#include "gvcp/gvcp_message.hpp"
#include "gvsp/block_queue.hpp"
#include "gvsp/packet_loss_report.hpp"
#include "gvsp/receive_coalescing.hpp"
#include "stream/stream_channel.hpp"

namespace openpv {
namespace {

/// The receive buffer holds what the camera sends while the receiver's thread gets no processor time: 0.1 s of blocks,
/// at least two, because a camera sends one block at line rate, and at least 8 MB if the payload size is unknown.
constexpr double busy_time_s = 0.1;
constexpr std::size_t min_blocks = 2;
constexpr std::size_t min_buffer_bytes = 8 << 20;

/// \return the value of an integer or enumeration; 0 if the camera does not report it, or reports more than 32 bits
std::uint32_t read_number(node_graph& features, char const* name) {
    node* const feature = features.find_usable(name);
    evaluation state;
    std::int64_t value = 0;
    bool const number = feature != nullptr && (feature->type() == PvGenTypeInteger || feature->type() == PvGenTypeEnum);
    bool const known = number && feature->read(state, value);
    bool const plausible = value > 0 && value <= std::numeric_limits<std::uint32_t>::max();
    return known && plausible ? static_cast<std::uint32_t>(value) : 0;
}

gvsp::image_size read_image_size(node_graph& features) {
    std::uint32_t const width = read_number(features, "Width");
    std::uint32_t const height = read_number(features, "Height");
    std::uint32_t const format = read_number(features, "PixelFormat");
    bool const known = width != 0 && height != 0 && format != 0;
    return known ? gvsp::size_of_image(width, height, format, 0) : gvsp::image_size{};
}

/// \return frames per second; 0 if the camera does not report it
double read_frame_rate(node_graph& features) {
    node* const feature = features.find_usable("AcquisitionFrameRate");
    evaluation state;
    double rate = 0;
    bool const known = feature != nullptr && feature->type() == PvGenTypeFloat && feature->read(state, rate);
    return known && std::isfinite(rate) ? std::max(rate, 0.0) : 0;
}

bool read_can_resend(register_port& registers) {
    std::uint32_t capability = 0;
    registers.read_register(gvcp::reg::capability, capability);
    return (capability & gvcp::capability_resend) != 0;
}

/// \return source port of the stream; 0 if the camera does not report it
std::uint16_t read_source_port(register_port& registers) {
    std::uint32_t port = 0;
    registers.read_register(gvcp::reg::stream_source_port, port);
    return static_cast<std::uint16_t>(port);
}

void size_receive_buffer(gvsp_socket& socket, ipv4_address camera, std::size_t payload_bytes, double frame_rate) {
    double const blocks = std::clamp(frame_rate * busy_time_s, static_cast<double>(min_blocks),
                                     static_cast<double>(block_queue::max_buffers));
    auto const wanted = static_cast<std::size_t>(blocks * static_cast<double>(payload_bytes));
    std::size_t const granted = socket.set_receive_buffer(std::max(wanted, min_buffer_bytes));
    if (granted < min_blocks * payload_bytes) {
        warn_small_receive_buffer(camera, granted, min_blocks * payload_bytes);
    }
}

}  // namespace

std::unique_ptr<gvsp_receiver> gvsp_receiver::make(register_port& registers, node_graph& features,
                                                   connection_id const& id, block_sink& sink, bool streaming,
                                                   bool controlled, PvResult& result) {
    stream_channel channel(registers, features, 0);
    udp_endpoint destination;
    result = channel.get_destination(destination);
    if (!result.IsOK()) {
        return nullptr;
    }
    bool const group = is_multicast(destination.address);
    if (!controlled && (!group || destination.port == 0)) {
        result = {
            PvResult::Code::NOT_SUPPORTED,
            "The stream cannot be opened with read-only access: the camera does not send to a multicast group. The "
            "application that controls it sets GevSCDA and starts the stream."};
        return nullptr;
    }
    auto socket = group ? gvsp_socket::open_group(destination, id.host) : gvsp_socket::open(id.host);
    if (!socket) {
        result = {PvResult::Code::GENERIC_ERROR,
                  group
                      ? ("The stream cannot be opened: multicast group " + to_text(destination.address) +
                         " cannot be joined. Check that the interface of " + to_text(id.host) + " supports multicast.")
                            .c_str()
                      : "The stream cannot be opened: no UDP socket can be bound to the host's address."};
        return nullptr;
    }
    ipv4_address const address = group ? destination.address : id.host;
    gvsp_assembler::settings settings;
    result = channel.get_packet_size(settings.packet_bytes);
    if (result.IsOK() && controlled) {
        result = channel.set_destination({address, socket->local_port()});
    }
    if (!result.IsOK()) {
        return nullptr;
    }
    settings.can_resend = controlled && read_can_resend(registers);
    if (streaming) {
        settings.payload_bytes = read_number(features, "PayloadSize");
        settings.image = read_image_size(features);
        size_receive_buffer(*socket, id.camera, settings.payload_bytes, read_frame_rate(features));
    }
    socket->accept_only({id.camera, read_source_port(registers)});
    return std::unique_ptr<gvsp_receiver>(new gvsp_receiver(std::move(*socket), address, id, settings, sink));
}

gvsp_receiver::gvsp_receiver(gvsp_socket socket, ipv4_address destination, connection_id const& id,
                             gvsp_assembler::settings const& settings, block_sink& sink)
    : socket_(std::move(socket)),
      destination_(destination),
      id_(id),
      settings_(settings),
      sink_(sink),
      log_(id.camera, std::chrono::steady_clock::now()),
      buffers_(block_queue::max_buffers) {}

gvsp_receiver::~gvsp_receiver() {
    stop();
}

void gvsp_receiver::add_buffer(PvBuffer::impl& buffer) {
    std::lock_guard const lock(mutex_);
    buffers_[(first_buffer_ + buffer_count_) % buffers_.size()] = &buffer;
    ++buffer_count_;
}

void gvsp_receiver::start() {
    if (!thread_.joinable()) {
        thread_ = std::jthread([this](std::stop_token const& token) { receive(token); });
    }
}

void gvsp_receiver::stop() {
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
    std::lock_guard const lock(mutex_);
    buffer_count_ = 0;
}

void gvsp_receiver::receive(std::stop_token const& token) {
    ::pthread_setname_np(::pthread_self(), "openpv-receive");
    gvsp_assembler assembler(settings_, *this);
    receive_coalescing coalescing;
    log_.restart_counts();
    while (!token.stop_requested()) {
        auto const now = socket_.receive(assembler);
        assembler.poll(now);
        log_.poll(assembler.counters(), socket_.kernel_drops(), now);
        auto const pause = socket_.is_empty()
                               ? coalescing.sleep_time(assembler.progress(), socket_.receive_buffer_bytes(), now)
                               : std::chrono::microseconds{0};
        if (pause > std::chrono::microseconds{0}) {
            std::this_thread::sleep_for(pause);
        }
    }
    assembler.stop();
    log_.flush(assembler.counters(), socket_.kernel_drops());
}

PvBuffer::impl* gvsp_receiver::acquire_buffer() {
    std::lock_guard const lock(mutex_);
    if (buffer_count_ == 0) {
        return nullptr;
    }
    PvBuffer::impl* const next = buffers_[first_buffer_];
    first_buffer_ = (first_buffer_ + 1) % buffers_.size();
    --buffer_count_;
    return next;
}

void gvsp_receiver::block_finished(PvBuffer::impl& buffer, received_block const& block) {
    sink_.block_finished(buffer, block);
}

/// Sends from the socket that receives the stream: a stateful firewall that passes the request then also passes the
/// packets. Resend requests are not acknowledged.
void gvsp_receiver::request_resend(gvsp::resend_request const& request) {
    request_id_ = gvcp::next_request_id(request_id_);
    std::array<std::byte, gvsp::max_resend_request_bytes> command{};
    std::size_t const bytes = gvsp::encode(request, request_id_, command);
    socket_.send_to({id_.camera, gvcp::port}, std::span(command).first(bytes));
}

}  // namespace openpv
