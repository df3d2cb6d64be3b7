// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <memory>

#include <PvImage.h>
#include <PvResult.h>
#include <PvTypes.h>

/// Buffer for one block of a stream, in memory that the application provides.
///
/// Attach memory, queue the buffer to a `PvStream`, and read it after it was retrieved. While it is queued, it belongs
/// to the stream and must not be read; destroying it then withdraws it from the stream. Image size and chunks are those
/// of the last block if that was complete, otherwise 0 and none. Not thread-safe.
class PvBuffer {
public:
    struct impl;
    /// \param type ignored: there is one payload type, and an image with appended chunks has it too
    explicit PvBuffer(PvPayloadType type);
    PvBuffer(PvBuffer const&) = delete;
    PvBuffer& operator=(PvBuffer const&) = delete;
    ~PvBuffer();

    /// Attaches memory. Discards what the buffer contained.
    /// \param memory remains owned by the caller; must outlive its use by the buffer
    /// \param bytes capacity; a larger block ends as BUFFER_TOO_SMALL
    /// \return INVALID_PARAMETER if the memory is null or empty, or the buffer is queued
    PvResult Attach(void* memory, uint32_t bytes);
    /// \return always `PvPayloadTypeImage`
    PvPayloadType GetPayloadType() const;
    /// \return the image in the attached memory; valid until `Attach` or the buffer's destruction
    PvImage* GetImage();
    /// \return ticks of the camera clock when the block started; 0 if its leader did not arrive
    uint64_t GetTimestamp() const;

    /// \return number of chunks in the block
    uint32_t GetChunkCount();
    /// \param index below `GetChunkCount()`, in memory order
    /// \param id receives the chunk ID
    /// \return NOT_FOUND if there are fewer chunks
    PvResult GetChunkIDByIndex(uint32_t index, uint32_t& id);
    /// \param index below `GetChunkCount()`
    /// \return size of the chunk's data in bytes; 0 if there are fewer chunks
    uint32_t GetChunkSizeByIndex(uint32_t index);
    /// \param id chunk ID
    /// \return the data of the first chunk with that ID, without alignment, in the attached memory; null if there is
    /// none
    uint8_t const* GetChunkRawDataByID(uint32_t id);

private:
    friend class PvStream;
    std::unique_ptr<impl> impl_;
};
