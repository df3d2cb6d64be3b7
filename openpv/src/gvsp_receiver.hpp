#pragma once
/// \file
/// Receives a camera's blocks: socket, assembler and a thread.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <arv.h>

#include <PvResult.h>

#include "block_receiver.hpp"
#include "connection_id.hpp"
#include "gvsp_assembler.hpp"
#include "gvsp_socket.hpp"
#include "loss_report.hpp"

namespace openpv {

/// Points the camera's stream channel at its own socket when it is made, and takes packet size and payload to be what
/// they are then: after another packet size, or another connection, a new receiver is needed. What was lost is told in
/// one line on standard error when it ends.
class gvsp_receiver final : public block_receiver, private assembler_outlet {
public:
    /// Used within `camera_session::access`.
    /// \param streaming whether the camera is about to send; only then does it tell how large its blocks will be
    /// \return null with the reason in `result`
    static std::unique_ptr<gvsp_receiver> make(ArvDevice& device, connection_id const& id, block_sink& sink,
                                               bool streaming, PvResult& result);
    gvsp_receiver(gvsp_receiver const&) = delete;
    gvsp_receiver& operator=(gvsp_receiver const&) = delete;
    ~gvsp_receiver() override;

    void give(PvBuffer::impl& buffer) override;
    void start() override;
    void take_back() override;

    uint16_t local_port() const { return socket_.local_port(); }

private:
    gvsp_receiver(gvsp_socket socket, connection_id const& id, gvsp_assembler::settings const& settings,
                  block_sink& sink);
    void receive(std::stop_token const& stop);

    PvBuffer::impl* next_buffer() override;
    void block_finished(PvBuffer::impl& buffer, received_block const& block) override;
    void ask_again(gvsp::resend_request const& request) override;

    gvsp_socket socket_;
    connection_id const id_;
    gvsp_assembler::settings const settings_;
    block_sink& sink_;
    uint16_t request_ = 0;
    loss_diary diary_;

    std::mutex mutex_;
    std::vector<PvBuffer::impl*> given_;  ///< guarded by `mutex_`, as the next is; a ring
    std::size_t first_given_ = 0;
    std::size_t given_count_ = 0;

    std::jthread thread_;  // last: it uses the others
};

}  // namespace openpv
