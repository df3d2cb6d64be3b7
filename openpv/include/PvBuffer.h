#pragma once
#include <cstdint>
#include <memory>

#include <PvImage.h>
#include <PvResult.h>
#include <PvTypes.h>

/// One block of a stream, in memory that the caller attached. Destroying a queued buffer withdraws it from its stream.
class PvBuffer {
public:
    struct impl;
    explicit PvBuffer(PvPayloadType type);
    PvBuffer(PvBuffer const&) = delete;
    PvBuffer& operator=(PvBuffer const&) = delete;
    ~PvBuffer();

    PvResult Attach(void* memory, uint32_t bytes);  ///< the memory stays the caller's
    PvPayloadType GetPayloadType() const;
    PvImage* GetImage();
    uint64_t GetTimestamp() const;  ///< ticks of the camera's counter

    uint32_t GetChunkCount();
    PvResult GetChunkIDByIndex(uint32_t index, uint32_t& id);
    uint32_t GetChunkSizeByIndex(uint32_t index);     ///< bytes, 0 beyond the last
    uint8_t const* GetChunkRawDataByID(uint32_t id);  ///< unaligned, null when absent

private:
    friend class PvStream;
    std::unique_ptr<impl> impl_;
};
