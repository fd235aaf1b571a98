#!/usr/bin/env python3
"""Generates the network bodies of the square medians in image/filter/pimedian_net.cpp.

5 by 5: median25().
The inputs are the 25 values of a 5 by 5 window as five sorted columns,
s[rank][column].  Each rank row is sorted across the columns; a value at
position j of rank row i then has at least (i+1)(j+1) values at or below it
and (5-i)(5-j) at or above it, so only 13 positions can hold the 13th
smallest, and exactly 6 known-smaller and 6 known-larger ones drop out.  The
five candidate groups (2, 3, 3, 3 and 2 values, each sorted) are merged by
odd-even merges, padded with +infinity, and the 7th output is the median.
Comparators whose results never reach it are dropped; one that feeds only
its minimum or only its maximum becomes a single operation.

7 by 7: merge7() and median49().  Neighbouring windows share six of their
seven sorted columns, so the kernel merges every pair of adjacent columns
once (merge7, a full odd-even merge of two sorted 7s into 14) and a window
(columns x to x+6) takes the pairs at x, x+2 and x+4 and the column at x+6.
The groups are merged one after another; after each merge, positions that
can no longer be the 25th of 49 are dropped (a value with more than 24
values known above it lies below the median and lowers the target rank; one
at a position past the target lies above it), and comparators whose results
never reach the median are left out.

  scripts/median_networks.py [5|7]           prints the C++ body
  scripts/median_networks.py [5|7] --verify  checks it on every 0/1 window
                                             (2^25 windows; for 7 by 7 the
                                             8^7 sets of sorted 0/1 columns)
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

    def merge_any(self, a, b):
        """Merge of two sorted lists of any lengths, padded with +infinity."""
        n = 1
        while n < max(len(a), len(b)):
            n *= 2
        out = self.merge(a + [INF] * (n - len(a)), b + [INF] * (n - len(b)))
        return [w for w in out if w != INF]


def build():
    net = Net()
    s = [['s[%d][%d]' % (i, c) for c in range(5)] for i in range(5)]
    rows = [net.sort5(s[i]) for i in range(5)]
    a, b, c, d, e = rows[0][3:], rows[1][2:], rows[2][1:4], rows[3][:3], rows[4][:2]
    pad = lambda l, n: l + [INF] * (n - len(l))
    merged = net.merge(net.merge(pad(b, 4), pad(c, 4)), net.merge(pad(d, 4), net.merge(a, e)))
    out = merged[6]
    return prune(net, [out]), out


def emit(kept, outs, ret=None):
    """C++ statements for the kept comparators; `outs` are stored to
    out[0], out[1]... unless `ret` names the one value returned."""
    names, lines, n = {}, [], 0
    name = lambda w: names.get(w, w)
    for (a, b, lo, hi), need_lo, need_hi in kept:
        for need, w, f in ((need_lo, lo, 'vmin'), (need_hi, hi, 'vmax')):
            if need:
                lines.append('const V t%d = %s(%s, %s);' % (n, f, name(a), name(b)))
                names[w] = 't%d' % n
                n += 1
    if ret is None:
        lines += ['out[%d] = %s;' % (i, name(w)) for i, w in enumerate(outs)]
    body = ['    ' + '  '.join(lines[i:i + 2]) for i in range(0, len(lines), 2)]
    return '\n'.join(body + (['    return %s;' % name(ret)] if ret else []))


def prune(net, outs):
    live, kept = set(outs), []
    for op in reversed(net.ops):
        a_, b_, lo, hi = op
        if lo in live or hi in live:
            kept.append((op, lo in live, hi in live))
            live.update((a_, b_))
    return kept[::-1]


def run(kept, val):
    for (a, b, lo, hi), need_lo, need_hi in kept:
        if need_lo:
            val[lo] = val[a] & val[b]
        if need_hi:
            val[hi] = val[a] | val[b]


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
    run(kept, val)
    return val[out] == ref[12]


SORT7 = [(0, 6), (2, 3), (4, 5), (0, 2), (1, 4), (3, 6), (0, 1), (2, 5), (3, 4), (1, 2), (4, 6),
         (2, 3), (4, 5), (1, 2), (3, 4), (5, 6)]


def trim(groups, k):
    """Drops the positions of sorted groups that can't be the k-th (from 0)
    smallest of their union; returns the groups and the new k."""
    while True:
        above = sum(len(g) for g in groups) - 1 - k
        changed, out = False, []
        for g in groups:
            low = max(0, len(g) - 1 - above)
            if low:
                k -= low
                g, changed = g[low:], True
            if len(g) > k + 1:
                g, changed = g[:k + 1], True
            if g:
                out.append(g)
        groups = out
        if not changed:
            return groups, k


def build49():
    """Returns (merge7 comparators, its outputs, median49 comparators, its output)."""
    pair = Net()
    merged = pair.merge_any(['a[%d]' % i for i in range(7)], ['b[%d]' % i for i in range(7)])
    net = Net()
    groups = [['p[%d][%d]' % (g, i) for i in range(14)] for g in range(3)]
    groups.append(['c[%d]' % i for i in range(7)])
    k = 24
    acc, rest = groups[0], groups[1:]
    while rest:
        acc = net.merge_any(acc, rest.pop(0))
        trimmed, k = trim([acc] + rest, k)
        acc, rest = trimmed[0], trimmed[1:]
    return prune(pair, merged), merged, prune(net, [acc[k]]), acc[k]


def verify49(pair, merged, kept, out):
    """0/1 windows: after the column sort a 0/1 column is fixed by its count
    of zeros, so the 8^7 count sets cover every 0/1 window of sorted columns;
    the column sort is checked on all 2^7 columns."""
    for bits in range(128):
        col = [(bits >> i) & 1 for i in range(7)]
        for i, j in SORT7:
            col[i], col[j] = min(col[i], col[j]), max(col[i], col[j])
        if col != sorted(col):
            return False
    n = 8 ** 7
    nbytes = n // 8
    cols = []
    for c in range(7):
        col = []
        for r in range(7):
            if c == 0:
                pat = bytes([(1 << (r + 1)) - 1]) * nbytes
            else:
                blk = 8 ** c // 8
                pat = (b'\xff' * (blk * (r + 1)) + bytes(blk * (7 - r))) * (nbytes // (8 * blk))
            col.append(int.from_bytes(pat, 'little'))  # 1 where column c has at most r zeros
        cols.append(col)
    val = {}
    for g in range(3):
        pv = {'a[%d]' % i: cols[2 * g][i] for i in range(7)}
        pv.update({'b[%d]' % i: cols[2 * g + 1][i] for i in range(7)})
        run(pair, pv)
        for i in range(14):
            val['p[%d][%d]' % (g, i)] = pv[merged[i]]
    for i in range(7):
        val['c[%d]' % i] = cols[6][i]
    run(kept, val)
    ref = bytearray(nbytes)
    for i in range(n):
        zeros, j = 0, i
        while j:
            zeros += j & 7
            j >>= 3
        if zeros <= 24:
            ref[i >> 3] |= 1 << (i & 7)
    return val[out] == int.from_bytes(bytes(ref), 'little')


if __name__ == '__main__':
    side = 7 if '7' in sys.argv[1:] else 5
    if side == 5:
        kept, out = build()
        if '--verify' in sys.argv:
            ok = verify(kept, out)
            print('median of 25: %s' % ('exact on every 0/1 window' if ok else 'WRONG'))
            sys.exit(0 if ok else 1)
        print(emit(kept, [], out))
    else:
        pair, merged, kept, out = build49()
        if '--verify' in sys.argv:
            ok = verify49(pair, merged, kept, out)
            print('median of 49: %s' % ('exact on every 0/1 window' if ok else 'WRONG'))
            sys.exit(0 if ok else 1)
        print('// merge7\n' + emit(pair, merged))
        print('// median49\n' + emit(kept, [], out))
