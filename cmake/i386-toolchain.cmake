# Cross-build for i386 on an x86_64 Debian machine: the native gcc in -m32
# mode (g++-multilib) against the sysroot that scripts/sysroot-i386 unpacks
# from Debian's i386 packages.
#
#   scripts/sysroot-i386
#   cmake -S . -B build-i386/build -DCMAKE_TOOLCHAIN_FILE=cmake/i386-toolchain.cmake
#
# DM_I386_SYSROOT names another sysroot. Qt's code generators (moc, rcc) run
# on the build machine, so the top-level CMakeLists takes them from
# DM_QT_HOST_TOOLS instead of the sysroot's i386 copies.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

if(NOT DM_I386_SYSROOT)
  set(DM_I386_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build-i386/sysroot")
endif()
get_filename_component(DM_I386_SYSROOT "${DM_I386_SYSROOT}" ABSOLUTE)
if(NOT EXISTS "${DM_I386_SYSROOT}/lib/ld-linux.so.2")
  message(FATAL_ERROR "No i386 sysroot at ${DM_I386_SYSROOT}: run scripts/sysroot-i386 first")
endif()
# try_compile projects read this file again: hand them the same sysroot.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES DM_I386_SYSROOT DM_QT_HOST_TOOLS DM_I386_EMULATOR)
set(DM_I386_SYSROOT "${DM_I386_SYSROOT}" CACHE PATH "i386 sysroot" FORCE)
if(NOT DM_QT_HOST_TOOLS)
  set(DM_QT_HOST_TOOLS /usr/lib/qt5/bin)
endif()
set(DM_QT_HOST_TOOLS "${DM_QT_HOST_TOOLS}" CACHE PATH "Build machine's moc and rcc" FORCE)

set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_SYSROOT "${DM_I386_SYSROOT}")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)

# The programs run straight from the build tree on the x86_64 machine, which
# has no i386 runtime of its own: they carry the sysroot's loader as their
# interpreter and its library folders as an RPATH. DT_RPATH rather than
# RUNPATH, because only DT_RPATH also serves the libraries' own dependencies
# (Qt's ICU, X11, ...) and the module that module-host loads with dlopen.
set(_dm_i386_libs "${DM_I386_SYSROOT}/lib/i386-linux-gnu:${DM_I386_SYSROOT}/usr/lib/i386-linux-gnu")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-m32 -Wl,--disable-new-dtags -Wl,-rpath,${_dm_i386_libs}")
endforeach()
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--dynamic-linker=${DM_I386_SYSROOT}/lib/ld-linux.so.2")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config (libsodium) reads the sysroot's i386 .pc files only, and prefixes
# the paths they give with the sysroot.
set(ENV{PKG_CONFIG_LIBDIR} "${DM_I386_SYSROOT}/usr/lib/i386-linux-gnu/pkgconfig:${DM_I386_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${DM_I386_SYSROOT}")
set(ENV{PKG_CONFIG_PATH} "")

# Qt looks for its plugins (the offscreen platform) where the i386 packages
# put them on an i386 system; here they are inside the sysroot. The test
# programs are started through env with the sysroot's plugin folder, both
# when gtest lists their cases at build time and when CTest runs them.
#
# DM_I386_EMULATOR is the command that runs an i386 program where the kernel
# cannot (scripts/test-i386 sets it: its guard, qemu-i386 and -L with the
# sysroot); empty, the kernel runs them. Programs that tests start by path go
# through the same command (tests/CMakeLists.txt, dm_program_path).
set(DM_I386_EMULATOR "${DM_I386_EMULATOR}" CACHE STRING "Command that runs i386 programs; empty: run natively")
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/env
    "QT_PLUGIN_PATH=${DM_I386_SYSROOT}/usr/lib/i386-linux-gnu/qt5/plugins" ${DM_I386_EMULATOR})
