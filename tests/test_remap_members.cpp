// Remap members without a dispatcher, in every tier: 16u, 16s, 32f, 64f and
// the four-element and planar layouts of 8u, each kernel on both paths
// against the per-pixel reference (AC4's fourth element and the padding of
// every plane are part of the comparison), and the planar forms' late test
// of null plane pointers.
#include <gtest/gtest.h>

#include <string.h>

#include "lumi.h"
#include "support/members.h"
#include "support/remap_ref.h"

extern "C" const float m7_tblLanczos3[302];

using lumitest::TierMembers;
using namespace remapref;

namespace {

class RemapMembers : public ::testing::TestWithParam<TierMembers> {
protected:
    bool low() const { return strcmp(GetParam().name, "m7") == 0; }

    template <class T, class Fn> void check_all(Fn *fn, Layout lay)
    {
        typedef typename Case<T>::M M;
        const struct { LumiSize src; LumiRect roi; } shapes[] = {
            {{15, 12}, {0, 0, 15, 12}}, {{21, 17}, {3, 5, 10, 6}}, {{7, 9}, {6, 8, 4, 4}}, {{3, 9}, {0, 0, 3, 9}}};
        for (const auto &sh : shapes)
            for (int sel : {1, 2, 4, 6, 16})
                for (int soft : {0, LUMI_SMOOTH_EDGE}) {
                    Case<T> c{lay, sh.src, sh.roi, {19, 7}, sel | soft, low(), m7_tblLanczos3};
                    c.seed = (uint32_t)(sel * 31 + (soft ? 1 : 0) + sh.src.width);
                    EXPECT_TRUE(c.run([&](const void *s, int ss, const M *xm, int xs, const M *ym, int ys, void *d,
                                          int ds) {
                        return call(fn, s, sh.src, ss, sh.roi, xm, xs, ym, ys, d, ds, LumiSize{19, 7}, sel | soft);
                    })) << "layout " << lay << " selector " << sel << " soft " << (soft != 0) << " source "
                        << sh.src.width << "x" << sh.src.height;
                }
    }

    template <class T, class M>
    static LumStatus call(LumiRemapFn<T, M> *fn, const void *s, LumiSize ss, int st, LumiRect roi, const M *xm,
                          int xs, const M *ym, int ys, void *d, int ds, LumiSize dsz, int interp)
    {
        return fn((const T *)s, ss, st, roi, xm, xs, ym, ys, (T *)d, ds, dsz, interp);
    }
    template <class T, class M>
    static LumStatus call(LumiRemapPlanarFn<T, M> *fn, const void *s, LumiSize ss, int st, LumiRect roi,
                          const M *xm, int xs, const M *ym, int ys, void *d, int ds, LumiSize dsz, int interp)
    {
        return fn((const T *const *)s, ss, st, roi, xm, xs, ym, ys, (T *const *)d, ds, dsz, interp);
    }
};

#define REMAP_TYPE_CASES(T, t, C13)                                                                \
    TEST_P(RemapMembers, Type##t)                                                                  \
    {                                                                                              \
        const TierMembers &m = GetParam();                                                         \
        C13(T, t)                                                                                  \
        check_all<T>(m.lumiRemap_##t##_C4R, C4);                                                   \
        check_all<T>(m.lumiRemap_##t##_AC4R, AC4);                                                 \
        check_all<T>(m.lumiRemap_##t##_P3R, P3);                                                   \
        check_all<T>(m.lumiRemap_##t##_P4R, P4);                                                   \
    }
#define REMAP_WITH_C13(T, t)                                                                       \
    check_all<T>(m.lumiRemap_##t##_C1R, C1);                                                       \
    check_all<T>(m.lumiRemap_##t##_C3R, C3);
#define REMAP_NO_C13(T, t)

REMAP_TYPE_CASES(Lum8u, 8u, REMAP_NO_C13)
REMAP_TYPE_CASES(Lum16u, 16u, REMAP_WITH_C13)
REMAP_TYPE_CASES(Lum16s, 16s, REMAP_WITH_C13)
REMAP_TYPE_CASES(Lum32f, 32f, REMAP_WITH_C13)
REMAP_TYPE_CASES(Lum64f, 64f, REMAP_WITH_C13)

// A null plane is reported after the selector, the steps and the region's
// origin, so those statuses win over it; both arrays' planes are tested.
TEST_P(RemapMembers, NullPlanesAreTestedLast)
{
    const TierMembers &m = GetParam();
    std::vector<Lum16u> plane(64, 3), out(16, 9);
    std::vector<float> map(16, 1.0f);
    const Lum16u *src[3] = {plane.data(), nullptr, plane.data()};
    Lum16u *dst[3] = {out.data(), out.data(), out.data()};
    auto run = [&](const Lum16u *const *s, Lum16u *const *d, LumiRect roi, int step, int interp) {
        return m.lumiRemap_16u_P3R(s, {8, 8}, 16, roi, map.data(), step, map.data(), 16, d, 8, {4, 4}, interp);
    };
    EXPECT_EQ(run(src, dst, {0, 0, 8, 8}, 16, 3), lumStsInterpolationErr);
    EXPECT_EQ(run(src, dst, {0, 0, 8, 8}, 0, 2), lumStsStepErr);
    EXPECT_EQ(run(src, dst, {8, 0, 8, 8}, 16, 2), lumStsNoIntersectRoiWarn);
    EXPECT_EQ(run(src, dst, {0, 0, 8, 8}, 16, 2), lumStsNullPtrErr);
    src[1] = plane.data();
    dst[2] = nullptr;
    EXPECT_EQ(run(src, dst, {0, 0, 8, 8}, 16, 2 | LUMI_SMOOTH_EDGE), lumStsNullPtrErr);
    EXPECT_EQ(run(nullptr, dst, {0, 0, 8, 8}, 16, 3), lumStsNullPtrErr);
    EXPECT_EQ(out, std::vector<Lum16u>(16, 9));
}

LUMI_INSTANTIATE_TIER_MEMBERS(RemapMembers);

}  // namespace
