# Cross build for 64-bit Windows with Debian's MinGW-w64 g++ (g++-mingw-w64-x86-64-posix: the posix
# thread model carries std::thread); programs run under Wine (Debian's wine64).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Windows x64 keeps the stack 16-byte aligned, and g++ does not realign it for the spills of 32- and 64-byte
# vectors: the assembler writes every aligned vector move as an unaligned one (as fast on aligned data), so
# a spill of the AVX2 or AVX-512 units can never fault.
set(CMAKE_C_FLAGS_INIT "-Wa,-muse-unaligned-vector-move")
set(CMAKE_CXX_FLAGS_INIT "-Wa,-muse-unaligned-vector-move")
# The compiler's own runtime (libgcc, libstdc++, winpthread) is linked in statically, so velqora.dll and
# the programs need nothing beside them but the DLLs every Windows has.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
# Wine's 64-bit loader; run with WINEPREFIX in a temporary directory and WINEDEBUG=-all
# (scripts/test-windows.sh).
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
