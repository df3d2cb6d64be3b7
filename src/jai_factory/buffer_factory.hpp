#pragma once
#include <PvBuffer.h>

#include <cstdint>
#include <memory>
#include <vector>

class PvStream;

namespace Vorn::Support::MediaGrabber::Jai {

/// Wraps the host's frame buffers in buffers of the SDK, so that the camera's frames land in the host's memory.
class buffer_factory {
public:
    /// Checks that the host's first `count` buffers are one flat block of equally spaced buffers of at least `*size`
    /// bytes, wraps them and queues them on the stream. On success `*size` becomes the spacing.
    /// \return the first host buffer, or null (logged) when the buffers can't be used
    void* GetBuffer(PvStream* stream, uint32_t* size, uint32_t count);

private:
    std::vector<std::unique_ptr<PvBuffer>> buffers_;  ///< in the order of the host's buffers
};

/// The plug-in's one factory.
extern buffer_factory mgBufFactory;

}  // namespace Vorn::Support::MediaGrabber::Jai
