"""The cost of a wrapper call on a 64x64 image: the wrapper's time, the
same primitive called through ctypes with prepared arguments, and the
difference, which is what the module adds (checks, views, the result
array).  Run by scripts/bench.sh; the target is below 20 microseconds."""
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
    cases = [
        ("rgb_to_yuv", lambda: lumi.rgb_to_yuv(img),
         lambda: yuv(img.ctypes.data, 192, out.ctypes.data, 192, S(64, 64))),
        ("median 3x3, border=None", lambda: lumi.median(padded[1:-1, 1:-1], (3, 3), border=None),
         lambda: med(padded.ctypes.data + 67, 66, gout.ctypes.data, 64, S(64, 64), S(3, 3),
                     lumi.Point(1, 1))),
        ("resize to 32x32", lambda: lumi.resize(img, (32, 32)), None),
    ]
    print("%-28s %12s %12s %12s" % ("64x64 call", "wrapper us", "ctypes us", "overhead us"))
    for name, wrapped, direct in cases:
        w = best_of(wrapped) * 1e6
        d = best_of(direct) * 1e6 if direct else float("nan")
        print("%-28s %12.2f %12.2f %12.2f" % (name, w, d, w - d))


if __name__ == "__main__":
    main()
