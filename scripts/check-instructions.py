#!/usr/bin/env python3
"""Checks that no code which runs before the CPU check uses instructions beyond the x86-64 baseline.

The library's vector units (src/simd/*_avx2.cpp, *_avx512.cpp) are compiled with their instruction set's
flags and may only run once the dispatcher has found that set on the machine. Everything else must run
on any x86-64 processor. From a build directory, this script disassembles the objects the library is made
of and the library itself, and fails, naming the function, when:

  - an object other than a vector unit holds a VEX or EVEX encoded instruction (any AVX instruction, ymm,
    zmm and mask registers included);
  - a vector unit defines a global or weak symbol other than its table of entries (constant data): an
    inline function or template of a shared header emitted there could be picked by the linker for the
    scalar code's calls, and a global function of a unit could be called before the check;
  - a vector unit has static initialisers, which would run when the library is loaded;
  - a function of the library that holds such an instruction is not a function local to a vector unit.

usage: check-instructions.py BUILD_DIR...     check the library and objects of each build directory
                                              (libvelqora.so, or velqora.dll of a MinGW-w64 build)
       check-instructions.py --self-test      plant faults in a small library and check they are found
"""

import glob
import os
import re
import subprocess
import sys
import tempfile

LEGACY_PREFIXES = {0x26, 0x2E, 0x36, 0x3E, 0x64, 0x65, 0x66, 0x67, 0xF0, 0xF2, 0xF3}
VECTOR_UNIT = re.compile(r"_(avx2|avx512)\.c(pp)?\.o(bj)?$")
TOOLS = {"objdump": "objdump", "nm": "nm"} # the MinGW-w64 binutils for a Windows build
UNIT_TABLE = re.compile(r"^_ZN2vq4simd(4avx2|6avx512)\d+kKernels\w*E$")


def run(*cmd):
    return subprocess.run(cmd, check=True, capture_output=True, text=True).stdout


def vex_functions(path):
    """{function: first VEX/EVEX instruction} of an object or library."""
    found = {}
    function = None
    for line in run(TOOLS["objdump"], "-d", "--insn-width=15", "-w", path).splitlines():
        m = re.match(r"^[0-9a-f]+ <(.+)>:$", line)
        if m:
            function = m.group(1)
            continue
        parts = line.split("\t")
        if len(parts) < 3 or function is None or function in found:
            continue
        try:
            code = [int(b, 16) for b in parts[1].split()]
        except ValueError:
            continue
        i = 0
        while i < len(code) and code[i] in LEGACY_PREFIXES:
            i += 1
        # In 64-bit mode c4 and c5 always start a VEX prefix and 62 an EVEX prefix.
        if i < len(code) and code[i] in (0xC4, 0xC5, 0x62):
            found[function] = parts[2].strip()
    return found


def symbols(path):
    """[(type letter, mangled name)] of the symbols an object defines."""
    out = []
    for line in run(TOOLS["nm"], "--defined-only", path).splitlines():
        fields = line.split()
        if len(fields) == 3:
            out.append((fields[1], fields[2]))
    return out


def demangle(name):
    try:
        return run("c++filt", name).strip()
    except (OSError, subprocess.CalledProcessError):
        return name


def check(library, objects):
    """Problems found, one line each."""
    problems = []
    vector_locals = set()
    vector_objects = [o for o in objects if VECTOR_UNIT.search(o)]
    for obj in objects:
        name = os.path.basename(obj)
        if obj not in vector_objects:
            for function, insn in vex_functions(obj).items():
                problems.append(f"{name}: {demangle(function)} uses '{insn}', beyond the baseline")
            continue
        for kind, sym in symbols(obj):
            if sym.startswith("_GLOBAL__sub_I") or sym.startswith("_GLOBAL__I"):
                problems.append(f"{name}: static initialiser {sym} would run at load time")
            elif kind.isupper() or kind in "uvw":
                if not (UNIT_TABLE.match(sym) and kind in "RD"):
                    problems.append(f"{name}: defines the shared symbol {demangle(sym)} ({kind}); only its "
                                    "table may be: other code could reach this copy before the check")
            elif kind in "tT":
                vector_locals.add(sym)
        sections = run(TOOLS["objdump"], "-h", obj)
        if re.search(r"\s\.(init_array|ctors)\b", sections):
            problems.append(f"{name}: has static initialisers (.init_array), which run at load time")
    lib_symbols = {}
    for line in run(TOOLS["nm"], "--defined-only", library).splitlines():
        fields = line.split()
        if len(fields) == 3:
            lib_symbols.setdefault(fields[2], set()).add(fields[1])
    for function, insn in vex_functions(library).items():
        kinds = lib_symbols.get(function, set())
        if not (function in vector_locals and kinds <= {"t"}):
            problems.append(f"{os.path.basename(library)}: {demangle(function)} uses '{insn}' but is not a "
                            "vector unit's own function")
    return problems


def check_build(build):
    libraries = [p for p in glob.glob(os.path.join(build, "libvelqora.so*")) if not os.path.islink(p)]
    pattern = "*.o"
    if not libraries and os.path.exists(os.path.join(build, "velqora.dll")):
        libraries, pattern = [os.path.join(build, "velqora.dll")], "*.obj"
        TOOLS.update(objdump="x86_64-w64-mingw32-objdump", nm="x86_64-w64-mingw32-nm")
    else:
        TOOLS.update(objdump="objdump", nm="nm")
    objects = sorted(glob.glob(os.path.join(build, "CMakeFiles", "velqora_objects.dir", "**", pattern),
                               recursive=True))
    if not libraries or not objects:
        print(f"check-instructions: {build}: no libvelqora.so or velqora.dll, or no objects: build it first")
        return False
    vector_units = [o for o in objects if VECTOR_UNIT.search(o)]
    problems = check(libraries[0], objects)
    for p in problems:
        print(f"check-instructions: {p}")
    print(f"check-instructions: {build}: {len(objects)} objects ({len(vector_units)} vector units) and "
          f"{os.path.basename(libraries[0])}: {'FAILED' if problems else 'only vector units use AVX'}")
    return not problems


# ---- self-test: a library whose scalar code uses AVX2, and a vector unit that shares an inline function

SCALAR = r"""
inline int shared(int x) { return x * 3; }
int helper(int x) { return shared(x) + 1; }
extern "C" int baseline(int *p) {
    __asm__ volatile("vpxor %%ymm0, %%ymm0, %%ymm0" ::: "xmm0");
    return p[0];
}
"""
VECTOR = r"""
#include <immintrin.h>
inline int shared(int x) { return x * 3; }
int __attribute__((noinline)) use(int x);
int use(int x) { return shared(x); }
namespace {
int interior(const int *p) { return _mm256_extract_epi32(_mm256_loadu_si256((const __m256i *)p), 1) + use(p[0]); }
}
namespace vq::simd::avx2 {
struct Kernels8 { int (*f)(const int *); };
extern const Kernels8 kKernels8;
constinit const Kernels8 kKernels8 = {interior};
// A table filled by code of the unit, which would run before the check.
void installKernels16(int (**f)(const int *)) { *f = interior; }
}
"""


def self_test():
    with tempfile.TemporaryDirectory() as tmp:
        objdir = os.path.join(tmp, "CMakeFiles", "velqora_objects.dir")
        os.makedirs(objdir)
        for name, text, flags in (("scalar.cpp", SCALAR, []), ("kernels_avx2.cpp", VECTOR, ["-mavx2"])):
            src = os.path.join(tmp, name)
            with open(src, "w") as f:
                f.write(text)
            run("g++", "-std=c++20", "-O1", "-fPIC", "-fno-inline", *flags, "-c", src,
                "-o", os.path.join(objdir, name + ".o"))
        objects = sorted(glob.glob(os.path.join(objdir, "*.o")))
        lib = os.path.join(tmp, "libvelqora.so")
        run("g++", "-shared", "-o", lib, *objects)
        text = "\n".join(check(lib, objects))
        wanted = ["scalar.cpp.o: baseline uses 'vpxor",
                  "kernels_avx2.cpp.o: defines the shared symbol shared(int)",
                  "kernels_avx2.cpp.o: defines the shared symbol use(int)",
                  "kernels_avx2.cpp.o: defines the shared symbol vq::simd::avx2::installKernels16"]
        missing = [w for w in wanted if w not in text]
        if missing:
            print("check-instructions: self-test FAILED: not reported: " + "; ".join(missing))
            print(text)
            return False
        print("check-instructions: self-test: the planted faults are found")
        return True


def main(argv):
    if argv == ["--self-test"]:
        return 0 if self_test() else 1
    if not argv or any(a.startswith("-") for a in argv):
        print(__doc__.strip().splitlines()[-2:][0].strip())
        return 2
    return 0 if all([check_build(b) for b in argv]) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
