"""The library and its public header, as the rest of the package sees them.

The package is a host like any other: it loads liblumi.so with ctypes,
resolves GetProcAddressForSo and asks it for each primitive by name.  Every
function type comes from the public header, lumi.h, which is read once at
import: its prototypes give the ctypes argument types, its status enum the
status names, and its dispatch-index list the processor codes that force a
tier.  So a wrapper can never call a primitive with another signature than
the library's own.

Where the files are found:
  library  $LUMI_LIBRARY if set (an error when it does not load), else
           <prefix>/lib/liblumi.so.7 beside an installed package
           (<prefix>/lib/python/lumi), else build/liblumi.so.7 beside a
           source tree (python/lumi), else liblumi.so.7 on the loader's path.
  header   <prefix>/include/lumi.h, or include/lumi.h of the source tree.
"""
import ctypes
import os
import re

_HERE = os.path.dirname(os.path.abspath(__file__))
SONAME = "liblumi.so.7"


class Size(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int32), ("height", ctypes.c_int32)]


class Rect(ctypes.Structure):
    _fields_ = [("x", ctypes.c_int32), ("y", ctypes.c_int32),
                ("width", ctypes.c_int32), ("height", ctypes.c_int32)]


class Point(ctypes.Structure):
    _fields_ = [("x", ctypes.c_int32), ("y", ctypes.c_int32)]


def _first_existing(paths):
    for p in paths:
        if os.path.exists(p):
            return p
    return None


def _find_header():
    return _first_existing([
        os.path.join(_HERE, "..", "..", "..", "include", "lumi.h"),  # <prefix>/lib/python/lumi
        os.path.join(_HERE, "..", "..", "include", "lumi.h"),        # <source>/python/lumi
    ])


def _load_library():
    named = os.environ.get("LUMI_LIBRARY")
    if named:
        try:
            return ctypes.CDLL(named, mode=ctypes.RTLD_LOCAL), named
        except OSError as e:
            raise ImportError("cannot load $LUMI_LIBRARY (%s): %s" % (named, e)) from None
    candidates = [os.path.join(_HERE, "..", "..", SONAME),          # installed
                  os.path.join(_HERE, "..", "..", "build", SONAME)]  # source tree
    path = _first_existing(candidates) or SONAME
    try:
        return ctypes.CDLL(path, mode=ctypes.RTLD_LOCAL), os.path.realpath(path)
    except OSError as e:
        raise ImportError("cannot load %s: %s (set LUMI_LIBRARY)" % (path, e)) from None


# C parameter types of the public prototypes, as ctypes sees them.
_SCALARS = {"int32_t": ctypes.c_int32, "int": ctypes.c_int, "double": ctypes.c_double,
            "Lum32f": ctypes.c_float, "LumiMaskSize": ctypes.c_int32,
            "LumiSize": Size, "LumiRect": Rect, "LumiPoint": Point}


def _ctype(param):
    p = " ".join(param.split())
    if "*" in p or "[" in p:
        return ctypes.c_void_p
    words = [w for w in p.replace("const ", "").split(" ") if w]
    return _SCALARS[words[0]]


class Header:
    """What the package reads from lumi.h."""

    def __init__(self, text):
        self.prototypes = {}
        for m in re.finditer(r"LUMI_API LumStatus (lumi\w+)\(([^;]*?)\);", text, re.S):
            self.prototypes[m.group(1)] = [_ctype(p) for p in m.group(2).split(",")]
        self.status_names = {int(v): n for n, v in
                             re.findall(r"\b(lumSts\w+) = (-?\d+)", text)}
        block = re.search(r"#define LUMI_DISPATCH_INDEX_LIST\(X\)(.*?)\n\n", text, re.S).group(1)
        self.index_codes = {int(i): int(c) for i, c in re.findall(r"X\((\d+), (\d+),", block)}
        features = dict((n, int(v, 16)) for n, v in
                        re.findall(r"#define (LUM_CPU_\w+)\s+0x([0-9a-fA-F]+)ull", text))
        self.index_needs = {}
        for i, expr in re.findall(r"X\((\d+), \d+, ([A-Z0-9_ |]+),", block):
            need = 0
            for name in expr.split("|"):
                need |= features[name.strip()]
            self.index_needs[int(i)] = need


class Entries:
    """The entry list beside the header: the tier behind each dispatch index."""

    def __init__(self, text):
        self.tiers = {m.group(1): [t.strip() for t in m.group(2).split(",")]
                      for m in re.finditer(r"LUMI_ROW_DISPATCHED\((\w+), ([^)]*)\)", text)}


header_path = _find_header()
if header_path is None:
    raise ImportError("lumi.h not found beside the package (looked in ../../include and "
                      "../../../include)")
with open(header_path) as f:
    header = Header(f.read())
with open(os.path.join(os.path.dirname(header_path), "lumi_entries.def")) as f:
    entries = Entries(f.read())

library, library_path = _load_library()
_get_proc = library.GetProcAddressForSo
_get_proc.restype = ctypes.c_void_p
_get_proc.argtypes = [ctypes.c_char_p]
_init_cpu = library.lumInitCpu
_init_cpu.restype = ctypes.c_int32
_init_cpu.argtypes = [ctypes.c_int32]
_static_init = library.lumStaticInit
_static_init.restype = ctypes.c_int32
_get_features = library.lumGetCpuFeatures
_get_features.restype = ctypes.c_int32
_get_features.argtypes = [ctypes.POINTER(ctypes.c_uint64), ctypes.c_void_p]
jump_index = ctypes.c_int32.in_dll(library, "lumJumpIndexForMergedLibs")

# Every primitive the header declares and the library serves, looked up once:
# each lookup puts the automatic tier back, so none may happen while a tier
# is forced.
functions = {}
for _name, _args in header.prototypes.items():
    _addr = _get_proc(_name.encode())
    if _addr:
        functions[_name] = ctypes.CFUNCTYPE(ctypes.c_int32, *_args)(_addr)
_static_init()


def processor_features():
    word = ctypes.c_uint64(0)
    _get_features(ctypes.byref(word), None)
    return word.value


def force_index(index):
    return _init_cpu(header.index_codes[index])


def automatic():
    _static_init()
