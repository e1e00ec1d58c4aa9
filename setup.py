"""The extension velqora._velqora is built by the project's CMake build (python/CMakeLists.txt), configured
with the module alone: no tests, tools, benchmarks or GStreamer plugin. Its objects are kept in build/pip, so
that a second pip command (pip wheel after pip install) only relinks what changed."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


def library_version() -> str:
    """The library's version as include/velqora.h states it (CMake checks that its project version agrees)."""
    text = (ROOT / "include" / "velqora.h").read_text()
    return re.search(r'#define VQP_VERSION_STRING "([^"]+)"', text).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        build = Path(os.environ.get("VELQORA_PIP_BUILD_DIR", ROOT / "build" / "pip"))
        configure = ["cmake", "-S", str(ROOT), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
                     "-DVELQORA_PYTHON=ON", "-DVELQORA_BUILD_TESTS=OFF", "-DVELQORA_BUILD_TOOLS=OFF",
                     "-DVELQORA_BUILD_BENCH=OFF", "-DVELQORA_GSTREAMER=OFF", f"-DPython_EXECUTABLE={sys.executable}"]
        if shutil.which("ninja") and not (build / "CMakeCache.txt").exists():
            configure += ["-G", "Ninja"]
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(os.cpu_count() or 1)
        subprocess.run(configure, check=True)
        subprocess.run(["cmake", "--build", str(build), "--target", "_velqora", "-j", jobs], check=True)
        built = sorted((build / "python" / "velqora").glob("_velqora*.so"))
        if not built:
            raise RuntimeError(f"the CMake build left no _velqora module in {build / 'python' / 'velqora'}")
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(built[0], target)


setup(version=library_version(), ext_modules=[Extension("velqora._velqora", sources=[])],
      cmdclass={"build_ext": CMakeBuild})
