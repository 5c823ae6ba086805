# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# Toolchain file for Debian's cross compilers: MP4VDEC_TRIPLET=aarch64-linux-gnu and the like. What is built runs under
# qemu-user with the C library that comes with the compiler. The loader must not mix it with parts of an installed
# libc6:arm64, or threads do not start: hence LD_LIBRARY_PATH.
set(CMAKE_SYSTEM_NAME Linux)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MP4VDEC_TRIPLET)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${MP4VDEC_TRIPLET}")

set(CMAKE_C_COMPILER ${MP4VDEC_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${MP4VDEC_TRIPLET}-g++)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)  # GCC tells at every use that C++17 changed how 32-bit Arm passes some records
set(CMAKE_LIBRARY_ARCHITECTURE ${MP4VDEC_TRIPLET})
set(CMAKE_FIND_ROOT_PATH /usr/${MP4VDEC_TRIPLET} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR}-static -L /usr/${MP4VDEC_TRIPLET}
                                  -E LD_LIBRARY_PATH=/usr/${MP4VDEC_TRIPLET}/lib)
