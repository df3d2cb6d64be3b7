#pragma once
/// \file
/// An open stream: a queue of buffers, and a receiver for as long as there is a connection.

#include <atomic>
#include <cstdint>
#include <memory>

#include <PvStream.h>

#include "block_queue.hpp"
#include "camera_link.hpp"

struct PvStream::impl final : private openpv::link_listener {
    /// \return null with the reason in `result`
    static std::unique_ptr<impl> open(openpv::connection_id const& id, PvResult& result);
    ~impl();

    std::shared_ptr<openpv::camera_link> const link;
    std::shared_ptr<openpv::block_queue> const queue = std::make_shared<openpv::block_queue>();
    std::atomic<uint16_t> local_port = 0;

private:
    explicit impl(openpv::connection_id const& id) : link(openpv::camera_link::to(id)) {}

    void camera_lost() override;
    void session_closes() override;
    PvResult streaming_starts() override;
    void streaming_ends() override;
    PvResult make_receiver(bool streaming);

    bool attached_ = false;
};
