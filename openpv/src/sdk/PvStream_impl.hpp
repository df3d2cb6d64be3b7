// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Implementation of a stream: a buffer queue, and a receiver while there is a connection.

#include <atomic>
#include <memory>

#include <PvStream.h>

#include "device/camera_link.hpp"
#include "gvsp/block_queue.hpp"
#include "net/udp_socket.hpp"

/// The queue outlives receivers and connections. The link calls the listener functions with its stream mutex locked;
/// they use the queue, which has its own locks.
struct PvStream::impl final : private openpv::link_listener {
    /// \return null on failure, with the reason in `result`
    static std::unique_ptr<impl> open(openpv::connection_id const& id, PvResult& result);
    ~impl();

    std::shared_ptr<openpv::camera_link> const link;
    std::shared_ptr<openpv::block_queue> const queue = std::make_shared<openpv::block_queue>();
    /// Of eight bytes, which every compiler stores at once, without a library.
    struct alignas(8) aligned_endpoint : openpv::udp_endpoint {};
    std::atomic<aligned_endpoint> destination{};  ///< of the current receiver

private:
    explicit impl(openpv::connection_id const& id) : link(openpv::camera_link::to(id)) {}

    void camera_lost() override;
    void session_closing() override;
    PvResult streaming_starts() override;
    void streaming_ends() override;
    PvResult make_receiver(bool streaming);

    bool attached_ = false;  ///< to the link
};
