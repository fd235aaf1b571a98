// What every fuzzer shares: reading arguments from the input, forcing a tier,
// and images held in heap blocks that show a stray read or write.
//
// An image block is exactly as large as its rows imply (from the first byte of
// the first row in memory to the last byte of the last row), so that
// AddressSanitizer reports any read or write past either end.  In guard mode
// the block also carries bytes of a known pattern before and after it, and the
// padding between rows holds the pattern as well; after the call every byte of
// a destination outside its region must still hold it.  A source is checked to
// be unchanged, and a destination to be unchanged when the call failed.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "alloc_fault.h"
#include "lumi.h"

namespace lumifuzz {

// The input as a stream of small numbers; past its end every read gives 0.
class Input {
public:
    Input(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
    uint32_t byte() { return p_ < end_ ? *p_++ : 0; }
    uint32_t u16() { return byte() | byte() << 8; }
    uint32_t u32() { return u16() | u16() << 16; }
    bool flag() { return byte() & 1; }
    // A value in lo..hi, hi - lo below 65536.
    int range(int lo, int hi) { return lo + (int)(u16() % (uint32_t)(hi - lo + 1)); }
    // Mostly small sizes, at times large ones: 1..small, one time in 16 1..large.
    int size(int small, int large) { return byte() < 240 ? range(1, small) : range(1, large); }

private:
    const uint8_t *p_, *end_;
};

// Forces a dispatch index 1..5 from one input byte, no higher than the
// automatic choice for this processor, and returns it.
int force_tier(Input &in);

// Rows of an image in one heap block.  `step` may be zero or negative (the
// first row then stands last in memory).  The region is the part a call may
// write: rows y0.. and bytes x0.. of each row.
struct Image {
    int rows = 0, rowBytes = 0, step = 0;
    int y0 = 0, x0 = 0, regionRows = 0, regionBytes = 0;
    uint8_t *block = nullptr; // from malloc, exactly lead + span + trail bytes
    size_t lead = 0, span = 0, trail = 0;
    uint8_t *copy = nullptr; // the whole block as it was before the call

    uint8_t *first_row() const;
    uint8_t *region() const { return first_row() + (ptrdiff_t)y0 * step + x0; }
    uint8_t *row(int r) const { return first_row() + (ptrdiff_t)r * step; }
};

// Lays out rows x rowBytes with the step given, fills rows and padding from a
// seed, and remembers the contents.  guard adds 64 bytes on each side.
void image_make(Image &img, int rows, int rowBytes, int step, bool guard, uint32_t seed);
// The region a call may write; by default the whole image.
void image_region(Image &img, int y0, int x0, int regionRows, int regionBytes);
void image_free(Image &img);
// Aborts unless every byte outside the region holds what it held before.
void check_outside_region(const Image &img, const char *what);
// Aborts unless the whole block holds what it held before.
void check_unchanged(const Image &img, const char *what);

// What a call answers about its arguments: a null image it was given is
// refused with lumStsNullPtrErr, and lumStsMemAllocErr comes only from an
// allocation made to fail (failAt 0: none was).
void check_refusals(const char *what, LumStatus st, bool nullGiven, int failAt);
// What every call leaves: no working memory held (outstanding blocks of the
// allocation counter), the destination written only inside its region and
// not at all when the call failed, and the source as it was.
void check_after_call(const char *what, LumStatus st, int outstanding, const Image &src,
                      const Image &dst);

// Runs call() with allocation failAt made to fail (0: none), then makes both
// sets of checks above; returns the call's status.
template <typename Call>
LumStatus call_and_check(const char *what, bool nullGiven, int failAt, const Image &src,
                         const Image &dst, Call call)
{
    LumStatus st;
    int outstanding;
    {
        lumitest::AllocFault fault(failAt);
        st = call();
        outstanding = fault.outstanding();
    }
    check_refusals(what, st, nullGiven, failAt);
    check_after_call(what, st, outstanding, src, dst);
    return st;
}

// A row step for rowBytes: padded, and now and then zero, negative or
// shorter than the row where the primitive accepts that.
int pick_step(Input &in, int rowBytes, bool oddStepsAllowed);

// A source region for the resampling harnesses on a sw x sh image: mostly the
// whole image, else a part that may overhang it, now and then one that starts
// outside it or at a negative origin.
LumiRect pick_region(Input &in, int sw, int sh);

// True when LUMI_FUZZ_SHOW is set: the harnesses then print each call's
// arguments, to describe a finding from its input.
bool show_calls();

// Aborts with a message: a finding.
[[noreturn]] void fail(const char *what, const char *detail);

// Three-channel primitives with the plane copies' signatures, shared by the
// copy and colour fuzzers.  Each pointer may be null where a family lacks
// that shape.
struct ThreeChannelFns {
    decltype(&lumiCopy_8u_C3P3R) toPlanes;
    decltype(&lumiCopy_8u_P3C3R) fromPlanes;
    decltype(&lumiRGBToYUV_8u_C3R) interleaved;
    bool exactCopy; // the result is a byte-for-byte rearrangement, equal on every tier
};
int run_three_channel(const ThreeChannelFns *fns, int count, const uint8_t *data, size_t size);

// Window filters (box, median): one of the forms, decoded from the input.
struct WindowFns {
    decltype(&lumiFilterBox_8u_C1R) c1, c3;
    decltype(&lumiFilterBox_8u_C1IR) c1InPlace, c3InPlace; // null for a family without them
    bool median; // odd masks only, and the result is the exact median of the window
};
int run_window_filter(const WindowFns &fns, const uint8_t *data, size_t size);

} // namespace lumifuzz
