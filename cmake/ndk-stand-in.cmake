# SPDX-License-Identifier: Apache-2.0
# A stand-in for the NDK's android.toolchain.cmake, for checking on a machine
# without an NDK that an Android configure reaches its generate step: it sets
# the variables the NDK's file sets (ANDROID, the ABI, the platform level, a
# sysroot-only search) but compiles with the host's compilers. Nothing it
# configures is built. scripts/build-routes.sh uses it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ANDROID TRUE)
set(ANDROID_NDK "/nonexistent/android-ndk")
set(ANDROID_ABI arm64-v8a)
set(ANDROID_PLATFORM android-26)
set(ANDROID_PLATFORM_LEVEL 26)
set(CMAKE_ANDROID_ARCH_ABI arm64-v8a)
# As the NDK: libraries, headers and packages only from the sysroot, here an
# empty one, so nothing of the host's is found by accident.
set(CMAKE_FIND_ROOT_PATH "${CMAKE_CURRENT_LIST_DIR}/../.ndk-stand-in-sysroot")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
