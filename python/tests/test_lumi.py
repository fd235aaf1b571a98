"""The Python module against the C calls it wraps, and against OpenCV where
the two compute the same thing."""
import ctypes
import warnings

import numpy as np
import pytest

import lumi
from lumi import _native

RNG = np.random.default_rng(2026)


def noise(h, w, ch=3, dtype=np.uint8):
    shape = (h, w) + ((ch,) if ch > 1 else ())
    if dtype == np.float32:
        return RNG.random(shape, dtype=np.float32)
    info = np.iinfo(dtype)
    return RNG.integers(info.min, info.max, shape, dtype=dtype, endpoint=True)


def c_call(name, *args):
    """The primitive called directly, arguments laid out by hand."""
    status = _native.functions[name](*args)
    assert status == 0, (name, status)


def ptr(a, x=0, y=0):
    ch = a.shape[2] if a.ndim == 3 else 1
    return a.ctypes.data + y * a.strides[0] + x * ch * a.itemsize


def planes_arg(ps):
    return (ctypes.c_void_p * 3)(*[p.ctypes.data for p in ps])


S, R, P = lumi.Size, lumi.Rect, lumi.Point


# ----------------------------------------------------- same bytes as the C call --

def test_copies_and_colour_match_the_c_calls():
    img = noise(23, 37)
    h, w = 23, 37
    planes = lumi.split(img)
    want = [np.empty((h, w), np.uint8) for _ in range(3)]
    c_call("lumiCopy_8u_C3P3R", ptr(img), w * 3, planes_arg(want), w, S(w, h))
    assert all((a == b).all() for a, b in zip(planes, want))
    assert (lumi.merge(planes) == img).all()

    want = np.empty_like(img)
    c_call("lumiRGBToYUV_8u_C3R", ptr(img), w * 3, ptr(want), w * 3, S(w, h))
    assert (lumi.rgb_to_yuv(img) == want).all()
    want_p = [np.empty((h, w), np.uint8) for _ in range(3)]
    c_call("lumiRGBToYUV_8u_C3P3R", ptr(img), w * 3, planes_arg(want_p), w, S(w, h))
    assert all((a == b).all() for a, b in zip(lumi.rgb_to_yuv(img, planes=True), want_p))
    c_call("lumiYUVToRGB_8u_P3C3R", planes_arg(want_p), w, ptr(want), w * 3, S(w, h))
    assert (lumi.yuv_to_rgb(want_p) == want).all()


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
def test_hls_in_every_type_matches_the_c_call(dtype):
    img = noise(9, 21, 3, dtype)
    suffix = {np.uint8: "8u", np.uint16: "16u", np.int16: "16s", np.float32: "32f"}[dtype]
    want = np.empty_like(img)
    c_call("lumiRGBToHLS_%s_C3R" % suffix, ptr(img), img.strides[0], ptr(want), want.strides[0],
           S(21, 9))
    got = lumi.rgb_to_hls(img)
    assert got.dtype == img.dtype and got.tobytes() == want.tobytes()
    c_call("lumiHLSToRGB_%s_C3R" % suffix, ptr(want), want.strides[0], ptr(img), img.strides[0],
           S(21, 9))
    assert lumi.hls_to_rgb(want).tobytes() == img.tobytes()


@pytest.mark.parametrize("method", ["nn", "linear", "cubic", "lanczos"])
def test_resize_of_a_region_matches_the_c_call(method):
    img = noise(40, 50)
    want = np.zeros((21, 33, 3), np.uint8)
    fx, fy = 33 / 30, 21 / 18
    c_call("lumiResize_8u_C3R", ptr(img), S(50, 40), 150, R(7, 5, 30, 18), ptr(want), 99,
           S(33, 21), fx, fy, lumi.INTER[method])
    assert (lumi.resize(img, (33, 21), method=method, roi=(7, 5, 30, 18)) == want).all()


@pytest.mark.parametrize("ch", [1, 3])
def test_filters_match_the_c_calls_on_a_replicated_border(ch):
    img = noise(19, 26, ch)
    h, w = 19, 26
    cases = [("lumiFilterBox_8u_C%dR" % ch, lumi.box, (5, 3)),
             ("lumiFilterMedian_8u_C%dR" % ch, lumi.median, (5, 3))]
    if ch == 1:
        cases += [("lumiFilterMin_8u_C1R", lumi.min_filter, (4, 3)),
                  ("lumiFilterMax_8u_C1R", lumi.max_filter, (4, 3))]
    for name, fn, (mw, mh) in cases:
        # Anchor (3, 2): the window reaches 3 left, 2 up, mw - 4 right, mh - 3 down.
        pad = ((2, mh - 3), (3, mw - 4)) + (((0, 0),) if ch == 3 else ())
        padded = np.pad(img, pad, mode="edge")
        want = np.empty_like(img)
        c_call(name, ptr(padded, 3, 2), padded.strides[0], ptr(want), want.strides[0], S(w, h),
               S(mw, mh), P(3, 2))
        assert (fn(img, (mw, mh), anchor=(3, 2)) == want).all(), name


def test_convolution_and_gauss_match_the_c_calls():
    img = noise(17, 20)
    kernel = np.array([[1, 2, 0], [-1, 5, 3]], np.int32)  # 3 wide, 2 tall, anchor (1, 0)
    # The kernel is mirrored: the window reaches 3 - 1 - 1 = 1 left, 2 - 1 - 0 = 1 up.
    padded = np.pad(img, ((1, 0), (1, 1), (0, 0)), mode="edge")
    want = np.empty_like(img)
    c_call("lumiFilter_8u_C3R", ptr(padded, 1, 1), padded.strides[0], ptr(want), 60, S(20, 17),
           kernel.ctypes.data, S(3, 2), P(1, 0), 7)
    assert (lumi.filter(img, kernel, divisor=7, anchor=(1, 0)) == want).all()
    kf = kernel.astype(np.float32) / 7
    c_call("lumiFilter32f_8u_C3R", ptr(padded, 1, 1), padded.strides[0], ptr(want), 60,
           S(20, 17), kf.ctypes.data, S(3, 2), P(1, 0))
    assert (lumi.filter32f(img, kf, anchor=(1, 0)) == want).all()
    padded = np.pad(img, ((2, 2), (2, 2), (0, 0)), mode="reflect")
    c_call("lumiFilterGauss_8u_C3R", ptr(padded, 2, 2), padded.strides[0], ptr(want), 60,
           S(20, 17), 55)
    assert (lumi.gauss(img, 5, border="reflect") == want).all()


def test_remap_matches_the_c_call_and_keeps_pixels_outside():
    img = noise(30, 40, 1)
    yy, xx = np.mgrid[0:25, 0:35].astype(np.float32)
    xmap, ymap = xx * 1.3 - 2.0, yy * 0.9 + 0.25
    want = np.full((25, 35), 7, np.uint8)
    c_call("lumiRemap_8u_C1R", ptr(img), S(40, 30), 40, R(0, 0, 40, 30), xmap.ctypes.data, 140,
           ymap.ctypes.data, 140, ptr(want), 35, S(35, 25), 4)
    got = lumi.remap(img, xmap, ymap, "cubic", out=np.full((25, 35), 7, np.uint8))
    assert (got == want).all()
    assert (got[:, 0] == 7).any()  # positions left of the image leave the pixel alone


@pytest.mark.parametrize("k", [3, 5])
def test_median_color_matches_the_c_call(k):
    img = noise(21, 34)
    r = k // 2
    padded = np.pad(img, ((r, r), (r, r), (0, 0)), mode="reflect")
    want = np.empty_like(img)
    c_call("lumiFilterMedianColor_8u_C3R", ptr(padded, r, r), padded.strides[0], ptr(want), 102,
           S(34, 21), k * 11)
    got = lumi.median_color(img, k, border="reflect")
    assert got.shape == img.shape and (got == want).all()
    # A view whose window reaches before its first pixel, into the array
    # around it, which holds exactly the margin: one pixel less is refused.
    big = noise(29 + 2 * r, 44 + 2 * r)
    view = big[r:r + 29, r:r + 44]
    want = np.empty(view.shape, np.uint8)
    c_call("lumiFilterMedianColor_8u_C3R", ptr(big, r, r), big.strides[0], ptr(want),
           want.strides[0], S(44, 29), k * 11)
    assert (lumi.median_color(view, (k, k), border=None) == want).all()
    with pytest.raises(ValueError, match="does not hold them"):
        lumi.median_color(big[r - 1:r + 28, r - 1:r + 43], k, border=None)


def bilateral_c(src, step, shape, kind, kernel, sigmas, kstep):
    """GetBufSize, Init and the filter, laid out by hand; src is the pointer
    of the first output pixel's centre."""
    h, w = shape
    n = ctypes.c_int32()
    c_call("lumiFilterBilateralGetBufSize_8u_C1R", kind, S(w, h), S(*kernel), ctypes.byref(n))
    block = np.zeros(n.value, np.uint8)
    c_call("lumiFilterBilateralInit_8u_C1R", kind, S(*kernel), sigmas[0], sigmas[1], kstep,
           block.ctypes.data)
    want = np.empty(shape, np.uint8)
    c_call("lumiFilterBilateral_8u_C1R", src, step, ptr(want), w, S(w, h), S(*kernel),
           block.ctypes.data)
    return want


# (kernel, step, reach): the fixed 5x5 and 5x5-at-step-2 windows (a 7x7 kernel
# at step 2 reaches 2, not 3), a rectangle and a step the fixed windows lack.
@pytest.mark.parametrize("kernel, kstep, reach", [((5, 5), 1, (2, 2)), ((7, 7), 2, (2, 2)),
                                                   ((7, 5), 1, (3, 2)), ((7, 7), 3, (3, 3))])
@pytest.mark.parametrize("kind", ["gauss", "fast"])
@pytest.mark.parametrize("width", [13, 40])  # under 16 pixels, the float form of every kind
def test_bilateral_matches_the_c_calls(kernel, kstep, reach, kind, width):
    img = noise(19, width, 1)
    qx, qy = reach
    padded = np.pad(img, ((qy, qy), (qx, qx)), mode="edge")
    want = bilateral_c(ptr(padded, qx, qy), padded.strides[0], img.shape, lumi.BILATERAL[kind],
                       kernel, (400.0, 6.0), kstep)
    assert (lumi.bilateral(img, kernel, 400.0, 6.0, kstep, kind) == want).all()
    # The window's reach, exactly, around a view.
    big = noise(19 + 2 * qy, width + 2 * qx, 1)
    view = big[qy:qy + 19, qx:qx + width]
    want = bilateral_c(ptr(big, qx, qy), big.strides[0], view.shape,
                       lumi.BILATERAL[kind], kernel, (400.0, 6.0), kstep)
    assert (lumi.bilateral(view, kernel, 400.0, 6.0, kstep, kind, border=None) == want).all()
    with pytest.raises(ValueError, match="does not hold them"):
        lumi.bilateral(big[qy - 1:qy + 18, qx - 1:qx + width - 1], kernel, 400.0, 6.0, kstep,
                       kind, border=None)


def rotate_sel(method, smooth):
    return lumi.INTER.get(method, method) | (lumi.SMOOTH_EDGE if smooth else 0)


# Quarter and half turns with whole shifts (exact copies, any selector) and
# other angles through every interpolation, with and without the soft edge.
@pytest.mark.parametrize("angle, method, smooth", [
    (90, "nn", False), (-180, 99, False), (450, "cubic", True), (33.0, "linear", True),
    (-72.5, "cubic", False), (200.0, "catmullrom", True), (30.0, "nn", False)])
@pytest.mark.parametrize("ch", [1, 3, 4])
def test_rotate_matches_the_c_calls_and_writes_only_what_they_write(angle, method, smooth, ch):
    img = noise(31, 45, ch)
    src_roi, dst_roi = (4, 3, 35, 25), (2, 4, 50, 30)
    # The destination is a view inside a larger array, with a region inside
    # that view: the whole larger array must end as the C call leaves it.
    base = np.full((50, 70) + ((ch,) if ch > 1 else ()), 77, np.uint8)
    want = base.copy()
    shift = lumi.rotate_shift(angle, (27, 18))
    wv = want[3:-4, 5:-6]
    c_call("lumiRotate_8u_C%dR" % ch, ptr(img), S(45, 31), img.strides[0], R(*src_roi), ptr(wv),
           wv.strides[0], R(*dst_roi), float(angle), shift[0], shift[1],
           rotate_sel(method, smooth))
    out = base[3:-4, 5:-6]
    got = lumi.rotate(img, angle, shift=shift, method=method, smooth_edge=smooth, roi=src_roi,
                      out=out, dst_roi=dst_roi)
    assert got is out and (base == want).all()
    assert (want == 77).any() and (want != 77).any()  # the turn covered some, not all
    # The centre form, through lumiRotateCenter, and the default: the region's centre.
    want = np.zeros((28, 41) + img.shape[2:], np.uint8)
    c_call("lumiRotateCenter_8u_C%dR" % ch, ptr(img), S(45, 31), img.strides[0], R(*src_roi),
           ptr(want), want.strides[0], R(0, 0, 41, 28), float(angle), 21.0, 15.0,
           rotate_sel(method, smooth))
    kw = dict(method=method, smooth_edge=smooth, roi=src_roi, size=(41, 28))
    assert (lumi.rotate(img, angle, center=(21.0, 15.0), **kw) == want).all()
    assert (lumi.rotate(img, angle, **kw) == want).all()


def test_rotate_shift_matches_the_c_call():
    for angle, center in [(90, (1.5, 0.5)), (-90, (4, 9)), (180, (2.5, 7)), (37.25, (10, 3))]:
        xs, ys = ctypes.c_double(), ctypes.c_double()
        c_call("lumiGetRotateShift", float(center[0]), float(center[1]), float(angle),
               ctypes.byref(xs), ctypes.byref(ys))
        assert lumi.rotate_shift(angle, center) == (xs.value, ys.value)
    assert lumi.rotate_shift(90, (1.5, 0.5)) == (1.0, 2.0)  # exact: the copy path takes it


# -------------------------------------------------------------------- views --

def test_strided_views_go_in_without_a_copy():
    big = noise(60, 80)
    view = big[7:47, 11:70]
    assert not view.flags.c_contiguous
    assert (lumi.rgb_to_yuv(view) == lumi.rgb_to_yuv(np.ascontiguousarray(view))).all()
    assert (lumi.median(view, (3, 5)) == lumi.median(view.copy(), (3, 5))).all()
    grey = noise(30, 41, 1)[::2]  # every other row: a step of two rows
    assert (lumi.box(grey, (3, 3)) == lumi.box(grey.copy(), (3, 3))).all()


def test_border_none_reads_the_margin_around_the_view():
    big = noise(40, 50, 1)
    view = big[5:-5, 6:-6]
    # Around the view lie the big image's own pixels: the same as filtering the
    # big image with the region's pixels cut out afterwards.
    whole = lumi.median(big, (5, 5))
    assert (lumi.median(view, (5, 5), border=None) == whole[5:-5, 6:-6]).all()
    with pytest.raises(ValueError, match="does not hold them"):
        lumi.median(big[1:, 1:], (5, 5), border=None)
    with pytest.raises(ValueError, match="does not hold them"):
        lumi.box(big, (3, 3), border=None)


def test_borders_pad_as_named():
    img = noise(12, 15, 1)
    for border, mode, kw in [("replicate", "edge", {}), ("reflect", "reflect", {}),
                             ("constant", "constant", {"constant_values": 9})]:
        padded = np.pad(img, 1, mode=mode, **kw)
        got = lumi.box(img, (3, 3), border=border, value=9)
        inner = lumi.box(padded[1:-1, 1:-1], (3, 3), border=None)
        assert (got == inner).all(), border


# ------------------------------------------------------------------- errors --

def test_statuses_raise_and_warn():
    img = noise(10, 10, 1)
    with pytest.raises(lumi.LumiError) as e:
        lumi.median(img, (4, 3))
    assert e.value.code == -33 and e.value.name == "lumStsMaskSizeErr"
    assert "lumiFilterMedian_8u_C1R" in str(e.value)
    with pytest.raises(lumi.LumiError) as e:
        lumi.resize(img, fx=0.0, fy=1.0)
    assert e.value.name == "lumStsResizeFactorErr"
    out = np.full((4, 4), 5, np.uint8)
    maps = np.zeros((4, 4), np.float32)
    with pytest.warns(lumi.LumiWarning, match="lumStsNoIntersectRoiWarn"):
        lumi.remap(img, maps, maps, roi=(100, 100, 3, 3), out=out)
    assert (out == 5).all()


def test_bad_arrays_are_refused_before_any_call():
    img = noise(8, 8)
    cases = [
        (lambda: lumi.box(img.astype(np.int16)), TypeError, "must be uint8"),
        (lambda: lumi.split(img[:, :, 0]), ValueError, "3 channels"),
        (lambda: lumi.box(noise(8, 8, 4)), ValueError, "1 or 3 channels"),
        (lambda: lumi.rgb_to_yuv(img[:, ::2]), ValueError, "next to each other"),
        (lambda: lumi.rgb_to_yuv(img[::-1]), ValueError, "forward in memory"),
        (lambda: lumi.box([[1, 2], [3, 4]]), TypeError, "numpy array"),
        (lambda: lumi.merge([img[:, :, 0], img[:, :, 1]]), ValueError, "three planes"),
        (lambda: lumi.merge([img[:, :, 0].copy(), img[:4, :, 1].copy(), img[:, :, 2].copy()]),
         ValueError, "one shape"),
        (lambda: lumi.resize(img, method="bicubic", size=(4, 4)), ValueError, "method"),
        (lambda: lumi.box(img, border="wrap"), ValueError, "border"),
        (lambda: lumi.box(img, (3, 3), anchor=(3, 0)), ValueError, "anchor"),
        (lambda: lumi.gauss(img, 7), ValueError, "mask 3 or 5"),
        (lambda: lumi.rgb_to_hls(img.astype(np.float64)), TypeError, "float32"),
    ]
    for fn, kind, text in cases:
        with pytest.raises(kind, match=text):
            fn()


def test_new_wrappers_raise_the_library_statuses_and_write_nothing():
    rgb, grey = noise(20, 20), noise(20, 20, 1)
    cases = [
        (lambda: lumi.median_color(rgb, (3, 1)), "lumStsMaskSizeErr",
         "lumiFilterMedianColor_8u_C3R"),
        (lambda: lumi.bilateral(grey, 5, 100, 4, kind=7), "lumStsBadFilterKindErr",
         "lumiFilterBilateralGetBufSize_8u_C1R"),
        (lambda: lumi.bilateral(grey, 5, 0.0, 4), "lumStsBadArgErr",
         "lumiFilterBilateralInit_8u_C1R"),
        (lambda: lumi.bilateral(grey, 5, 100, 4, step=0), "lumStsBadArgErr",
         "lumiFilterBilateralInit_8u_C1R"),
        # An even side reaches 2 = 4 / 2, but Init builds tables for (4 - 1) / 2.
        (lambda: lumi.bilateral(grey, 4, 100, 4), "lumStsMaskSizeErr",
         "lumiFilterBilateral_8u_C1R"),
        (lambda: lumi.rotate(rgb, 45, method="lanczos"), "lumStsInterpolationErr",
         "lumiRotateCenter_8u_C3R"),
        (lambda: lumi.rotate(rgb, 45, shift=(0, 0), dst_roi=(-1, 0, 5, 5)), "lumStsSizeErr",
         "lumiRotate_8u_C3R"),
        (lambda: lumi.rotate(rgb[:1], 45), "lumStsCoeffErr", "lumiRotateCenter_8u_C3R"),
    ]
    for fn, name, function in cases:
        with pytest.raises(lumi.LumiError) as e:
            fn()
        assert e.value.name == name and e.value.function == function
        assert e.value.code < 0 and _native.header.status_names[e.value.code] == name
    out = np.full((20, 20, 3), 5, np.uint8)
    with pytest.raises(lumi.LumiError):
        lumi.rotate(rgb, 45, method=16, out=out)
    # A turn that misses the destination: 29 for an exact turn, 30 for others.
    for angle, warning in [(90, "lumStsNoIntersectRoiWarn"), (45, "lumStsNoIntersectQuadWarn")]:
        with pytest.warns(lumi.LumiWarning, match=warning):
            lumi.rotate(rgb, angle, shift=(500, 500), out=out)
    assert (out == 5).all()
    # The exact path takes any selector; the others take four.
    assert (lumi.rotate(rgb, 180, method="lanczos") == rgb[::-1, ::-1]).all()


def test_new_wrappers_refuse_bad_arrays_before_any_call():
    rgb, grey = noise(8, 8), noise(8, 8, 1)
    cases = [
        (lambda: lumi.median_color(grey), ValueError, "3 channels"),
        (lambda: lumi.median_color(rgb.astype(np.uint16)), TypeError, "uint8"),
        (lambda: lumi.median_color(rgb[:, ::2]), ValueError, "next to each other"),
        (lambda: lumi.median_color(rgb, 11), ValueError, "mask 3 or 5"),
        (lambda: lumi.median_color(rgb, border=None), ValueError, "does not hold them"),
        (lambda: lumi.bilateral(rgb, 3, 100, 4), ValueError, "1 channels"),
        (lambda: lumi.bilateral(grey.astype(np.float32), 3, 100, 4), TypeError, "uint8"),
        (lambda: lumi.bilateral(grey[::-1], 3, 100, 4), ValueError, "forward in memory"),
        (lambda: lumi.bilateral(grey, 3, 100, 4, kind="slow"), ValueError, "kind"),
        (lambda: lumi.bilateral(grey, 3, 100, 4, border=None), ValueError, "does not hold them"),
        (lambda: lumi.rotate(noise(8, 8, 2), 30), ValueError, "1 or 3 or 4 channels"),
        (lambda: lumi.rotate(rgb, 30, out=np.zeros((8, 8, 4), np.uint8)), ValueError,
         "3 channels"),
        (lambda: lumi.rotate(rgb, 30, out=rgb.astype(np.int16)), TypeError, "uint8"),
        (lambda: lumi.rotate(rgb, 30, out=rgb.copy(), size=(8, 8)), ValueError, "not both"),
        (lambda: lumi.rotate(rgb, 30, shift=(0, 0), center=(1, 1)), ValueError, "not both"),
        (lambda: lumi.rotate(rgb, 30, dst_roi=(1, 0, 8, 8)), ValueError, "beyond out"),
        (lambda: lumi.rotate(rgb, 30, out=rgb[:, ::-1]), ValueError, "next to each other"),
        (lambda: lumi.rotate(rgb, 30, roi=(0, 0, 2 ** 32 + 4, 4)), ValueError, "32-bit"),
        (lambda: lumi.rotate(rgb, 30, roi=(0, 0, 4)), ValueError, "x, y, width, height"),
        (lambda: lumi.rotate(rgb, 30, method="area"), ValueError, "method"),
    ]
    for fn, kind, text in cases:
        with pytest.raises(kind, match=text):
            fn()


# -------------------------------------------------------------------- tiers --

def test_tier_forces_and_restores():
    automatic = lumi.version()[4]
    img = noise(20, 33)
    want = lumi.median(img, (5, 5))
    with lumi.tier("m7") as index:
        assert index == 1 and lumi.version()[4] == "m7"
        assert (lumi.median(img, (5, 5)) == want).all()
    assert lumi.version()[4] == automatic
    with lumi.tier(3):
        assert lumi.version()[4] == _native.entries.tiers["lumiGetLibVersion"][3]
    with pytest.raises(ValueError, match="no tier named"):
        with lumi.tier("z9"):
            pass
    assert lumi.version()[:4] == (7, 0, 205, 1100)


# ------------------------------------------------------------------- OpenCV --

cv2 = pytest.importorskip("cv2")


def test_agrees_with_opencv_where_both_compute_the_same():
    img = noise(48, 64)
    # Nearest neighbour at whole enlargements: both take the pixel under the cell.
    for size in [(128, 96), (192, 144)]:
        assert (lumi.resize(img, size, method="nn") ==
                cv2.resize(img, size, interpolation=cv2.INTER_NEAREST)).all()
    # Exact medians with the edge repeated.
    for k in (3, 5):
        assert (lumi.median(img, (k, k)) == cv2.medianBlur(img, k)).all()
    # RGB/YUV with other fixed-point constants: within 1 and 2 of each other.
    yuv = cv2.cvtColor(img, cv2.COLOR_RGB2YUV)
    assert np.abs(lumi.rgb_to_yuv(img).astype(int) - yuv).max() <= 1
    assert np.abs(lumi.yuv_to_rgb(yuv).astype(int) - cv2.cvtColor(yuv, cv2.COLOR_YUV2RGB)).max() <= 2

    # Quarter and half turns are exact copies in both; onto a canvas h wide and
    # w tall, a = 90 takes (x, y) to (y, w - 1 - x), a = 270 to (h - 1 - y, x).
    for ch in (1, 3, 4):
        img = noise(23, 37, ch)
        h, w = img.shape[:2]
        assert (lumi.rotate(img, 90, shift=(0, w - 1), size=(h, w)) ==
                cv2.rotate(img, cv2.ROTATE_90_COUNTERCLOCKWISE)).all()
        assert (lumi.rotate(img, 180) == cv2.rotate(img, cv2.ROTATE_180)).all()
        assert (lumi.rotate(img, -90, shift=(h - 1, 0), size=(h, w)) ==
                cv2.rotate(img, cv2.ROTATE_90_CLOCKWISE)).all()
