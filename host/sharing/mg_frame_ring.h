/*
 * Frames of a mediagrabber that is recording, read by another program straight from the memory that they came into.
 *
 * A reader connects to the Unix socket of `ring.socket` (SOCK_SEQPACKET, same user) and gets two read-only descriptors:
 * the ring, a `struct mg_ring` with one `struct mg_ring_frame` for each of the last frames, and the memory that the
 * pixels lie in. Then it gets a message for each frame. Nobody waits for a reader: memory is used again for later frames,
 * and a reader that was too slow finds that out, before it looks and after:
 *
 *     struct mg_ring_reader reader;
 *     struct mg_ring_frame frame;
 *     if (mg_ring_open(&reader, "/run/user/1000/frames.sock") != 0) ...
 *     while (mg_ring_next(&reader, &frame, 1000) == 1) {
 *         uint8_t const* pixels = mg_ring_pixels(&reader, &frame);
 *         ...                                             // look at frame.bytes bytes
 *         if (!mg_ring_is_there(&reader, &frame)) ...      // they were overwritten meanwhile: what was seen is not a frame
 *     }
 *     mg_ring_close(&reader);
 *
 * C11 or C++11 with GCC or Clang on Linux; nothing to link.
 */
#ifndef MG_FRAME_RING_H
#define MG_FRAME_RING_H

#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MG_RING_MAGIC UINT64_C(0x31676E6972676D00) /* "\0mgring1" in memory */
#define MG_RING_VERSION 1U

/* What is known of a frame; of others the value means nothing. */
enum mg_ring_known {
    MG_RING_TICKS = 1,
    MG_RING_GAIN = 2,
    MG_RING_EXPOSURE = 4,
    MG_RING_COUNTER = 8,
    MG_RING_TEMPERATURE = 16
};

/* One frame: 128 bytes. */
struct mg_ring_frame {
    uint64_t sequence;       /* 1, 2, ... in the order in which they came to readers; 0: nothing, or overwritten */
    uint64_t offset;         /* of the first pixel in the memory, bytes */
    uint64_t bytes;          /* from the first pixel to the last */
    uint64_t number;         /* counts the frames of the recording, lost ones too */
    uint64_t timestamp_us;   /* on the host's time base, microseconds since 1970 */
    uint64_t handed_over_us; /* when the plug-in gave it out of its hands, same time base */
    uint64_t ticks;          /* of the camera's clock */
    uint32_t width;          /* pixels */
    uint32_t height;         /* pixels */
    uint32_t stride;         /* bytes from line to line */
    uint32_t known;          /* of enum mg_ring_known */
    float gain_db;
    float exposure_us;
    float temperature_c;
    uint32_t counter;          /* exposures since the camera began to count */
    uint8_t container_bits;    /* of a pixel in memory: 8, 16 (little-endian), 12: two pixels in three bytes */
    uint8_t significant_bits;  /* 8 or 12 */
    uint8_t bayer;             /* 1: a mosaic, red and green in the first line */
    uint8_t reserved[5];
    char format[16]; /* the plug-in's name of the pixel format, "MONO8T" */
    uint64_t reserved_for_later[2];
};

/* The beginning of the ring; its frames follow. */
struct mg_ring {
    uint64_t magic;
    uint32_t version;
    uint32_t frame_bytes;  /* from one struct mg_ring_frame to the next */
    uint32_t frame_count;  /* frame n has place n % frame_count */
    uint32_t reserved;
    uint64_t memory_bytes;
    uint64_t newest; /* sequence of the newest frame, 0 before the first */
    uint64_t reserved_for_later[11];
};

/* What goes over the socket. */
enum mg_ring_message_kind {
    MG_RING_HERE = 1,     /* to the reader, with the descriptors of ring and memory that hold from now on; `value`: newest frame */
    MG_RING_FRAME = 2,    /* to the reader: frame `value` is here */
    MG_RING_OVERTAKEN = 3 /* from the reader: it has missed `value` frames in all */
};
struct mg_ring_message {
    uint32_t kind;
    uint32_t reserved;
    uint64_t value;
};

struct mg_ring_reader {
    int socket;
    struct mg_ring const* ring;
    uint8_t const* memory;
    uint64_t ring_bytes;
    uint64_t memory_bytes;
    uint64_t next;      /* sequence of the frame that was not read yet */
    uint64_t overtaken; /* frames that were gone before they could be read, or while they were */
};

static inline uint64_t mg_ring_load(uint64_t const* value) {
    return __atomic_load_n(value, __ATOMIC_ACQUIRE);
}

/* What was read before stays before what is read after. */
static inline void mg_ring_order_loads(void) {
#ifdef __SANITIZE_THREAD__
    __asm__ volatile("" ::: "memory"); /* g++ has no fences there; x86-64 keeps loads in order by itself */
#else
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
#endif
}

static inline struct mg_ring_frame const* mg_ring_place(struct mg_ring_reader const* reader, uint64_t sequence) {
    uint64_t const index = sequence % reader->ring->frame_count;
    return (struct mg_ring_frame const*)((uint8_t const*)reader->ring + sizeof(struct mg_ring) +
                                         index * reader->ring->frame_bytes);
}

static inline void mg_ring_unmap(struct mg_ring_reader* reader) {
    if (reader->ring != 0) {
        munmap((void*)reader->ring, reader->ring_bytes);
    }
    if (reader->memory != 0) {
        munmap((void*)reader->memory, reader->memory_bytes);
    }
    reader->ring = 0;
    reader->memory = 0;
}

static inline void* mg_ring_map(int descriptor, uint64_t* bytes) {
    struct stat status;
    void* mapped;
    if (fstat(descriptor, &status) != 0) {
        return 0;
    }
    *bytes = (uint64_t)status.st_size;
    mapped = mmap(0, (size_t)status.st_size, PROT_READ, MAP_SHARED, descriptor, 0);
    return mapped == MAP_FAILED ? 0 : mapped;
}

/* Takes the descriptors over. Returns 0, or -1 with errno. */
static inline int mg_ring_adopt(struct mg_ring_reader* reader, int ring, int memory) {
    int sound;
    mg_ring_unmap(reader);
    reader->ring = (struct mg_ring const*)mg_ring_map(ring, &reader->ring_bytes);
    reader->memory = (uint8_t const*)mg_ring_map(memory, &reader->memory_bytes);
    close(ring);
    close(memory);
    if (reader->ring == 0 || reader->memory == 0) {
        mg_ring_unmap(reader);
        return -1;
    }
    sound = reader->ring_bytes >= sizeof(struct mg_ring) && reader->ring->magic == MG_RING_MAGIC &&
            reader->ring->version == MG_RING_VERSION && reader->ring->frame_count != 0 &&
            reader->ring->frame_bytes >= sizeof(struct mg_ring_frame) &&
            reader->ring_bytes - sizeof(struct mg_ring) >=
                (uint64_t)reader->ring->frame_count * reader->ring->frame_bytes;
    if (!sound) {
        mg_ring_unmap(reader);
        errno = EPROTO;
        return -1;
    }
    return 0;
}

/* Receives one message. Returns 1, 0 when none came in time, -1 with errno; ENOTCONN: the recording has ended. */
static inline int mg_ring_receive(struct mg_ring_reader* reader, int timeout_ms) {
    struct mg_ring_message message = {0, 0, 0};
    union {
        char bytes[CMSG_SPACE(2 * sizeof(int))];
        struct cmsghdr aligned;
    } control;
    struct iovec part = {&message, sizeof message};
    struct msghdr header;
    struct pollfd waiting = {reader->socket, POLLIN, 0};
    int const came = poll(&waiting, 1, timeout_ms);
    ssize_t got;
    if (came <= 0) {
        return came;
    }
    memset(&header, 0, sizeof header);
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.bytes;
    header.msg_controllen = sizeof control.bytes;
    got = recvmsg(reader->socket, &header, MSG_CMSG_CLOEXEC);
    if (got == 0) {
        errno = ENOTCONN;
    }
    if (got <= 0) {
        return -1;
    }
    if (message.kind == MG_RING_HERE) {
        struct cmsghdr const* const rights = CMSG_FIRSTHDR(&header);
        int descriptors[2];
        if (rights == 0 || rights->cmsg_type != SCM_RIGHTS || rights->cmsg_len != CMSG_LEN(sizeof descriptors)) {
            errno = EPROTO;
            return -1;
        }
        memcpy(descriptors, CMSG_DATA(rights), sizeof descriptors);
        if (mg_ring_adopt(reader, descriptors[0], descriptors[1]) != 0) {
            return -1;
        }
        if (reader->next == 0) {
            reader->next = message.value == 0 ? 1 : message.value;
        }
    }
    return 1;
}

/* Connects. Returns 0, or -1 with errno: ENOENT or ECONNREFUSED, nobody offers frames there. */
static inline int mg_ring_open(struct mg_ring_reader* reader, char const* path) {
    struct sockaddr_un address;
    memset(reader, 0, sizeof *reader);
    memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path));
    reader->socket = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (reader->socket < 0) {
        return -1;
    }
    if (connect(reader->socket, (struct sockaddr const*)&address, sizeof address) != 0) {
        int const error = errno;
        close(reader->socket);
        errno = error;
        return -1;
    }
    return 0;
}

static inline void mg_ring_close(struct mg_ring_reader* reader) {
    mg_ring_unmap(reader);
    close(reader->socket);
}

/* Counts frames that were missed, and tells. */
static inline void mg_ring_count_overtaken(struct mg_ring_reader* reader, uint64_t frames) {
    struct mg_ring_message message = {MG_RING_OVERTAKEN, 0, 0};
    reader->overtaken += frames;
    message.value = reader->overtaken;
    (void)!send(reader->socket, &message, sizeof message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

/* Takes the oldest frame that was not read yet and is still there. Returns 1 when there is one. */
static inline int mg_ring_take(struct mg_ring_reader* reader, struct mg_ring_frame* frame) {
    uint64_t const newest = mg_ring_load(&reader->ring->newest);
    uint64_t const first = reader->next;
    uint64_t const count = reader->ring->frame_count;
    uint64_t candidate = newest >= count && first < newest - count + 1 ? newest - count + 1 : first;
    for (; candidate <= newest; ++candidate) {
        struct mg_ring_frame const* const place = mg_ring_place(reader, candidate);
        if (mg_ring_load(&place->sequence) == candidate) {
            memcpy(frame, place, sizeof *frame);
            mg_ring_order_loads();
            if (mg_ring_load(&place->sequence) == candidate && frame->bytes <= reader->memory_bytes &&
                frame->offset <= reader->memory_bytes - frame->bytes) {
                frame->sequence = candidate;
                break;
            }
        }
    }
    if (candidate > first) {
        mg_ring_count_overtaken(reader, candidate - first);
    }
    reader->next = candidate <= newest ? candidate + 1 : candidate;
    return candidate <= newest;
}

/*
 * The next frame: all in their order as long as the reader keeps pace; what it misses it counts. Waits so long at most, -1 for
 * ever. The frame before is then no longer looked at. Returns 1, 0 when none came in time, -1 with errno; ENOTCONN: the recording has ended.
 */
static inline int mg_ring_next(struct mg_ring_reader* reader, struct mg_ring_frame* frame, int timeout_ms) {
    for (;;) {
        int came;
        if (reader->ring != 0 && mg_ring_load(&reader->ring->newest) >= reader->next &&
            mg_ring_take(reader, frame)) {
            return 1;
        }
        came = mg_ring_receive(reader, timeout_ms);
        if (came <= 0) {
            return came;
        }
    }
}

static inline uint8_t const* mg_ring_pixels(struct mg_ring_reader const* reader, struct mg_ring_frame const* frame) {
    return reader->memory + frame->offset;
}

/* Whether the frame's memory still holds it; counts it when not. To be asked when the pixels have been used. */
static inline int mg_ring_is_there(struct mg_ring_reader* reader, struct mg_ring_frame const* frame) {
    int there;
    mg_ring_order_loads();
    there = mg_ring_load(&mg_ring_place(reader, frame->sequence)->sequence) == frame->sequence;
    if (!there) {
        mg_ring_count_overtaken(reader, 1);
    }
    return there;
}

#ifdef __cplusplus
}
#endif

#endif
