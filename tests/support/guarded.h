// Images with guard bytes: a region of interest inside a larger buffer whose
// every byte outside the region is filled with a known pattern, so a test can
// tell whether a primitive wrote anywhere it should not.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace lumitest {

struct GuardedImage {
    int width = 0;    // region width in pixels
    int height = 0;   // region height
    int channels = 1;
    int step = 0;     // bytes between rows
    int margin = 0;   // bytes before the first row and after the last
    std::vector<uint8_t> buf;

    // pad: extra bytes at the end of each row; misalign: offset of the region
    // from a 32-byte boundary.
    GuardedImage(int w, int h, int ch, int pad = 7, int misalign = 3, int margin_bytes = 64);

    uint8_t *data() { return buf.data() + margin; }
    const uint8_t *data() const { return buf.data() + margin; }
    uint8_t *row(int y) { return data() + (size_t)y * step; }
    uint8_t &at(int x, int y, int c = 0) { return row(y)[x * channels + c]; }

    void fill_guard(uint8_t value = 0xA5);
    // Fills the region with a reproducible pseudo-random pattern.
    void fill_random(uint32_t seed);
    // True when every byte outside the region still holds the guard value.
    bool guard_intact(uint8_t value = 0xA5) const;
    // The region's bytes, row after row, without padding.
    std::vector<uint8_t> region() const;
};

} // namespace lumitest
