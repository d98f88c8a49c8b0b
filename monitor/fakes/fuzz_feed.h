/* The byte stream that answers a fuzzing stand-in of a vendor library: each
 * call takes one status byte (below 0xC0: success, the outputs come from the
 * stream as far as it reaches; else a failure code made from that byte).
 * Include once per library. */
#ifndef ARDENTIUM_FUZZ_FEED_H
#define ARDENTIUM_FUZZ_FEED_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

static const uint8_t* FuzzFeedData;
static size_t FuzzFeedLeft;

static void FuzzFill(void* out, size_t n) {
    if (n > FuzzFeedLeft) n = FuzzFeedLeft;
    if (out && n) memcpy(out, FuzzFeedData, n);
    FuzzFeedData += n;
    FuzzFeedLeft -= n;
}

/* 0 for success, else 1..64 (the library turns it into its own codes); an
 * empty stream fails every call. */
static int FuzzStatus(void) {
    if (!FuzzFeedLeft) return 64;
    uint8_t b = *FuzzFeedData++;
    --FuzzFeedLeft;
    return b < 0xC0 ? 0 : b - 0xBF;
}

#endif
