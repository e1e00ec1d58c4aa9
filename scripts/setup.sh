#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks for building and testing Velqora.
set -euo pipefail

need=()
command -v cmake >/dev/null 2>&1 || need+=(cmake)
command -v ninja >/dev/null 2>&1 || need+=(ninja-build)
command -v g++ >/dev/null 2>&1 || need+=(g++)
command -v cc >/dev/null 2>&1 || need+=(gcc)
command -v pkg-config >/dev/null 2>&1 || need+=(pkg-config)
command -v clang++ >/dev/null 2>&1 || need+=(clang)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
[ -f /usr/include/png.h ] || need+=(libpng-dev)
# The Python module: Debian's interpreter with numpy, pybind11, pytest and the headers.
/usr/bin/python3 -c "import numpy" >/dev/null 2>&1 || need+=(python3-numpy)
/usr/bin/python3 -c "import pybind11" >/dev/null 2>&1 || need+=(python3-pybind11)
/usr/bin/python3 -c "import pytest" >/dev/null 2>&1 || need+=(python3-pytest)
[ -n "$(ls /usr/include/python3*/Python.h 2>/dev/null)" ] || need+=(python3-dev)
# pip install and pip wheel of the module (setuptools driving the CMake build, into a virtual environment),
# and velqora-batch: Dask's distributed scheduler, tqdm's progress bar, psutil for the tests' processes.
/usr/bin/python3 -c "import ensurepip, venv" >/dev/null 2>&1 || need+=(python3-venv)
/usr/bin/python3 -m pip --version >/dev/null 2>&1 || need+=(python3-pip)
/usr/bin/python3 -c "import setuptools" >/dev/null 2>&1 || need+=(python3-setuptools)
/usr/bin/python3 -c "import wheel" >/dev/null 2>&1 || need+=(python3-wheel)
/usr/bin/python3 -c "import distributed" >/dev/null 2>&1 || need+=(python3-distributed)
/usr/bin/python3 -c "import tqdm" >/dev/null 2>&1 || need+=(python3-tqdm)
/usr/bin/python3 -c "import psutil" >/dev/null 2>&1 || need+=(python3-psutil)
# The GStreamer plugin (gst/): GStreamer 1.22's development files, the tools and plugins its tests and
# README pipelines use, and the GigE Vision camera simulator with the aravissrc element (aravis-tools).
pkg-config --exists gstreamer-video-1.0 2>/dev/null || need+=(libgstreamer-plugins-base1.0-dev)
command -v gst-launch-1.0 >/dev/null 2>&1 || need+=(gstreamer1.0-tools)
[ -n "$(ls /usr/lib/*/gstreamer-1.0/libgstvideotestsrc.so 2>/dev/null)" ] || need+=(gstreamer1.0-plugins-base)
[ -n "$(ls /usr/lib/*/gstreamer-1.0/libgstmultifile.so 2>/dev/null)" ] || need+=(gstreamer1.0-plugins-good)
[ -n "$(ls /usr/lib/*/gstreamer-1.0/libgstbayer.so 2>/dev/null)" ] || need+=(gstreamer1.0-plugins-bad)
command -v arv-fake-gv-camera-0.8 >/dev/null 2>&1 || need+=(aravis-tools)
# The emulated processors of the tests (older x86-64 processors, and AArch64), and the disassembler of the
# instruction check.
command -v qemu-x86_64 >/dev/null 2>&1 || need+=(qemu-user)
command -v objdump >/dev/null 2>&1 || need+=(binutils)
# `setup.sh aarch64`: the cross compiler of the AArch64 build.
if [ "${1:-}" = aarch64 ]; then
  command -v aarch64-linux-gnu-g++ >/dev/null 2>&1 || need+=(g++-aarch64-linux-gnu)
fi

# `setup.sh windows`: the MinGW-w64 cross compiler (posix threads) and Wine's 64-bit loader.
# `setup.sh csharp`: Mono's C# compiler and runtime. These come without recommended packages (Wine's
# would bring fonts, media and 32-bit support that no test uses).
lean=()
if [ "${1:-}" = windows ]; then
  command -v x86_64-w64-mingw32-g++-posix >/dev/null 2>&1 || lean+=(g++-mingw-w64-x86-64-posix)
  [ -x /usr/lib/wine/wine64 ] || lean+=(wine wine64)
fi
if [ "${1:-}" = csharp ]; then
  command -v mcs >/dev/null 2>&1 || lean+=(mono-mcs)
  command -v mono >/dev/null 2>&1 || lean+=(mono-runtime)
fi

if [ ${#need[@]} -gt 0 ] || [ ${#lean[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
fi
if [ ${#need[@]} -gt 0 ]; then
  echo "setup: installing ${need[*]}"
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi
if [ ${#lean[@]} -gt 0 ]; then
  echo "setup: installing ${lean[*]}"
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${lean[@]}"
fi
