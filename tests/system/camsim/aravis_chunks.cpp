// SPDX-License-Identifier: MIT
/// \file
/// Grabs blocks with chunks through Aravis and prints one JSON object per block: properties of the buffer, and its
/// chunks as raw bytes and as values from Aravis's chunk parser.
#include <arv.h>

#include <cstdio>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

namespace {

struct unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename object>
using owned = std::unique_ptr<object, unref>;

/// Turns the error of an Aravis call into an exception.
class checked_error {
public:
    ~checked_error() { g_clear_error(&error_); }
    checked_error() = default;
    checked_error(checked_error const&) = delete;
    checked_error& operator=(checked_error const&) = delete;
    GError** out() { return &error_; }
    void check(char const* what) const {
        if (error_ != nullptr) {
            throw std::runtime_error(std::string(what) + ": " + error_->message);
        }
    }

private:
    GError* error_ = nullptr;
};

template <typename function>
auto checked(char const* what, function call) {
    checked_error error;
    auto result = call(error.out());
    error.check(what);
    return result;
}

std::string hexadecimal(std::span<guint8 const> bytes) {
    std::string text;
    for (guint8 const byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", unsigned{byte});
        text += digits;
    }
    return text;
}

std::string raw_chunk(ArvBuffer* buffer, guint64 id) {
    std::size_t size = 0;
    auto const* const data = static_cast<guint8 const*>(arv_buffer_get_chunk_data(buffer, id, &size));
    return data == nullptr ? "" : hexadecimal({data, size});
}

std::string parsed_float(ArvChunkParser* parser, ArvBuffer* buffer, char const* name) {
    checked_error error;
    double const value = arv_chunk_parser_get_float_value(parser, buffer, name, error.out());
    error.check(name);
    return std::to_string(value);
}

std::string parsed_integer(ArvChunkParser* parser, ArvBuffer* buffer, char const* name) {
    checked_error error;
    gint64 const value = arv_chunk_parser_get_integer_value(parser, buffer, name, error.out());
    error.check(name);
    return std::to_string(value);
}

void print(ArvBuffer* buffer, ArvChunkParser* parser) {
    std::size_t size = 0;
    std::size_t image = 0;
    arv_buffer_get_data(buffer, &size);
    arv_buffer_get_image_data(buffer, &image);
    bool const has_chunks = arv_buffer_has_chunks(buffer) == TRUE;
    std::printf("{\"status\": %d, \"block_id\": %" G_GUINT64_FORMAT
                ", \"payload_type\": %d, \"has_chunks\": %s, \"bytes\": %zu, \"image_bytes\": %zu",
                static_cast<int>(arv_buffer_get_status(buffer)), arv_buffer_get_frame_id(buffer),
                static_cast<int>(arv_buffer_get_payload_type(buffer)), has_chunks ? "true" : "false", size, image);
    if (has_chunks) {
        std::printf(", \"raw\": [\"%s\", \"%s\", \"%s\", \"%s\"], \"parsed\": [%s, %s, %s, %s]",
                    raw_chunk(buffer, 0x2005).c_str(), raw_chunk(buffer, 0x2004).c_str(),
                    raw_chunk(buffer, 0x2014).c_str(), raw_chunk(buffer, 0x200F).c_str(),
                    parsed_float(parser, buffer, "ChunkGainAll").c_str(),
                    parsed_float(parser, buffer, "ChunkExposureTime").c_str(),
                    parsed_integer(parser, buffer, "ChunkTimestamp").c_str(),
                    parsed_integer(parser, buffer, "ChunkExposureStartCounter").c_str());
    }
    std::printf("}\n");
}

void grab(char const* chunks, int frames) {
    constexpr guint64 max_wait_us = 5'000'000;
    owned<ArvCamera> const camera(checked("open", [](GError** error) { return arv_camera_new(nullptr, error); }));
    arv_camera_gv_set_stream_options(camera.get(), ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    checked("chunks", [&](GError** error) {
        arv_camera_set_chunks(camera.get(), chunks, error);
        return 0;
    });
    owned<ArvChunkParser> const parser(arv_camera_create_chunk_parser(camera.get()));
    owned<ArvStream> const stream(checked(
        "stream", [&](GError** error) { return arv_camera_create_stream(camera.get(), nullptr, nullptr, error); }));
    guint const payload =
        checked("PayloadSize", [&](GError** error) { return arv_camera_get_payload(camera.get(), error); });
    for (int count = 0; count < frames; ++count) {
        arv_stream_push_buffer(stream.get(), arv_buffer_new(payload, nullptr));
    }
    checked("start", [&](GError** error) {
        arv_camera_start_acquisition(camera.get(), error);
        return 0;
    });
    for (int count = 0; count < frames; ++count) {
        owned<ArvBuffer> const buffer(arv_stream_timeout_pop_buffer(stream.get(), max_wait_us));
        if (!buffer) {
            throw std::runtime_error("timeout: no buffer");
        }
        print(buffer.get(), parser.get());
    }
    checked("stop", [&](GError** error) {
        arv_camera_stop_acquisition(camera.get(), error);
        return 0;
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: camsim_aravis_chunks CHUNKS FRAMES; chunks separated by commas\n");
        return 2;
    }
    try {
        grab(argv[1], std::atoi(argv[2]));
    } catch (std::exception const& error) {
        std::fprintf(stderr, "camsim_aravis_chunks: %s\n", error.what());
        return 1;
    }
}
