/*
 * Byte shifts across two registers, for the filter kernels that join a
 * 16-pixel block with its neighbour (the median's sorting network, the small
 * windows of the minimum and maximum filters).
 */
#ifndef LUMI_PIBYTES_H
#define LUMI_PIBYTES_H

#include "tier.h"

#include <emmintrin.h>
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif

namespace LUMI_NS {

/* Bytes k..k+15 of the 32-byte pair lo:hi.  One instruction from SSSE3 on;
 * the SSE3 tier builds it from two shifts and an or, with the same bytes. */
template <int k>
inline __m128i bytes_from(__m128i hi, __m128i lo)
{
#if LUMI_HAS_SSSE3
    return _mm_alignr_epi8(hi, lo, k);
#else
    return _mm_or_si128(_mm_srli_si128(lo, k), _mm_slli_si128(hi, 16 - k));
#endif
}

} // namespace LUMI_NS

#endif
