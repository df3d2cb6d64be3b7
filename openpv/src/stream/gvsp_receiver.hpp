// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Receives a camera's blocks.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <PvResult.h>

#include "gvcp/connection_id.hpp"
#include "gvcp/register_port.hpp"
#include "gvsp/block_receiver.hpp"
#include "gvsp/gvsp_assembler.hpp"
#include "gvsp/gvsp_socket.hpp"
#include "gvsp/packet_loss_report.hpp"
#include "net/udp_socket.hpp"

namespace openpv {

class node_graph;

/// Receives a GigE Vision stream: combines socket, assembler and loss log with a thread.
///
/// One receiver serves one acquisition. On construction it sets the camera's stream destination to its own socket, or
/// joins the multicast group that is the destination, and reads packet size and payload size; if one of these changes,
/// or after a reconnection, make a new receiver. The buffer queue owns it.
///
/// Between `start` and `stop` the thread uses all members except `mutex_` and the buffer ring, which `mutex_` guards;
/// other threads only call `add_buffer`. `stop` waits for the thread: at most about 10 ms. Receiving itself has no
/// errors; losses are logged on standard error while the thread runs and when it ends.
class gvsp_receiver final : public block_receiver, private assembler_callbacks {
public:
    /// Opens a socket and configures the camera. Call it within `camera_session::access`.
    /// \param id camera and local address
    /// \param sink receives the finished buffers; must outlive the receiver
    /// \param streaming whether an acquisition is about to start. Only then is the payload size valid, and the receive
    ///     buffer sized for it.
    /// \param controlled whether this application controls the camera. Otherwise it only receives a group: it writes no
    ///     register and requests no packet again, since cameras accept both from the controlling application only.
    /// \param result receives the reason for a failure
    /// \return null on failure
    static std::unique_ptr<gvsp_receiver> make(register_port& registers, node_graph& features, connection_id const& id,
                                               block_sink& sink, bool streaming, bool controlled, PvResult& result);
    gvsp_receiver(gvsp_receiver const&) = delete;
    gvsp_receiver& operator=(gvsp_receiver const&) = delete;
    ~gvsp_receiver() override;

    void add_buffer(PvBuffer::impl& buffer) override;
    void start() override;
    void stop() override;

    /// Where the camera sends the stream: an address of the host, or a multicast group.
    udp_endpoint destination() const { return {destination_, socket_.local_port()}; }

private:
    gvsp_receiver(gvsp_socket socket, ipv4_address destination, connection_id const& id,
                  gvsp_assembler::settings const& settings, block_sink& sink);
    void receive(std::stop_token const& token);

    PvBuffer::impl* acquire_buffer() override;
    void block_finished(PvBuffer::impl& buffer, received_block const& block) override;
    void request_resend(gvsp::resend_request const& request) override;

    gvsp_socket socket_;
    ipv4_address const destination_;
    connection_id const id_;
    gvsp_assembler::settings const settings_;
    block_sink& sink_;
    std::uint16_t request_id_ = 0;
    packet_loss_log log_;

    std::mutex mutex_;                      ///< guards the ring of queued buffers
    std::vector<PvBuffer::impl*> buffers_;  ///< ring, sized for all buffers that the queue accepts
    std::size_t first_buffer_ = 0;
    std::size_t buffer_count_ = 0;

    std::jthread thread_;  // last, so that it ends before the members that it uses are destroyed
};

}  // namespace openpv
