"""The cost of a wrapper call on a 64x64 image: the wrapper's time, the
same primitive called through ctypes with prepared arguments, and the
difference, which is what the module adds (checks, views, the result
array).  Run by scripts/bench.sh; the target is below 20 microseconds."""
import ctypes
import time

import numpy as np

import lumi
from lumi import _native

S = lumi.Size


def best_of(fn, repeat=7, number=2000):
    best = float("inf")
    for _ in range(repeat):
        t0 = time.perf_counter()
        for _ in range(number):
            fn()
        best = min(best, (time.perf_counter() - t0) / number)
    return best


def main():
    rng = np.random.default_rng(1)
    img = rng.integers(0, 256, (64, 64, 3), dtype=np.uint8)
    grey = np.ascontiguousarray(img[:, :, 0])
    out = np.empty_like(img)
    yuv = _native.functions["lumiRGBToYUV_8u_C3R"]
    med = _native.functions["lumiFilterMedian_8u_C1R"]
    padded = np.pad(grey, 1, mode="edge")
    gout = np.empty_like(grey)
    cpad = np.pad(img, ((1, 1), (1, 1), (0, 0)), mode="edge")
    gpad = np.pad(grey, 2, mode="edge")
    mcol = _native.functions["lumiFilterMedianColor_8u_C3R"]
    bsize = _native.functions["lumiFilterBilateralGetBufSize_8u_C1R"]
    binit = _native.functions["lumiFilterBilateralInit_8u_C1R"]
    bfilter = _native.functions["lumiFilterBilateral_8u_C1R"]
    nblock = ctypes.c_int32()
    bsize(100, S(64, 64), S(5, 5), ctypes.byref(nblock))
    block = np.empty(nblock.value, np.uint8)
    rot = _native.functions["lumiRotate_8u_C3R"]
    cases = [
        ("rgb_to_yuv", lambda: lumi.rgb_to_yuv(img),
         lambda: yuv(img.ctypes.data, 192, out.ctypes.data, 192, S(64, 64))),
        ("median 3x3, border=None", lambda: lumi.median(padded[1:-1, 1:-1], (3, 3), border=None),
         lambda: med(padded.ctypes.data + 67, 66, gout.ctypes.data, 64, S(64, 64), S(3, 3),
                     lumi.Point(1, 1))),
        ("resize to 32x32", lambda: lumi.resize(img, (32, 32)), None),
        ("median_color 3x3, border=None",
         lambda: lumi.median_color(cpad[1:-1, 1:-1], 3, border=None),
         lambda: mcol(cpad.ctypes.data + 3 * 66 + 3, 198, out.ctypes.data, 192, S(64, 64), 33)),
        # The wrapper's three calls against the same three by hand, into a
        # block made once.
        ("bilateral 5x5, border=None",
         lambda: lumi.bilateral(gpad[2:-2, 2:-2], 5, 400.0, 4.0, border=None),
         lambda: (bsize(100, S(64, 64), S(5, 5), ctypes.byref(nblock)),
                  binit(100, S(5, 5), 400.0, 4.0, 1, block.ctypes.data),
                  bfilter(gpad.ctypes.data + 2 * 68 + 2, 68, gout.ctypes.data, 64, S(64, 64),
                          S(5, 5), block.ctypes.data))),
        ("rotate 30 deg, linear, into out",
         lambda: lumi.rotate(img, 30.0, shift=(5.5, 20.25), out=out),
         lambda: rot(img.ctypes.data, S(64, 64), 192, lumi.Rect(0, 0, 64, 64), out.ctypes.data,
                     192, lumi.Rect(0, 0, 64, 64), 30.0, 5.5, 20.25, 2)),
        ("rotate 90 deg, new result", lambda: lumi.rotate(img, 90.0),
         lambda: rot(img.ctypes.data, S(64, 64), 192, lumi.Rect(0, 0, 64, 64), out.ctypes.data,
                     192, lumi.Rect(0, 0, 64, 64), 90.0, 0.0, 63.0, 2)),
    ]
    print("%-32s %12s %12s %12s" % ("64x64 call", "wrapper us", "ctypes us", "overhead us"))
    for name, wrapped, direct in cases:
        w = best_of(wrapped) * 1e6
        d = best_of(direct) * 1e6 if direct else float("nan")
        print("%-32s %12.2f %12.2f %12.2f" % (name, w, d, w - d))


if __name__ == "__main__":
    main()
