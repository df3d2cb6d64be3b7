/* SPDX-License-Identifier: MIT */
/*
 * Reads the frames of a running recording from shared memory and prints number, timestamp and mean brightness of each.
 * For formats other than 8 bits per pixel it is the mean of the bytes.
 *
 *     frame_brightness /run/user/1000/frames.sock [FRAMES]
 */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "mg_frame_ring.h"

static double mean_of(uint8_t const* pixels, struct mg_ring_frame const* frame) {
    uint64_t const line_bytes = (uint64_t)frame->width * frame->container_bits / 8;
    uint64_t sum = 0;
    for (uint32_t y = 0; y < frame->height; ++y) {
        uint8_t const* const line = pixels + (uint64_t)y * frame->stride;
        for (uint64_t x = 0; x < line_bytes; ++x) {
            sum += line[x];
        }
    }
    return (double)sum / ((double)line_bytes * frame->height);
}

int main(int argc, char** argv) {
    struct mg_ring_reader reader;
    struct mg_ring_frame frame;
    long const wanted = argc > 2 ? strtol(argv[2], 0, 10) : 0;
    long count = 0;
    int result = 0;
    if (argc < 2) {
        fprintf(stderr, "usage: frame_brightness SOCKET [FRAMES]\n");
        return 2;
    }
    if (mg_ring_open(&reader, argv[1]) != 0) {
        fprintf(stderr, "%s: %s\n", argv[1], strerror(errno));
        return 1;
    }
    while ((wanted == 0 || count < wanted) && (result = mg_ring_next(&reader, &frame, -1)) == 1) {
        double const mean = mean_of(mg_ring_pixels(&reader, &frame), &frame);
        if (mg_ring_is_there(&reader, &frame)) {
            printf("%" PRIu64 " %" PRIu64 " %.3f\n", frame.number, frame.timestamp_us, mean);
            ++count;
        }
    }
    fprintf(stderr, "%ld frames, %" PRIu64 " overtaken\n", count, reader.overtaken);
    mg_ring_close(&reader);
    return result >= 0 || errno == ENOTCONN ? 0 : 1;
}
