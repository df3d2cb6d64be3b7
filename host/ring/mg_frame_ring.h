/* SPDX-License-Identifier: MIT */
/**
 * \file
 * Reads the frames of a running mediagrabber from shared memory, without a copy.
 *
 * A reader connects to the Unix socket of the configuration key `ring.socket` (SOCK_SEQPACKET, same user or root) and
 * receives two read-only file descriptors: the ring, a `struct mg_ring` followed by one `struct mg_ring_frame` per
 * entry, and the frame memory, which holds the pixels. After that it receives one message per frame.
 *
 * The recording never waits for a reader: the memory of a frame is reused for later frames. A reader therefore checks a
 * frame with mg_ring_is_there() after it has used the pixels, and discards its result if the frame was overwritten:
 *
 *     struct mg_ring_reader reader;
 *     struct mg_ring_frame frame;
 *     if (mg_ring_open(&reader, "/run/user/1000/frames.sock") != 0) ...
 *     while (mg_ring_next(&reader, &frame, 1000) == 1) {
 *         uint8_t const* pixels = mg_ring_pixels(&reader, &frame);
 *         ...                                             // use frame.bytes bytes
 *         if (!mg_ring_is_there(&reader, &frame)) ...     // overwritten meanwhile: discard the result
 *     }
 *     mg_ring_close(&reader);
 *
 * Memory ordering: the writer clears an entry's `sequence` before it changes the entry or reuses the frame's memory,
 * and stores it after the entry is complete. A reader loads `sequence` with acquire semantics before it copies an entry
 * and again after it, behind an acquire fence (a sequence lock). All other fields are plain data between these two
 * loads.
 *
 * Threads: a `struct mg_ring_reader` belongs to one thread at a time. Several readers, in one process or in several,
 * are independent.
 *
 * Errors: functions return -1 and set errno, as system calls do. EPROTO: the other end is not a mediagrabber, or one
 * with another version of this layout.
 *
 * Needs C11 or C++11 with GCC or Clang on Linux. Header-only: there is nothing to link.
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

/** First eight bytes of a ring; "\0mgring1" in memory. */
#define MG_RING_MAGIC UINT64_C(0x31676E6972676D00)
/** Version of the layout below. */
#define MG_RING_VERSION 1U

/** Bits of mg_ring_frame::known. A value whose bit is not set is undefined. */
enum mg_ring_known {
    MG_RING_TICKS = 1,       /**< ticks */
    MG_RING_GAIN = 2,        /**< gain_db */
    MG_RING_EXPOSURE = 4,    /**< exposure_us */
    MG_RING_COUNTER = 8,     /**< counter */
    MG_RING_TEMPERATURE = 16 /**< temperature_c */
};

/** One entry of the ring, 128 bytes. */
struct mg_ring_frame {
    uint64_t sequence;        /**< 1, 2, ... in the order of publication; 0: empty or overwritten. Load it atomically */
    uint64_t offset;          /**< of the first pixel in the frame memory, bytes */
    uint64_t bytes;           /**< from the first pixel to the last */
    uint64_t number;          /**< frame number in the recording, from 1; dropped frames have numbers, too */
    uint64_t timestamp_us;    /**< time of exposure on the host's clock, microseconds since 1970 */
    uint64_t handed_over_us;  /**< when the plug-in handed the frame over, same clock */
    uint64_t ticks;           /**< timestamp in ticks of the camera's clock */
    uint32_t width;           /**< pixels */
    uint32_t height;          /**< pixels */
    uint32_t stride;          /**< bytes from line to line */
    uint32_t known;           /**< bits of enum mg_ring_known */
    float gain_db;            /**< analogue gain, dB */
    float exposure_us;        /**< exposure time, microseconds */
    float temperature_c;      /**< camera temperature, degrees Celsius */
    uint32_t counter;         /**< exposures since the camera reset its counter; wraps */
    uint8_t container_bits;   /**< bits per pixel in memory: 8, 16 (little-endian) or 12 (two pixels in three bytes) */
    uint8_t significant_bits; /**< 8 or 12 */
    uint8_t bayer;            /**< 1: Bayer pattern RGGB, red and green in the first line; 0: monochrome */
    uint8_t reserved[5];
    char format[16]; /**< GenICam name of the pixel format, "Mono8", zero-terminated */
    uint64_t reserved_for_later[2];
};

/** Header of the ring, 128 bytes; its entries follow. */
struct mg_ring {
    uint64_t magic;       /**< MG_RING_MAGIC */
    uint32_t version;     /**< MG_RING_VERSION */
    uint32_t frame_bytes; /**< from one entry to the next; at least sizeof(struct mg_ring_frame) */
    uint32_t frame_count; /**< number of entries; frame n has entry n % frame_count */
    uint32_t reserved;
    uint64_t memory_bytes; /**< size of the frame memory */
    uint64_t newest;       /**< sequence of the newest frame, 0 before the first. Load it atomically */
    uint64_t reserved_for_later[11];
};

/** Kinds of messages on the socket. */
enum mg_ring_message_kind {
    MG_RING_HERE = 1,     /**< to the reader, with two descriptors (ring, memory) that replace earlier ones;
                               value: sequence of the newest frame */
    MG_RING_FRAME = 2,    /**< to the reader: frame `value` has been published. May be missing if the socket is full */
    MG_RING_OVERTAKEN = 3 /**< from the reader: it has missed `value` frames in total */
};

/** A message on the socket, 16 bytes. */
struct mg_ring_message {
    uint32_t kind; /**< enum mg_ring_message_kind */
    uint32_t reserved;
    uint64_t value;
};

/** State of a reader. Initialised by mg_ring_open(); only `overtaken` is of interest to callers. */
struct mg_ring_reader {
    int socket;
    struct mg_ring const* ring; /**< mapped; null until the recording has published a ring */
    uint8_t const* memory;      /**< mapped together with the ring */
    uint64_t ring_bytes;
    uint64_t memory_bytes;
    uint64_t next;      /**< sequence of the next frame to read */
    uint64_t overtaken; /**< frames that were overwritten before or while they were read */
};

/** Loads a shared value with acquire semantics. Internal, like the functions down to mg_ring_receive(). */
static inline uint64_t mg_ring_load(uint64_t const* value) {
    return __atomic_load_n(value, __ATOMIC_ACQUIRE);
}

/** Orders all loads before it ahead of all loads after it (acquire fence). */
static inline void mg_ring_order_loads(void) {
#ifdef __SANITIZE_THREAD__
    __asm__ volatile("" ::: "memory"); /* g++ has no fences under the thread sanitizer; x86-64 keeps loads in order */
#else
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
#endif
}

/** The entry of a sequence number. */
static inline struct mg_ring_frame const* mg_ring_place(struct mg_ring_reader const* reader, uint64_t sequence) {
    uint64_t const index = sequence % reader->ring->frame_count;
    return (struct mg_ring_frame const*)((uint8_t const*)reader->ring + sizeof(struct mg_ring) +
                                         index * reader->ring->frame_bytes);
}

/** Unmaps ring and memory, if mapped. */
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

/** Maps a file read-only. Returns null with errno on failure. */
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

/** Maps a new ring and memory instead of the current ones, and closes the descriptors. Returns 0, or -1 with errno. */
static inline int mg_ring_adopt(struct mg_ring_reader* reader, int ring, int memory) {
    int valid;
    mg_ring_unmap(reader);
    reader->ring = (struct mg_ring const*)mg_ring_map(ring, &reader->ring_bytes);
    reader->memory = (uint8_t const*)mg_ring_map(memory, &reader->memory_bytes);
    close(ring);
    close(memory);
    if (reader->ring == 0 || reader->memory == 0) {
        mg_ring_unmap(reader);
        return -1;
    }
    valid =
        reader->ring_bytes >= sizeof(struct mg_ring) && reader->ring->magic == MG_RING_MAGIC &&
        reader->ring->version == MG_RING_VERSION && reader->ring->frame_count != 0 &&
        reader->ring->frame_bytes >= sizeof(struct mg_ring_frame) &&
        reader->ring_bytes - sizeof(struct mg_ring) >= (uint64_t)reader->ring->frame_count * reader->ring->frame_bytes;
    if (!valid) {
        mg_ring_unmap(reader);
        errno = EPROTO;
        return -1;
    }
    return 0;
}

/** Receives one message. Returns 1, 0 on timeout, -1 with errno; ENOTCONN: the recording has ended. */
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

/**
 * Connects to a recording.
 * \param reader  initialised by this call
 * \param path    of the socket, as in `ring.socket`
 * \return 0, or -1 with errno; ENOENT or ECONNREFUSED: no recording publishes frames there
 */
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

/** Disconnects and unmaps. Pointers from mg_ring_pixels() are invalid afterwards. */
static inline void mg_ring_close(struct mg_ring_reader* reader) {
    mg_ring_unmap(reader);
    close(reader->socket);
}

/** Counts missed frames and reports the total to the recording, which publishes it as a metric. Internal. */
static inline void mg_ring_count_overtaken(struct mg_ring_reader* reader, uint64_t frames) {
    struct mg_ring_message message = {MG_RING_OVERTAKEN, 0, 0};
    reader->overtaken += frames;
    message.value = reader->overtaken;
    (void)!send(reader->socket, &message, sizeof message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

/** Copies the oldest unread entry that has not been overwritten. Returns 1, or 0 if there is none. Internal. */
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

/**
 * Waits for the next frame. A reader that keeps pace gets every frame in order; missed frames are skipped and counted
 * in mg_ring_reader::overtaken. The memory may be replaced by this call, so pixels of the previous frame must not be
 * used after it.
 * \param frame       receives a copy of the entry
 * \param timeout_ms  for each message waited for; -1: no limit
 * \return 1, 0 on timeout, -1 with errno; ENOTCONN: the recording has ended
 */
static inline int mg_ring_next(struct mg_ring_reader* reader, struct mg_ring_frame* frame, int timeout_ms) {
    for (;;) {
        int came;
        if (reader->ring != 0 && mg_ring_load(&reader->ring->newest) >= reader->next && mg_ring_take(reader, frame)) {
            return 1;
        }
        came = mg_ring_receive(reader, timeout_ms);
        if (came <= 0) {
            return came;
        }
    }
}

/** The frame's pixels in shared memory, frame->bytes bytes. Valid until the next call of mg_ring_next() or
 * mg_ring_close(). */
static inline uint8_t const* mg_ring_pixels(struct mg_ring_reader const* reader, struct mg_ring_frame const* frame) {
    return reader->memory + frame->offset;
}

/** Whether the frame has not been overwritten up to now. Call it after using the pixels, once per frame: it counts an
 * overwritten frame in mg_ring_reader::overtaken. Returns 1 or 0. */
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
