/*
 * Compare-exchange networks of the median filter for the six fixed windows:
 * lines of three and five cells (horizontal or vertical) and squares of three
 * and five.  Every window's value is its exact median, computed with byte-wide
 * minimum and maximum only, so there are no branches on data.
 *
 * Rows run in three stages: single pixels until the destination is 16-byte
 * aligned, then 16-byte blocks with aligned stores, then the rest in falling
 * blocks of 8, 4 and single bytes with narrower loads, so that no read
 * leaves the window footprint.  One template network serves every width,
 * including the scalar one, so all stages compute the same value.
 *
 * Lines: three cells are min(max(a, b), max(min(a, b), c)); five cells reduce
 * two pairs to m = max of the minima and M = min of the maxima, then take the
 * median of m, M and the fifth cell.  A vertical line of a three-channel
 * image is the one-channel kernel over three times the width; a horizontal
 * one has its neighbours 3 bytes apart.
 *
 * Squares: a row is treated in chunks.  Each chunk first sorts every column
 * of the footprint (3, 5 or 7 rows) and keeps the sorted ranks in a scratch
 * area; each window then reads its columns' ranks back at 0, c, 2c... bytes
 * (c = channels).  For 3 by 3 the median is the median of the largest
 * minimum, the median of the middles and the smallest maximum.  For 5 by 5 a
 * window's 25 values are 5 sorted columns; the median is the 13th smallest,
 * reached by a fixed network.  For 7 by 7 the chunk also merges every pair
 * of neighbouring sorted columns into a sorted 14 once, since seven windows
 * share each column; a window is then the pairs at 0, 2c and 4c and the
 * column at 6c, and a fixed network that keeps only the candidates that can
 * still be the 25th of 49 selects the median.  Both fixed networks come from
 * scripts/median_networks.py, which also proves them exact on every window
 * of zeros and ones (and so on every window).  About 260 byte minima and
 * maxima per 16 windows, against a histogram's update and walk per window;
 * only on the narrowest rows (a footprint row below 10 bytes, where every
 * sort runs byte by byte for one to three windows) is the histogram faster,
 * and the driver keeps those from this kernel.
 *
 * The code is the same in every tier: SSE2 byte minimum and maximum.
 */
#include "tier.h"

#include <emmintrin.h>
#include <stdint.h>
#include <string.h>

#include "pibytes.h"
#include "pimedian.h"

namespace LUMI_NS {
namespace {

inline Lum8u vmin(Lum8u a, Lum8u b) { return a < b ? a : b; }
inline Lum8u vmax(Lum8u a, Lum8u b) { return a < b ? b : a; }
inline __m128i vmin(__m128i a, __m128i b) { return _mm_min_epu8(a, b); }
inline __m128i vmax(__m128i a, __m128i b) { return _mm_max_epu8(a, b); }

template <typename V>
inline void cx(V &a, V &b)
{
    const V lo = vmin(a, b);
    b = vmax(a, b);
    a = lo;
}

template <typename V>
inline V med3(V a, V b, V c)
{
    return vmin(vmax(a, b), vmax(vmin(a, b), c));
}

template <typename V>
inline V med5(V p0, V p1, V p2, V p3, V p4)
{
    const V m = vmax(vmin(p0, p1), vmin(p2, p3));
    const V M = vmin(vmax(p0, p1), vmax(p2, p3));
    return med3(m, M, p4);
}

template <typename V>
inline void sort3(V &a, V &b, V &c)
{
    cx(a, b);
    cx(b, c);
    cx(a, b);
}

template <typename V>
inline void sort5(V v[5])
{
    cx(v[0], v[1]); cx(v[3], v[4]); cx(v[2], v[4]);
    cx(v[2], v[3]); cx(v[1], v[4]); cx(v[0], v[3]);
    cx(v[0], v[2]); cx(v[1], v[3]); cx(v[1], v[2]);
}

template <typename V>
inline void sort7(V v[7])
{
    cx(v[0], v[6]); cx(v[2], v[3]); cx(v[4], v[5]); cx(v[0], v[2]);
    cx(v[1], v[4]); cx(v[3], v[6]); cx(v[0], v[1]); cx(v[2], v[5]);
    cx(v[3], v[4]); cx(v[1], v[2]); cx(v[4], v[6]); cx(v[2], v[3]);
    cx(v[4], v[5]); cx(v[1], v[2]); cx(v[3], v[4]); cx(v[5], v[6]);
}

/* Median of a 3 by 3 window given as its sorted columns s[rank][column]. */
template <typename V>
inline V median9(const V s[3][3])
{
    const V lo = vmax(vmax(s[0][0], s[0][1]), s[0][2]);
    const V mid = med3(s[1][0], s[1][1], s[1][2]);
    const V hi = vmin(vmin(s[2][0], s[2][1]), s[2][2]);
    return med3(lo, mid, hi);
}

/* Median of a 5 by 5 window given as its sorted columns s[rank][column].
 * Of each rank's five values only those that can still be the 13th
 * smallest are kept (ranks 0 to 4 keep 2, 3, 3, 3 and 2), the five groups
 * are merged, and the seventh of the 13 candidates is the median.  The
 * comparators whose results never reach it are left out. */
template <typename V>
inline V median25(const V s[5][5])
{
    const V t0 = vmin(s[0][0], s[0][1]);  const V t1 = vmax(s[0][0], s[0][1]);
    const V t2 = vmin(s[0][3], s[0][4]);  const V t3 = vmax(s[0][3], s[0][4]);
    const V t4 = vmin(s[0][2], t3);  const V t5 = vmax(s[0][2], t3);
    const V t6 = vmax(t4, t2);  const V t7 = vmin(t1, t5);
    const V t8 = vmax(t1, t5);  const V t9 = vmax(t0, t6);
    const V t10 = vmax(t7, t9);  const V t11 = vmin(s[1][0], s[1][1]);
    const V t12 = vmax(s[1][0], s[1][1]);  const V t13 = vmin(s[1][3], s[1][4]);
    const V t14 = vmax(s[1][3], s[1][4]);  const V t15 = vmin(s[1][2], t14);
    const V t16 = vmax(s[1][2], t14);  const V t17 = vmin(t15, t13);
    const V t18 = vmax(t15, t13);  const V t19 = vmin(t12, t16);
    const V t20 = vmax(t12, t16);  const V t21 = vmin(t11, t18);
    const V t22 = vmax(t11, t18);  const V t23 = vmax(t21, t17);
    const V t24 = vmin(t19, t22);  const V t25 = vmax(t19, t22);
    const V t26 = vmax(t24, t23);  const V t27 = vmin(s[2][0], s[2][1]);
    const V t28 = vmax(s[2][0], s[2][1]);  const V t29 = vmin(s[2][3], s[2][4]);
    const V t30 = vmax(s[2][3], s[2][4]);  const V t31 = vmin(s[2][2], t30);
    const V t32 = vmax(s[2][2], t30);  const V t33 = vmin(t31, t29);
    const V t34 = vmax(t31, t29);  const V t35 = vmin(t28, t32);
    const V t36 = vmin(t27, t34);  const V t37 = vmax(t27, t34);
    const V t38 = vmax(t36, t33);  const V t39 = vmin(t35, t37);
    const V t40 = vmax(t35, t37);  const V t41 = vmin(t39, t38);
    const V t42 = vmax(t39, t38);  const V t43 = vmin(s[3][0], s[3][1]);
    const V t44 = vmax(s[3][0], s[3][1]);  const V t45 = vmin(s[3][3], s[3][4]);
    const V t46 = vmax(s[3][3], s[3][4]);  const V t47 = vmin(s[3][2], t46);
    const V t48 = vmax(s[3][2], t46);  const V t49 = vmin(t47, t45);
    const V t50 = vmax(t47, t45);  const V t51 = vmin(t44, t48);
    const V t52 = vmin(t43, t50);  const V t53 = vmax(t43, t50);
    const V t54 = vmin(t52, t49);  const V t55 = vmax(t52, t49);
    const V t56 = vmin(t51, t53);  const V t57 = vmin(t56, t55);
    const V t58 = vmax(t56, t55);  const V t59 = vmin(s[4][0], s[4][1]);
    const V t60 = vmax(s[4][0], s[4][1]);  const V t61 = vmin(s[4][3], s[4][4]);
    const V t62 = vmax(s[4][3], s[4][4]);  const V t63 = vmin(s[4][2], t62);
    const V t64 = vmax(s[4][2], t62);  const V t65 = vmin(t63, t61);
    const V t66 = vmax(t63, t61);  const V t67 = vmin(t60, t64);
    const V t68 = vmin(t59, t66);  const V t69 = vmax(t59, t66);
    const V t70 = vmin(t68, t65);  const V t71 = vmax(t68, t65);
    const V t72 = vmin(t67, t69);  const V t73 = vmin(t72, t71);
    const V t74 = vmin(t26, t41);  const V t75 = vmax(t26, t41);
    const V t76 = vmin(t20, t40);  const V t77 = vmax(t20, t40);
    const V t78 = vmin(t76, t75);  const V t79 = vmax(t76, t75);
    const V t80 = vmin(t25, t42);  const V t81 = vmax(t25, t42);
    const V t82 = vmin(t80, t78);  const V t83 = vmax(t80, t78);
    const V t84 = vmin(t81, t79);  const V t85 = vmax(t81, t79);
    const V t86 = vmin(t10, t70);  const V t87 = vmax(t10, t70);
    const V t88 = vmin(t8, t73);  const V t89 = vmax(t8, t73);
    const V t90 = vmin(t88, t87);  const V t91 = vmax(t88, t87);
    const V t92 = vmin(t54, t86);  const V t93 = vmax(t54, t86);
    const V t94 = vmin(t58, t91);  const V t95 = vmax(t58, t91);
    const V t96 = vmin(t94, t93);  const V t97 = vmax(t94, t93);
    const V t98 = vmin(t57, t90);  const V t99 = vmax(t57, t90);
    const V t100 = vmin(t89, t99);  const V t101 = vmax(t89, t99);
    const V t102 = vmin(t98, t96);  const V t103 = vmax(t98, t96);
    const V t104 = vmin(t100, t97);  const V t105 = vmax(t100, t97);
    const V t106 = vmin(t101, t95);  const V t107 = vmax(t101, t95);
    const V t108 = vmax(t74, t92);  const V t109 = vmin(t85, t105);
    const V t110 = vmax(t109, t108);  const V t111 = vmax(t83, t103);
    const V t112 = vmin(t107, t111);  const V t113 = vmin(t112, t110);
    const V t114 = vmax(t82, t102);  const V t115 = vmin(t77, t106);
    const V t116 = vmin(t115, t114);  const V t117 = vmin(t84, t104);
    const V t118 = vmax(t117, t116);  const V t119 = vmax(t118, t113);
    return t119;
}

/* The sorted 14 of two sorted columns of 7 (odd-even merge). */
template <typename V>
inline void merge7(const V a[7], const V b[7], V out[14])
{
    const V t0 = vmin(a[0], b[0]);  const V t1 = vmax(a[0], b[0]);
    const V t2 = vmin(a[4], b[4]);  const V t3 = vmax(a[4], b[4]);
    const V t4 = vmin(t2, t1);  const V t5 = vmax(t2, t1);
    const V t6 = vmin(a[2], b[2]);  const V t7 = vmax(a[2], b[2]);
    const V t8 = vmin(a[6], b[6]);  const V t9 = vmax(a[6], b[6]);
    const V t10 = vmin(t8, t7);  const V t11 = vmax(t8, t7);
    const V t12 = vmin(t6, t4);  const V t13 = vmax(t6, t4);
    const V t14 = vmin(t10, t5);  const V t15 = vmax(t10, t5);
    const V t16 = vmin(t11, t3);  const V t17 = vmax(t11, t3);
    const V t18 = vmin(a[1], b[1]);  const V t19 = vmax(a[1], b[1]);
    const V t20 = vmin(a[5], b[5]);  const V t21 = vmax(a[5], b[5]);
    const V t22 = vmin(t20, t19);  const V t23 = vmax(t20, t19);
    const V t24 = vmin(a[3], b[3]);  const V t25 = vmax(a[3], b[3]);
    const V t26 = vmin(t24, t22);  const V t27 = vmax(t24, t22);
    const V t28 = vmin(t25, t23);  const V t29 = vmax(t25, t23);
    const V t30 = vmin(t18, t12);  const V t31 = vmax(t18, t12);
    const V t32 = vmin(t26, t13);  const V t33 = vmax(t26, t13);
    const V t34 = vmin(t27, t14);  const V t35 = vmax(t27, t14);
    const V t36 = vmin(t28, t15);  const V t37 = vmax(t28, t15);
    const V t38 = vmin(t29, t16);  const V t39 = vmax(t29, t16);
    const V t40 = vmin(t21, t17);  const V t41 = vmax(t21, t17);
    out[0] = t0;  out[1] = t30;
    out[2] = t31;  out[3] = t32;
    out[4] = t33;  out[5] = t34;
    out[6] = t35;  out[7] = t36;
    out[8] = t37;  out[9] = t38;
    out[10] = t39;  out[11] = t40;
    out[12] = t41;  out[13] = t9;
}

/* Median of a 7 by 7 window given as the sorted pairs of its columns 0-1,
 * 2-3 and 4-5 (p[pair][rank]) and its sorted column 6 (c[rank]): the 25th
 * smallest of the 49. */
template <typename V>
inline V median49(const V p[3][14], const V c[7])
{
    const V t0 = vmax(p[0][0], p[1][0]);  const V t1 = vmin(p[0][8], p[1][8]);
    const V t2 = vmax(p[0][8], p[1][8]);  const V t3 = vmin(t1, t0);
    const V t4 = vmax(t1, t0);  const V t5 = vmin(p[0][4], p[1][4]);
    const V t6 = vmax(p[0][4], p[1][4]);  const V t7 = vmin(p[0][12], p[1][12]);
    const V t8 = vmin(t7, t6);  const V t9 = vmax(t7, t6);
    const V t10 = vmin(t5, t3);  const V t11 = vmax(t5, t3);
    const V t12 = vmin(t8, t4);  const V t13 = vmax(t8, t4);
    const V t14 = vmin(t9, t2);  const V t15 = vmax(t9, t2);
    const V t16 = vmin(p[0][2], p[1][2]);  const V t17 = vmax(p[0][2], p[1][2]);
    const V t18 = vmin(p[0][10], p[1][10]);  const V t19 = vmax(p[0][10], p[1][10]);
    const V t20 = vmin(t18, t17);  const V t21 = vmax(t18, t17);
    const V t22 = vmin(p[0][6], p[1][6]);  const V t23 = vmax(p[0][6], p[1][6]);
    const V t24 = vmin(t22, t20);  const V t25 = vmax(t22, t20);
    const V t26 = vmin(t23, t21);  const V t27 = vmax(t23, t21);
    const V t28 = vmax(t16, t10);  const V t29 = vmin(t24, t11);
    const V t30 = vmax(t24, t11);  const V t31 = vmin(t25, t12);
    const V t32 = vmax(t25, t12);  const V t33 = vmin(t26, t13);
    const V t34 = vmax(t26, t13);  const V t35 = vmin(t27, t14);
    const V t36 = vmax(t27, t14);  const V t37 = vmin(t19, t15);
    const V t38 = vmax(t19, t15);  const V t39 = vmax(p[0][1], p[1][1]);
    const V t40 = vmin(p[0][9], p[1][9]);  const V t41 = vmax(p[0][9], p[1][9]);
    const V t42 = vmin(t40, t39);  const V t43 = vmax(t40, t39);
    const V t44 = vmin(p[0][5], p[1][5]);  const V t45 = vmax(p[0][5], p[1][5]);
    const V t46 = vmin(p[0][13], p[1][13]);  const V t47 = vmin(t46, t45);
    const V t48 = vmax(t46, t45);  const V t49 = vmin(t44, t42);
    const V t50 = vmax(t44, t42);  const V t51 = vmin(t47, t43);
    const V t52 = vmax(t47, t43);  const V t53 = vmin(t48, t41);
    const V t54 = vmax(t48, t41);  const V t55 = vmin(p[0][3], p[1][3]);
    const V t56 = vmax(p[0][3], p[1][3]);  const V t57 = vmin(p[0][11], p[1][11]);
    const V t58 = vmax(p[0][11], p[1][11]);  const V t59 = vmin(t57, t56);
    const V t60 = vmax(t57, t56);  const V t61 = vmin(p[0][7], p[1][7]);
    const V t62 = vmax(p[0][7], p[1][7]);  const V t63 = vmin(t61, t59);
    const V t64 = vmax(t61, t59);  const V t65 = vmin(t62, t60);
    const V t66 = vmax(t62, t60);  const V t67 = vmin(t55, t49);
    const V t68 = vmax(t55, t49);  const V t69 = vmin(t63, t50);
    const V t70 = vmax(t63, t50);  const V t71 = vmin(t64, t51);
    const V t72 = vmax(t64, t51);  const V t73 = vmin(t65, t52);
    const V t74 = vmax(t65, t52);  const V t75 = vmin(t66, t53);
    const V t76 = vmax(t66, t53);  const V t77 = vmin(t58, t54);
    const V t78 = vmin(t67, t28);  const V t79 = vmax(t67, t28);
    const V t80 = vmin(t68, t29);  const V t81 = vmax(t68, t29);
    const V t82 = vmin(t69, t30);  const V t83 = vmax(t69, t30);
    const V t84 = vmin(t70, t31);  const V t85 = vmax(t70, t31);
    const V t86 = vmin(t71, t32);  const V t87 = vmax(t71, t32);
    const V t88 = vmin(t72, t33);  const V t89 = vmax(t72, t33);
    const V t90 = vmin(t73, t34);  const V t91 = vmax(t73, t34);
    const V t92 = vmin(t74, t35);  const V t93 = vmax(t74, t35);
    const V t94 = vmin(t75, t36);  const V t95 = vmax(t75, t36);
    const V t96 = vmin(t76, t37);  const V t97 = vmax(t76, t37);
    const V t98 = vmin(t77, t38);  const V t99 = vmax(t77, t38);
    const V t100 = vmax(t78, p[2][0]);  const V t101 = vmin(t94, t100);
    const V t102 = vmax(t94, t100);  const V t103 = vmin(t86, p[2][8]);
    const V t104 = vmax(t86, p[2][8]);  const V t105 = vmax(t103, t101);
    const V t106 = vmin(t104, t102);  const V t107 = vmax(t82, p[2][4]);
    const V t108 = vmin(t98, t107);  const V t109 = vmin(t90, p[2][12]);
    const V t110 = vmin(t109, t108);  const V t111 = vmax(t109, t108);
    const V t112 = vmax(t110, t105);  const V t113 = vmin(t111, t106);
    const V t114 = vmax(t111, t106);  const V t115 = vmax(t80, p[2][2]);
    const V t116 = vmin(t96, t115);  const V t117 = vmax(t96, t115);
    const V t118 = vmin(t88, p[2][10]);  const V t119 = vmax(t88, p[2][10]);
    const V t120 = vmax(t118, t116);  const V t121 = vmin(t119, t117);
    const V t122 = vmax(t84, p[2][6]);  const V t123 = vmin(t92, t122);
    const V t124 = vmax(t92, t122);  const V t125 = vmin(t123, t120);
    const V t126 = vmax(t123, t120);  const V t127 = vmin(t124, t121);
    const V t128 = vmin(t125, t112);  const V t129 = vmax(t125, t112);
    const V t130 = vmin(t126, t113);  const V t131 = vmax(t126, t113);
    const V t132 = vmin(t127, t114);  const V t133 = vmax(t79, p[2][1]);
    const V t134 = vmin(t95, t133);  const V t135 = vmax(t95, t133);
    const V t136 = vmin(t87, p[2][9]);  const V t137 = vmax(t87, p[2][9]);
    const V t138 = vmax(t136, t134);  const V t139 = vmin(t137, t135);
    const V t140 = vmax(t83, p[2][5]);  const V t141 = vmin(t99, t140);
    const V t142 = vmin(t91, p[2][13]);  const V t143 = vmin(t142, t141);
    const V t144 = vmax(t142, t141);  const V t145 = vmin(t143, t138);
    const V t146 = vmax(t143, t138);  const V t147 = vmin(t144, t139);
    const V t148 = vmax(t81, p[2][3]);  const V t149 = vmin(t97, t148);
    const V t150 = vmin(t89, p[2][11]);  const V t151 = vmin(t150, t149);
    const V t152 = vmax(t150, t149);  const V t153 = vmin(t85, p[2][7]);
    const V t154 = vmax(t85, p[2][7]);  const V t155 = vmin(t93, t154);
    const V t156 = vmax(t153, t151);  const V t157 = vmin(t155, t152);
    const V t158 = vmax(t155, t152);  const V t159 = vmax(t156, t145);
    const V t160 = vmin(t157, t146);  const V t161 = vmax(t157, t146);
    const V t162 = vmin(t158, t147);  const V t163 = vmax(t158, t147);
    const V t164 = vmax(t159, t128);  const V t165 = vmin(t160, t129);
    const V t166 = vmax(t160, t129);  const V t167 = vmin(t161, t130);
    const V t168 = vmax(t161, t130);  const V t169 = vmin(t162, t131);
    const V t170 = vmax(t162, t131);  const V t171 = vmin(t163, t132);
    const V t172 = vmax(t164, c[0]);  const V t173 = vmin(t168, c[4]);
    const V t174 = vmax(t173, t172);  const V t175 = vmax(t166, c[2]);
    const V t176 = vmin(t170, c[6]);  const V t177 = vmin(t176, t175);
    const V t178 = vmax(t177, t174);  const V t179 = vmax(t165, c[1]);
    const V t180 = vmin(t169, c[5]);  const V t181 = vmax(t180, t179);
    const V t182 = vmax(t167, c[3]);  const V t183 = vmin(t171, t182);
    const V t184 = vmin(t183, t181);  const V t185 = vmin(t184, t178);
    return t185;
}

/* Byte blocks a network runs on: loads, stores and the value type. */
struct Bytes1 {
    typedef Lum8u V;
    static V ld(const Lum8u *p) { return *p; }
    static void st(Lum8u *p, V v) { *p = v; }
};
struct Bytes4 {
    typedef __m128i V;
    static V ld(const Lum8u *p)
    {
        int32_t x;
        memcpy(&x, p, 4);
        return _mm_cvtsi32_si128(x);
    }
    static void st(Lum8u *p, V v)
    {
        const int32_t x = _mm_cvtsi128_si32(v);
        memcpy(p, &x, 4);
    }
};
struct Bytes8 {
    typedef __m128i V;
    static V ld(const Lum8u *p) { return _mm_loadl_epi64((const __m128i *)p); }
    static void st(Lum8u *p, V v) { _mm_storel_epi64((__m128i *)p, v); }
};
struct Bytes16 {
    typedef __m128i V;
    static V ld(const Lum8u *p) { return _mm_loadu_si128((const __m128i *)p); }
    /* Only used once the destination is aligned. */
    static void st(Lum8u *p, V v) { _mm_store_si128((__m128i *)p, v); }
};

/* One destination row of n bytes: head to alignment, aligned blocks of 16
 * (two at a time when `pairs`), then falling blocks. */
template <bool pairs, typename K>
void run_row(const K &k, Lum8u *dst, int32_t n)
{
    int32_t j = 0;
    int32_t head = (int32_t)((16 - ((uintptr_t)dst & 15)) & 15);
    if (head > n)
        head = n;
    for (; j < head; ++j)
        k.template at<Bytes1>(j);
    if (pairs)
        for (; j + 32 <= n; j += 32) {
            k.template at<Bytes16>(j);
            k.template at<Bytes16>(j + 16);
        }
    for (; j + 16 <= n; j += 16)
        k.template at<Bytes16>(j);
    if (j + 8 <= n) {
        k.template at<Bytes8>(j);
        j += 8;
    }
    if (j + 4 <= n) {
        k.template at<Bytes4>(j);
        j += 4;
    }
    for (; j < n; ++j)
        k.template at<Bytes1>(j);
}

template <int taps>
struct LineKernel {
    const Lum8u *src; /* centre of the first window */
    intptr_t stride;  /* bytes between neighbouring cells */
    Lum8u *dst;

    template <typename A>
    void at(int32_t j) const
    {
        const Lum8u *p = src + j;
        typename A::V out;
        if constexpr (taps == 3)
            out = med3(A::ld(p - stride), A::ld(p), A::ld(p + stride));
        else
            out = med5(A::ld(p - 2 * stride), A::ld(p - stride), A::ld(p + stride),
                       A::ld(p + 2 * stride), A::ld(p));
        A::st(dst + j, out);
    }
};

/* Output bytes per chunk of a square window's row: the chunk's sorted
 * columns stay in automatic storage. */
const int32_t kChunk = 512;
const int32_t kMaxReach = 3 * 3; /* half of a 7-cell window, in bytes of C3 */
const int32_t kScratch = kChunk + 16 + 2 * kMaxReach + 16;

/* Runs step(Bytes16, k) or step(Bytes1, k) over bytes [0, len): blocks of
 * 16, the last one moved back to end at len (a block done twice gives the
 * same bytes), single bytes when len is below 16. */
template <typename F>
inline void over_bytes(int32_t len, F step)
{
    int32_t k = 0;
    for (; k + 16 <= len; k += 16)
        step(Bytes16(), k);
    if (k < len) {
        if (len >= 16)
            step(Bytes16(), len - 16);
        else
            for (; k < len; ++k)
                step(Bytes1(), k);
    }
}

template <int side>
struct SquareKernel {
    Lum8u ranks[side][kScratch]; /* sorted columns; index 0 is the chunk's left reach */
    /* 7 by 7 only: the merged pair of sorted columns k and k + c. */
    Lum8u pairs[side == 7 ? 14 : 1][kScratch];
    int32_t c; /* bytes per pixel */
    Lum8u *dst;

    /* Sorts the columns of bytes [0, len) of the footprint rows
     * (rows[r] points at the chunk's leftmost byte of row r), and for 7 by 7
     * merges each pair of neighbouring columns. */
    void sort_columns(const Lum8u *const rows[side], int32_t len)
    {
        over_bytes(len, [&](auto a, int32_t k) { sort_block<decltype(a)>(rows, k); });
        if constexpr (side == 7)
            over_bytes(len - c, [&](auto a, int32_t k) { pair_block<decltype(a)>(k); });
    }

    template <typename A>
    void sort_block(const Lum8u *const rows[side], int32_t k)
    {
        typename A::V v[side];
        for (int r = 0; r < side; ++r)
            v[r] = A::ld(rows[r] + k);
        if constexpr (side == 3)
            sort3(v[0], v[1], v[2]);
        else if constexpr (side == 5)
            sort5(v);
        else
            sort7(v);
        for (int r = 0; r < side; ++r)
            memcpy(ranks[r] + k, &v[r], sizeof v[r]); /* scratch need not be aligned */
    }

    template <typename A>
    void pair_block(int32_t k)
    {
        typename A::V a[7], b[7], m[14];
        for (int r = 0; r < 7; ++r) {
            a[r] = A::ld(ranks[r] + k);
            b[r] = A::ld(ranks[r] + k + c);
        }
        merge7(a, b, m);
        for (int r = 0; r < 14; ++r)
            memcpy(pairs[r] + k, &m[r], sizeof m[r]);
    }

    template <typename A>
    void at(int32_t j) const
    {
        if constexpr (side == 7) {
            typename A::V p[3][14], col[7];
            for (int g = 0; g < 3; ++g)
                for (int r = 0; r < 14; ++r)
                    p[g][r] = A::ld(pairs[r] + j + 2 * g * c);
            for (int r = 0; r < 7; ++r)
                col[r] = A::ld(ranks[r] + j + 6 * c);
            A::st(dst + j, median49(p, col));
        } else {
            typename A::V s[side][side];
            for (int r = 0; r < side; ++r)
                for (int col = 0; col < side; ++col)
                    s[r][col] = A::ld(ranks[r] + j + col * c);
            if constexpr (side == 3)
                A::st(dst + j, median9(s));
            else
                A::st(dst + j, median25(s));
        }
    }
};

} // namespace

void median_line_rows(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                      int32_t rowBytes, int32_t height, int taps, intptr_t stride)
{
    for (int32_t y = 0; y < height; ++y) {
        const Lum8u *src = pSrc + (intptr_t)y * srcStep;
        Lum8u *dst = pDst + (intptr_t)y * dstStep;
        if (taps == 3)
            run_row<true>(LineKernel<3>{src, stride, dst}, dst, rowBytes);
        else
            run_row<false>(LineKernel<5>{src, stride, dst}, dst, rowBytes);
    }
}

namespace {

/* Output bytes [a, b) of one row through the scratch of sorted columns;
 * `centre` is the centre of output byte 0's window. */
template <int side>
void scratch_range(SquareKernel<side> &k, const Lum8u *centre, int32_t srcStep, Lum8u *dst,
                   int32_t a, int32_t b)
{
    const int32_t reach = (side / 2) * k.c;
    /* The first chunk also takes the head, so later chunks start aligned. */
    int32_t j0 = a;
    int32_t m = kChunk + (int32_t)((16 - ((uintptr_t)(dst + a) & 15)) & 15);
    while (j0 < b) {
        if (m > b - j0)
            m = b - j0;
        const Lum8u *rows[side];
        for (int r = 0; r < side; ++r)
            rows[r] = centre + (intptr_t)(r - side / 2) * srcStep + j0 - reach;
        k.sort_columns(rows, m + 2 * reach);
        k.dst = dst + j0;
        run_row<false>(k, dst + j0, m);
        j0 += m;
        m = kChunk;
    }
}

struct Sorted3 {
    __m128i r[3]; /* lo, mid, hi of each column */
};

inline Sorted3 sorted_block(const Lum8u *const rows[3], int32_t x)
{
    Sorted3 t;
    for (int r = 0; r < 3; ++r)
        t.r[r] = Bytes16::ld(rows[r] + x);
    sort3(t.r[0], t.r[1], t.r[2]);
    return t;
}

/* The 3x3 body over aligned blocks [x0, x1): each block's sorted columns
 * are made once and reach the neighbouring windows by byte shifts of the
 * carried blocks, c bytes either way. */
template <int c>
void median9_body(const Lum8u *const rows[3], Lum8u *dst, int32_t x0, int32_t x1)
{
    Sorted3 prev = sorted_block(rows, x0 - 16), cur = sorted_block(rows, x0);
    for (int32_t x = x0; x < x1; x += 16) {
        const Sorted3 next = sorted_block(rows, x + 16);
        __m128i s[3][3];
        for (int r = 0; r < 3; ++r) {
            s[r][0] = bytes_from<16 - c>(cur.r[r], prev.r[r]);
            s[r][1] = cur.r[r];
            s[r][2] = bytes_from<c>(next.r[r], cur.r[r]);
        }
        Bytes16::st(dst + x, median9(s));
        prev = cur;
        cur = next;
    }
}

template <int side>
void square_rows(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi,
                 int channels)
{
    SquareKernel<side> k;
    k.c = channels;
    const int32_t n = roi.width * channels;
    for (int32_t y = 0; y < roi.height; ++y) {
        const Lum8u *centre = pSrc + (intptr_t)y * srcStep;
        Lum8u *dst = pDst + (intptr_t)y * dstStep;
        if constexpr (side == 3) {
            /* Blocks in registers where a whole block on each side stays
             * inside the footprint; the scratch does both ends. */
            const int32_t x0 = 16 + (int32_t)((16 - ((uintptr_t)dst & 15)) & 15);
            int32_t x1 = x0;
            while (x1 + 32 <= n + channels)
                x1 += 16;
            if (x1 > x0) {
                const Lum8u *rows[3] = {centre - srcStep, centre, centre + srcStep};
                scratch_range(k, centre, srcStep, dst, 0, x0);
                if (channels == 1)
                    median9_body<1>(rows, dst, x0, x1);
                else
                    median9_body<3>(rows, dst, x0, x1);
                scratch_range(k, centre, srcStep, dst, x1, n);
                continue;
            }
        }
        scratch_range(k, centre, srcStep, dst, 0, n);
    }
}

} // namespace

namespace {

void square(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi,
            LumiMaskSize mask, int channels)
{
    if (mask == lumMaskSize3x3)
        square_rows<3>(pSrc, srcStep, pDst, dstStep, roi, channels);
    else if (mask == lumMaskSize5x5)
        square_rows<5>(pSrc, srcStep, pDst, dstStep, roi, channels);
    else if (mask == kMedianSquare7)
        square_rows<7>(pSrc, srcStep, pDst, dstStep, roi, channels);
}

} // namespace

void ownlumiFilterMedianSqr_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                   int32_t dstStep, LumiSize roi, LumiMaskSize mask)
{
    square(pSrc, srcStep, pDst, dstStep, roi, mask, 1);
}

void ownlumiFilterMedianSqr_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                   int32_t dstStep, LumiSize roi, LumiMaskSize mask)
{
    square(pSrc, srcStep, pDst, dstStep, roi, mask, 3);
}

} // namespace LUMI_NS
