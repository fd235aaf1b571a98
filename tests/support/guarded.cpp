#include "guarded.h"

namespace lumitest {

GuardedImage::GuardedImage(int w, int h, int ch, int pad, int misalign, int margin_bytes)
    : width(w), height(h), channels(ch)
{
    step = w * ch + pad;
    margin = margin_bytes + misalign;
    buf.assign((size_t)margin + (size_t)step * (h > 0 ? h : 0) + (size_t)margin_bytes, 0);
    // Keep the region's start at the requested distance from a 32-byte boundary.
    fill_guard();
}

void GuardedImage::fill_guard(uint8_t value)
{
    std::vector<uint8_t> keep = region();
    for (auto &b : buf)
        b = value;
    size_t k = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * channels; ++x)
            row(y)[x] = keep[k++];
}

void GuardedImage::fill_random(uint32_t seed)
{
    uint32_t s = seed * 2654435761u + 1;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * channels; ++x) {
            s = s * 1664525u + 1013904223u;
            row(y)[x] = (uint8_t)(s >> 24);
        }
}

bool GuardedImage::guard_intact(uint8_t value) const
{
    const uint8_t *base = buf.data();
    const uint8_t *start = data();
    for (size_t i = 0; i < buf.size(); ++i) {
        const uint8_t *p = base + i;
        bool inside = false;
        if (p >= start && height > 0) {
            const size_t off = (size_t)(p - start);
            const size_t y = off / (size_t)step;
            const size_t x = off % (size_t)step;
            inside = y < (size_t)height && x < (size_t)(width * channels);
        }
        if (!inside && *p != value)
            return false;
    }
    return true;
}

std::vector<uint8_t> GuardedImage::region() const
{
    std::vector<uint8_t> out;
    if (buf.empty())
        return out;
    out.reserve((size_t)width * channels * (height > 0 ? height : 0));
    for (int y = 0; y < height; ++y) {
        const uint8_t *r = data() + (size_t)y * step;
        out.insert(out.end(), r, r + width * channels);
    }
    return out;
}

} // namespace lumitest
