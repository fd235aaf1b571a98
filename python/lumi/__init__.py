"""Lumi for numpy: thin wrappers over liblumi.so's primitives.

Images are numpy arrays of shape (height, width) for one channel or
(height, width, channels); each row's pixels must lie next to each other
(any row stride, so a view such as ``img[10:50, 20:80]`` is passed as a
pointer and a step, without a copy).  Results are new arrays (rotate and
remap may write into one the caller passes).  Every call gives the same
bytes as the C primitive it wraps.

A negative status raises LumiError (with ``code`` and ``name``), a positive
one is a LumiWarning.  Arrays of the wrong type, channel count or layout are
refused with a ValueError or TypeError before any call.

Neighbourhood filters (box, median, median_color, min_filter, max_filter,
gauss, filter, filter32f, bilateral) read a margin of pixels around the
image: the window of every output pixel must lie in memory.  ``border``
says where that margin comes from: "replicate" (the edge pixel repeated, the
default), "reflect" (mirrored about the edge pixel, which is not repeated),
"constant" (``value``), or None: the pixels around the view in the array it
views, which must be there (a view ``big[8:-8, 8:-8]`` has an 8-pixel
margin).

``with lumi.tier("y8"): ...`` runs the calls in the block on one tier.  The
tier is a setting of the whole process: do not change it while other threads
call the library.
"""
import contextlib
import ctypes
import warnings

import numpy as np

from . import _native
from ._native import Point, Rect, Size

__all__ = ["LumiError", "LumiWarning", "tier", "version", "library_path",
           "split", "merge", "rgb_to_yuv", "yuv_to_rgb", "rgb_to_hls", "hls_to_rgb",
           "bgr_to_hls_planes", "hls_to_bgr_planes", "resize", "remap", "rotate",
           "rotate_shift", "box", "median", "median_color", "min_filter", "max_filter", "gauss",
           "filter", "filter32f", "bilateral"]

library_path = _native.library_path

INTER = {"nn": 1, "nearest": 1, "linear": 2, "cubic": 4, "catmullrom": 6, "super": 8,
         "lanczos": 16}
SMOOTH_EDGE = -0x80000000


class LumiError(Exception):
    """A primitive returned a negative status."""

    def __init__(self, code, name, function):
        super().__init__("%s returned %d (%s)" % (function, code, name))
        self.code, self.name, self.function = code, name, function


class LumiWarning(UserWarning):
    """A primitive returned a positive status: it worked, with a remark."""


def _call(name, *args):
    fn = _native.functions.get(name)
    if fn is None:
        raise NotImplementedError("%s is not live in %s" % (name, library_path))
    status = fn(*args)
    if status:
        text = _native.header.status_names.get(status, "unknown status")
        if status < 0:
            raise LumiError(status, text, name)
        warnings.warn(LumiWarning("%s returned %d (%s)" % (name, status, text)), stacklevel=3)


_SUFFIX = {np.dtype(np.uint8): "8u", np.dtype(np.uint16): "16u", np.dtype(np.int16): "16s",
           np.dtype(np.float32): "32f"}


class _Image:
    """An array as pointer, step, size and channels."""

    def __init__(self, arr, what, channels=(1, 3), dtypes=(np.uint8,)):
        if not isinstance(arr, np.ndarray):
            raise TypeError("%s must be a numpy array, not %s" % (what, type(arr).__name__))
        if arr.dtype not in dtypes:
            raise TypeError("%s must be %s, not %s" % (
                what, " or ".join(np.dtype(d).name for d in dtypes), arr.dtype))
        if arr.ndim == 2:
            ch = 1
        elif arr.ndim == 3:
            ch = arr.shape[2]
        else:
            raise ValueError("%s must have 2 or 3 dimensions, not %d" % (what, arr.ndim))
        if ch not in channels:
            raise ValueError("%s must have %s channels, not %d" % (
                what, " or ".join(map(str, channels)), ch))
        item = arr.itemsize
        if (arr.ndim == 3 and arr.strides[2] != item) or arr.strides[1] != ch * item:
            raise ValueError("%s must have the pixels of each row next to each other "
                             "(strides %s)" % (what, arr.strides))
        if arr.shape[0] > 1 and arr.strides[0] < ch * item * arr.shape[1]:
            raise ValueError("%s must have rows that follow each other forward in memory "
                             "(row stride %d)" % (what, arr.strides[0]))
        self.arr, self.ch, self.item = arr, ch, item
        self.h, self.w = arr.shape[0], arr.shape[1]
        self.step = arr.strides[0] if arr.shape[0] > 1 else ch * item * max(arr.shape[1], 1)
        self.ptr = arr.ctypes.data

    def size(self):
        return Size(self.w, self.h)

    def at(self, x, y):
        return self.ptr + y * self.step + x * self.ch * self.item

    def new(self, h=None, w=None, ch=None, dtype=None):
        ch = self.ch if ch is None else ch
        shape = (self.h if h is None else h, self.w if w is None else w)
        return np.empty(shape + ((ch,) if ch > 1 else ()), dtype or self.arr.dtype)


def _planes(planes, what, dtypes=(np.uint8,)):
    if len(planes) != 3:
        raise ValueError("%s must be three planes, not %d" % (what, len(planes)))
    ims = [_Image(p, "%s[%d]" % (what, i), (1,), dtypes) for i, p in enumerate(planes)]
    if any(p.arr.shape != ims[0].arr.shape or p.step != ims[0].step for p in ims):
        raise ValueError("%s must have one shape and one row stride" % what)
    return ims, (ctypes.c_void_p * 3)(*[p.ptr for p in ims])


# ----------------------------------------------------------- tiers, version --

def _tier_index(t):
    if isinstance(t, int):
        return t
    for i in sorted(_native.header.index_codes):
        if any(len(row) > i and row[i] == t for row in _native.entries.tiers.values()):
            return i
    raise ValueError("no tier named %r (m7, n8, u8, y8, e9, or a dispatch index 1 to 5)" % (t,))


@contextlib.contextmanager
def tier(t):
    """Runs the block on one tier: "m7", "n8", "u8", "y8", "e9", or a dispatch
    index 1 to 5.  Indices 2 and 3 run n8 or u8, as each primitive's row of
    the entry table says; a name takes the lowest index that runs it."""
    index = _tier_index(t)
    needs = _native.header.index_needs.get(index)
    if needs is None:
        raise ValueError("dispatch index %d is never forced (1 to 5)" % index)
    if _native.processor_features() & needs != needs:
        raise ValueError("this processor cannot run dispatch index %d" % index)
    status = _native.force_index(index)
    if status != 0:
        raise LumiError(status, _native.header.status_names.get(status, "?"), "lumInitCpu")
    try:
        yield index
    finally:
        _native.automatic()


class _Version(ctypes.Structure):
    _fields_ = [("major", ctypes.c_int32), ("minor", ctypes.c_int32),
                ("majorBuild", ctypes.c_int32), ("build", ctypes.c_int32),
                ("targetCpu", ctypes.c_char * 4), ("Name", ctypes.c_char_p),
                ("Version", ctypes.c_char_p), ("BuildDate", ctypes.c_char_p)]


def version():
    """(major, minor, majorBuild, build, tier) of the library in force."""
    fn = _native.library.lumiGetLibVersion
    fn.restype = ctypes.POINTER(_Version)
    v = fn().contents
    return (v.major, v.minor, v.majorBuild, v.build, v.targetCpu.decode())


# ------------------------------------------------------- copies and colour --

def split(img):
    """RGB image (h, w, 3) to its three planes, a list of (h, w) arrays."""
    s = _Image(img, "img", (3,))
    out = [s.new(ch=1) for _ in range(3)]
    _, ptrs = _planes(out, "planes")
    _call("lumiCopy_8u_C3P3R", s.ptr, s.step, ptrs, out[0].strides[0], s.size())
    return out


def merge(planes):
    """Three (h, w) planes to one (h, w, 3) image."""
    ims, ptrs = _planes(planes, "planes")
    out = ims[0].new(ch=3)
    _call("lumiCopy_8u_P3C3R", ptrs, ims[0].step, out.ctypes.data, out.strides[0],
          ims[0].size())
    return out


def rgb_to_yuv(img, planes=False):
    """RGB to YUV: an (h, w, 3) image, or a list of Y, U, V planes."""
    s = _Image(img, "img", (3,))
    if planes:
        out = [s.new(ch=1) for _ in range(3)]
        _, ptrs = _planes(out, "planes")
        _call("lumiRGBToYUV_8u_C3P3R", s.ptr, s.step, ptrs, out[0].strides[0], s.size())
        return out
    out = s.new()
    _call("lumiRGBToYUV_8u_C3R", s.ptr, s.step, out.ctypes.data, out.strides[0], s.size())
    return out


def yuv_to_rgb(img):
    """YUV to RGB: from an (h, w, 3) image or from a list of Y, U, V planes."""
    if isinstance(img, (list, tuple)):
        ims, ptrs = _planes(img, "planes")
        out = ims[0].new(ch=3)
        _call("lumiYUVToRGB_8u_P3C3R", ptrs, ims[0].step, out.ctypes.data, out.strides[0],
              ims[0].size())
        return out
    s = _Image(img, "img", (3,))
    out = s.new()
    _call("lumiYUVToRGB_8u_C3R", s.ptr, s.step, out.ctypes.data, out.strides[0], s.size())
    return out


_HLS_TYPES = (np.uint8, np.uint16, np.int16, np.float32)


def rgb_to_hls(img):
    """RGB to H, L, S, for uint8, uint16, int16 and float32 images."""
    s = _Image(img, "img", (3,), _HLS_TYPES)
    out = s.new()
    _call("lumiRGBToHLS_%s_C3R" % _SUFFIX[img.dtype], s.ptr, s.step, out.ctypes.data,
          out.strides[0], s.size())
    return out


def hls_to_rgb(img):
    """H, L, S to RGB, for uint8, uint16, int16 and float32 images."""
    s = _Image(img, "img", (3,), _HLS_TYPES)
    out = s.new()
    _call("lumiHLSToRGB_%s_C3R" % _SUFFIX[img.dtype], s.ptr, s.step, out.ctypes.data,
          out.strides[0], s.size())
    return out


def _planes_to_planes(name, planes):
    ims, src = _planes(planes, "planes")
    out = [ims[0].new(ch=1) for _ in range(3)]
    _, dst = _planes(out, "out")
    _call(name, src, ims[0].step, dst, out[0].strides[0], ims[0].size())
    return out


def bgr_to_hls_planes(planes):
    """B, G, R planes to H, L, S planes."""
    return _planes_to_planes("lumiBGRToHLS_8u_P3R", planes)


def hls_to_bgr_planes(planes):
    """H, L, S planes to B, G, R planes."""
    return _planes_to_planes("lumiHLSToBGR_8u_P3R", planes)


# ---------------------------------------------------------------- geometry --

def _method(method):
    if isinstance(method, int):
        return method
    try:
        return INTER[method]
    except KeyError:
        raise ValueError("method must be one of %s or a selector number, not %r" % (
            ", ".join(sorted(INTER)), method)) from None


def resize(img, size=None, fx=None, fy=None, method="linear", roi=None):
    """Scales img (or its region roi = (x, y, w, h)) to size = (width, height),
    or by the factors fx, fy.  The result has the size the library works out:
    the scaled region, truncated."""
    s = _Image(img, "img")
    x, y, w, h = roi if roi is not None else (0, 0, s.w, s.h)
    if size is not None:
        fx, fy = size[0] / w, size[1] / h
    if fx is None or fy is None:
        raise ValueError("resize wants size=(width, height) or both fx and fy")
    ow = size[0] if size is not None else max(int(w * fx + 1e-7), 1)
    oh = size[1] if size is not None else max(int(h * fy + 1e-7), 1)
    out = np.zeros((oh, ow) + ((s.ch,) if s.ch > 1 else ()), np.uint8)
    _call("lumiResize_8u_C%dR" % s.ch, s.ptr, s.size(), s.step, Rect(x, y, w, h),
          out.ctypes.data, out.strides[0], Size(ow, oh), float(fx), float(fy), _method(method))
    return out


def remap(img, xmap, ymap, method="linear", smooth_edge=False, roi=None, out=None):
    """Samples img at (xmap, ymap), float32 arrays of the result's shape, with
    pixel centres on whole numbers.  Positions outside the region roi (the
    whole image by default) leave the pixel of ``out`` as it was (zeros when
    no out is given)."""
    s = _Image(img, "img")
    xm = _Image(xmap, "xmap", (1,), (np.float32,))
    ym = _Image(ymap, "ymap", (1,), (np.float32,))
    if xmap.shape != ymap.shape:
        raise ValueError("xmap and ymap must have one shape")
    if out is None:
        out = np.zeros(xmap.shape + ((s.ch,) if s.ch > 1 else ()), np.uint8)
    d = _Image(out, "out", (s.ch,))
    if out.shape[:2] != xmap.shape:
        raise ValueError("out must have the maps' shape")
    x, y, w, h = roi if roi is not None else (0, 0, s.w, s.h)
    sel = _method(method) | (SMOOTH_EDGE if smooth_edge else 0)
    _call("lumiRemap_8u_C%dR" % s.ch, s.ptr, s.size(), s.step, Rect(x, y, w, h), xm.ptr,
          xm.step, ym.ptr, ym.step, d.ptr, d.step, d.size(), sel)
    return out


def _rect(r, what):
    """(x, y, width, height) as the library's rectangle.  Its fields are
    32-bit, and ctypes would wrap a larger number silently into a region the
    caller did not ask for, so such numbers are refused."""
    try:
        x, y, w, h = (int(v) for v in r)
    except (TypeError, ValueError):
        raise ValueError("%s must be (x, y, width, height), not %r" % (what, r)) from None
    if any(not -2 ** 31 <= v < 2 ** 31 for v in (x, y, w, h)):
        raise ValueError("%s %r does not fit 32-bit fields" % (what, r))
    return x, y, w, h


def rotate_shift(angle, center):
    """(x shift, y shift) under which a turn by ``angle`` degrees keeps the
    point ``center`` = (x, y) in place; exact for quarter turns."""
    xs, ys = ctypes.c_double(), ctypes.c_double()
    _call("lumiGetRotateShift", float(center[0]), float(center[1]), float(angle),
          ctypes.byref(xs), ctypes.byref(ys))
    return xs.value, ys.value


def rotate(img, angle, shift=None, center=None, method="linear", smooth_edge=False, roi=None,
           out=None, size=None, dst_roi=None):
    """Turns img (1, 3 or 4 channels; its region roi = (x, y, w, h), the
    whole image by default) by ``angle`` degrees, counter-clockwise on screen
    as y grows downward: source (x, y) goes to (cos a x + sin a y + dx,
    -sin a x + cos a y + dy).  ``shift`` = (dx, dy) gives the shift, or
    ``center`` = (x, y) a point that stays in place; with neither, the
    centre of the region stays.

    Only the destination pixels the turned region covers, inside dst_roi
    (the whole destination by default), are written: into ``out`` when given,
    else into a new zeroed array of img's shape or of ``size`` = (width,
    height).  Turns by a multiple of 90 degrees with whole shifts are exact
    copies; they take any method and ignore smooth_edge.  Other angles
    interpolate with method "nn", "linear", "cubic" or "catmullrom", and
    smooth_edge blends the pixels just outside the slanted sides with what
    the destination holds.  A region that misses the destination is a
    LumiWarning and leaves it as it was."""
    s = _Image(img, "img", (1, 3, 4))
    if out is None:
        w, h = (s.w, s.h) if size is None else size
        out = np.zeros((h, w) + ((s.ch,) if s.ch > 1 else ()), np.uint8)
    elif size is not None:
        raise ValueError("rotate takes out= or size=, not both")
    d = _Image(out, "out", (s.ch,))
    src_roi = _rect(roi if roi is not None else (0, 0, s.w, s.h), "roi")
    dst = _rect(dst_roi if dst_roi is not None else (0, 0, d.w, d.h), "dst_roi")
    # The library writes anywhere in dst_roi, which must therefore lie in out;
    # a negative corner or an empty region is the library's to refuse.
    if dst[0] + dst[2] > d.w or dst[1] + dst[3] > d.h:
        raise ValueError("dst_roi %r reaches beyond out (%d x %d)" % (dst_roi, d.w, d.h))
    sel = _method(method) | (SMOOTH_EDGE if smooth_edge else 0)
    if shift is not None and center is not None:
        raise ValueError("rotate takes shift= or center=, not both")
    if shift is not None:
        name, p = "lumiRotate_8u_C%dR", shift
    else:
        x, y, w, h = src_roi
        name = "lumiRotateCenter_8u_C%dR"
        p = center if center is not None else (x + (w - 1) / 2, y + (h - 1) / 2)
    _call(name % s.ch, s.ptr, s.size(), s.step, Rect(*src_roi), d.ptr, d.step, Rect(*dst),
          float(angle), float(p[0]), float(p[1]), sel)
    return out


# ------------------------------------------------------ neighbourhood filters --

_PAD = {"replicate": "edge", "reflect": "reflect", "constant": "constant"}


def _footprint(s, left, top, right, bottom, border, value):
    """Pointer and step of the pixel under the first output pixel, with the
    margin the window reads around the image in memory."""
    if left < 0 or top < 0 or right < 0 or bottom < 0:
        raise ValueError("the anchor must lie inside the mask")
    if border is None:
        root = s.arr
        while isinstance(root.base, np.ndarray):
            root = root.base
        if root.flags.c_contiguous:
            lo = root.ctypes.data
            hi = lo + root.nbytes
        else:
            lo, hi = np.byte_bounds(root)
        first = s.ptr - top * s.step - left * s.ch * s.item
        last = s.at(s.w + right, s.h - 1 + bottom) - 1
        if first < lo or last >= hi:
            raise ValueError("border=None reads %d, %d, %d and %d pixels left, above, right and "
                             "below the view, and the array it views does not hold them"
                             % (left, top, right, bottom))
        return s.ptr, s.step, None
    if border not in _PAD:
        raise ValueError("border must be replicate, reflect, constant or None, not %r" % (border,))
    pad = ((top, bottom), (left, right)) + (((0, 0),) if s.arr.ndim == 3 else ())
    kw = {"constant_values": value} if border == "constant" else {}
    p = np.pad(s.arr, pad, mode=_PAD[border], **kw)
    ps = _Image(p, "padded")
    return ps.at(left, top), ps.step, p


def _window(img, mask, anchor, border, value, channels=(1, 3)):
    s = _Image(img, "img", channels)
    mw, mh = (mask, mask) if isinstance(mask, int) else mask
    ax, ay = (mw // 2, mh // 2) if anchor is None else anchor
    ptr, step, keep = _footprint(s, ax, ay, mw - 1 - ax, mh - 1 - ay, border, value)
    return s, ptr, step, keep, Size(mw, mh), Point(ax, ay)


def _masked(name, img, mask, anchor, border, value, channels=(1, 3)):
    s, ptr, step, keep, m, a = _window(img, mask, anchor, border, value, channels)
    out = s.new()
    _call(name % s.ch, ptr, step, out.ctypes.data, out.strides[0], s.size(), m, a)
    return out


def box(img, mask=(3, 3), anchor=None, border="replicate", value=0):
    """Mean of a mask = (width, height) window whose cell ``anchor`` (the
    centre by default) lies over each pixel."""
    return _masked("lumiFilterBox_8u_C%dR", img, mask, anchor, border, value)


def median(img, mask=(3, 3), anchor=None, border="replicate", value=0):
    """Exact median of a window of odd sides, per channel."""
    return _masked("lumiFilterMedian_8u_C%dR", img, mask, anchor, border, value)


def min_filter(img, mask=(3, 3), anchor=None, border="replicate", value=0):
    """Smallest value of the window, one channel."""
    return _masked("lumiFilterMin_8u_C%dR", img, mask, anchor, border, value, (1,))


def max_filter(img, mask=(3, 3), anchor=None, border="replicate", value=0):
    """Largest value of the window, one channel."""
    return _masked("lumiFilterMax_8u_C%dR", img, mask, anchor, border, value, (1,))


def gauss(img, mask=3, border="replicate", value=0):
    """The fixed 3x3 or 5x5 Gaussian kernel, centred on each pixel."""
    if mask not in (3, 5):
        raise ValueError("gauss takes mask 3 or 5, not %r" % (mask,))
    s = _Image(img, "img")
    r = mask // 2
    ptr, step, keep = _footprint(s, r, r, r, r, border, value)
    out = s.new()
    _call("lumiFilterGauss_8u_C%dR" % s.ch, ptr, step, out.ctypes.data, out.strides[0],
          s.size(), mask * 11)
    return out


def median_color(img, mask=3, border="replicate", value=0):
    """Colour median of an RGB image over a centred 3x3 or 5x5 window: each
    pixel becomes the window pixel whose summed distance |d0| + |d1| + |d2|
    to the others is smallest (the first in row-major order on a tie), so no
    colour appears that the window does not hold.  Reads mask // 2 pixels
    around the image.  ``mask`` is 3, 5 or (width, height); the library
    refuses other windows with lumStsMaskSizeErr."""
    mw, mh = (mask, mask) if isinstance(mask, int) else mask
    if not (1 <= mw <= 9 and 1 <= mh <= 9):
        raise ValueError("median_color takes mask 3 or 5, not %r" % (mask,))
    s = _Image(img, "img", (3,))
    ptr, step, keep = _footprint(s, mw // 2, mh // 2, mw // 2, mh // 2, border, value)
    out = s.new()
    # The window's selector has its width in the tens digit, its height in the units.
    _call("lumiFilterMedianColor_8u_C3R", ptr, step, out.ctypes.data, out.strides[0], s.size(),
          mw * 10 + mh)
    return out


BILATERAL = {"gauss": 100, "fast": 101}


def bilateral(img, kernel, value_sigma2, position_sigma2, step=1, kind="gauss",
              border="replicate", value=0):
    """Edge-keeping smoothing of a grey image.  Each pixel becomes the mean of
    a centred window's samples, every ``step``-th pixel out to q = side // 2
    each way (cut down to a multiple of step), each weighed by
    exp(-d * d / (2 value_sigma2)), d its difference in value from the
    centre, times exp(-r * r / (2 position_sigma2)), r its square ring
    max(|dx|, |dy|).  ``kernel`` is a side or (width, height), odd: an even
    side reaches further than the weight tables built for it, and the library
    refuses it (lumStsMaskSizeErr).  Reads q pixels around the image.

    kind "gauss" filters the square windows of side 3, 5, 7, 9 (5 and 9 also
    at step 2) with 14-bit weights, "fast" with 4-bit weights and an
    approximate division; other windows, and images under 16 pixels wide,
    are filtered in float, whatever the kind.

    The weight tables live in a state block of the size the library asks for:
    a byte array made for the call, which nothing keeps after it returns or
    raises."""
    s = _Image(img, "img", (1,))
    if isinstance(kind, str):
        if kind not in BILATERAL:
            raise ValueError("kind must be gauss or fast, not %r" % (kind,))
        kind = BILATERAL[kind]
    ks = Size(*((kernel, kernel) if isinstance(kernel, int) else kernel))
    n = ctypes.c_int32()
    _call("lumiFilterBilateralGetBufSize_8u_C1R", kind, s.size(), ks, ctypes.byref(n))
    block = np.empty(n.value, np.uint8)
    _call("lumiFilterBilateralInit_8u_C1R", kind, ks, value_sigma2, position_sigma2, step,
          block.ctypes.data)
    # Init has accepted the kernel and the step (both positive).  The margin
    # comes from the numbers as the library reads them, 32-bit.
    st = ctypes.c_int32(step).value
    qx, qy = (ks.width >> 1) - (ks.width >> 1) % st, (ks.height >> 1) - (ks.height >> 1) % st
    ptr, srcstep, keep = _footprint(s, qx, qy, qx, qy, border, value)
    out = s.new()
    _call("lumiFilterBilateral_8u_C1R", ptr, srcstep, out.ctypes.data, out.strides[0], s.size(),
          ks, block.ctypes.data)
    return out


def _convolve(name, img, kernel, dtype, anchor, border, value, extra):
    k = np.ascontiguousarray(np.asarray(kernel, dtype), dtype)
    if k.ndim != 2 or k.size == 0:
        raise ValueError("kernel must be a non-empty 2-D array")
    kh, kw = k.shape
    s = _Image(img, "img")
    ax, ay = (kw // 2, kh // 2) if anchor is None else anchor
    # The kernel is mirrored: the window reaches kw - 1 - ax to the left.
    ptr, step, keep = _footprint(s, kw - 1 - ax, kh - 1 - ay, ax, ay, border, value)
    out = s.new()
    _call(name % s.ch, ptr, step, out.ctypes.data, out.strides[0], s.size(), k.ctypes.data,
          Size(kw, kh), Point(ax, ay), *extra)
    return out


def filter(img, kernel, divisor=1, anchor=None, border="replicate", value=0):
    """Convolution with an integer kernel (rows of cells), divided by divisor."""
    return _convolve("lumiFilter_8u_C%dR", img, kernel, np.int32, anchor, border, value,
                     (int(divisor),))


def filter32f(img, kernel, anchor=None, border="replicate", value=0):
    """Convolution with a float kernel."""
    return _convolve("lumiFilter32f_8u_C%dR", img, kernel, np.float32, anchor, border, value, ())
