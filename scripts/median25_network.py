#!/usr/bin/env python3
"""Generates the body of median25() in image/filter/pimedian_net.cpp.

The inputs are the 25 values of a 5 by 5 window as five sorted columns,
s[rank][column].  Each rank row is sorted across the columns; a value at
position j of rank row i then has at least (i+1)(j+1) values at or below it
and (5-i)(5-j) at or above it, so only 13 positions can hold the 13th
smallest, and exactly 6 known-smaller and 6 known-larger ones drop out.  The
five candidate groups (2, 3, 3, 3 and 2 values, each sorted) are merged by
odd-even merges, padded with +infinity, and the 7th output is the median.
Comparators whose results never reach it are dropped; one that feeds only
its minimum or only its maximum becomes a single operation.

  scripts/median25_network.py           prints the C++ body
  scripts/median25_network.py --verify  checks it on all 2^25 0/1 windows
"""
import sys

INF = 'INF'
SORT5 = [(0, 1), (3, 4), (2, 4), (2, 3), (1, 4), (0, 3), (0, 2), (1, 3), (1, 2)]


class Net:
    def __init__(self):
        self.ops, self.n = [], 0

    def ce(self, a, b):
        if b == INF:
            return a, b
        if a == INF:
            return b, a
        self.n += 2
        lo, hi = 'w%d' % (self.n - 1), 'w%d' % self.n
        self.ops.append((a, b, lo, hi))
        return lo, hi

    def sort5(self, v):
        v = list(v)
        for i, j in SORT5:
            v[i], v[j] = self.ce(v[i], v[j])
        return v

    def merge(self, a, b):
        """Odd-even merge of two sorted lists of one power-of-two length."""
        if len(a) == 1:
            return list(self.ce(a[0], b[0]))
        e = self.merge(a[0::2], b[0::2])
        o = self.merge(a[1::2], b[1::2])
        out = [e[0]]
        for i in range(1, 2 * len(a) - 1, 2):
            out += list(self.ce(o[(i - 1) // 2], e[(i + 1) // 2]))
        return out + [o[-1]]


def build():
    net = Net()
    s = [['s[%d][%d]' % (i, c) for c in range(5)] for i in range(5)]
    rows = [net.sort5(s[i]) for i in range(5)]
    a, b, c, d, e = rows[0][3:], rows[1][2:], rows[2][1:4], rows[3][:3], rows[4][:2]
    pad = lambda l, n: l + [INF] * (n - len(l))
    merged = net.merge(net.merge(pad(b, 4), pad(c, 4)), net.merge(pad(d, 4), net.merge(a, e)))
    out = merged[6]
    live, kept = {out}, []
    for op in reversed(net.ops):
        a_, b_, lo, hi = op
        if lo in live or hi in live:
            kept.append((op, lo in live, hi in live))
            live.update((a_, b_))
    return kept[::-1], out


def emit(kept, out):
    names, lines, n = {}, [], 0
    name = lambda w: names.get(w, w)
    for (a, b, lo, hi), need_lo, need_hi in kept:
        for need, w, f in ((need_lo, lo, 'vmin'), (need_hi, hi, 'vmax')):
            if need:
                lines.append('const V t%d = %s(%s, %s);' % (n, f, name(a), name(b)))
                names[w] = 't%d' % n
                n += 1
    body = ['    ' + '  '.join(lines[i:i + 2]) for i in range(0, len(lines), 2)]
    return '\n'.join(body + ['    return %s;' % name(out)])


def verify(kept, out):
    nbits = 1 << 25
    nbytes = nbits // 8

    def pattern(k):
        if k < 3:
            return int.from_bytes(bytes([[0xAA, 0xCC, 0xF0][k]]) * nbytes, 'little')
        blk = 1 << (k - 3)
        return int.from_bytes((b'\0' * blk + b'\xff' * blk) * (nbytes // (2 * blk)), 'little')

    val = {}
    for i in range(5):
        for c in range(5):
            val['col%d_%d' % (i, c)] = pattern(i * 5 + c)
    # Sorted columns, then the network; the reference is a bubble sort.
    for c in range(5):
        col = [val['col%d_%d' % (i, c)] for i in range(5)]
        for i, j in SORT5:
            col[i], col[j] = col[i] & col[j], col[i] | col[j]
        for i in range(5):
            val['s[%d][%d]' % (i, c)] = col[i]
    ref = [val['col%d_%d' % (i, c)] for i in range(5) for c in range(5)]
    for i in range(25):
        for j in range(24 - i):
            ref[j], ref[j + 1] = ref[j] & ref[j + 1], ref[j] | ref[j + 1]
    for (a, b, lo, hi), need_lo, need_hi in kept:
        if need_lo:
            val[lo] = val[a] & val[b]
        if need_hi:
            val[hi] = val[a] | val[b]
    return val[out] == ref[12]


if __name__ == '__main__':
    kept, out = build()
    if '--verify' in sys.argv:
        ok = verify(kept, out)
        print('median of 25: %s' % ('exact on every 0/1 window' if ok else 'WRONG'))
        sys.exit(0 if ok else 1)
    print(emit(kept, out))
