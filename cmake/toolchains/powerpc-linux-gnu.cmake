# CMake toolchain file: cross-build for 32-bit big-endian PowerPC Linux
# (powerpc-linux-gnu), by default with Debian's g++-powerpc-linux-gnu, or
# with the board vendor's SDK; the produced executables (try_run, ctest,
# gtest_discover_tests) run under qemu-user.
#
# Usage (README, "Building for the board"):
#   prefix=$(scripts/ppc-deps.sh | tail -n 1)
#   cmake -S . -B build/board --toolchain cmake/toolchains/powerpc-linux-gnu.cmake \
#     -DDBG_PPC_SYSROOT_EXTRA="$prefix/tcl;$prefix/gtest"
# With a vendor SDK, its compiler prefix and sysroot as well:
#     -DDBG_PPC_CROSS_PREFIX=/opt/board-sdk/bin/powerpc-linux-gnu-
#     -DDBG_PPC_SYSROOT=/opt/board-sdk/sysroot
#
# Cache variables:
#   DBG_PPC_CROSS_PREFIX   what comes before gcc and g++ (a command name's
#                          beginning or a path's); default powerpc-linux-gnu-
#                          (Debian's cross compilers).
#   DBG_PPC_SYSROOT        the target's root file system (C library,
#                          libstdc++, dynamic loader), given to the compiler
#                          as --sysroot; empty: Debian's cross toolchain,
#                          whose target root /usr/powerpc-linux-gnu it knows.
#   DBG_PPC_SYSROOT_EXTRA  list of extra target prefixes (e.g. where the
#                          target Tcl and GoogleTest are installed). Each is
#                          appended to CMAKE_FIND_ROOT_PATH and
#                          CMAKE_PREFIX_PATH, and <prefix>/lib is put in the
#                          build RPATH so the executables find shared
#                          libraries (libtcl8.6.so) under qemu.
#   DBG_PPC_QEMU           qemu user-mode binary (qemu-ppc, or
#                          qemu-ppc-static if only that one is installed).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)

set(DBG_PPC_CROSS_PREFIX "powerpc-linux-gnu-" CACHE STRING
    "Compiler prefix of the cross toolchain (gcc and g++ follow it): a command name's beginning or a path's")
set(DBG_PPC_SYSROOT "" CACHE PATH
    "Target root file system of the SDK, given as --sysroot (empty: Debian's cross toolchain)")
set(DBG_PPC_SYSROOT_EXTRA "" CACHE STRING
    "Extra target prefixes (;-list) added to CMAKE_FIND_ROOT_PATH, CMAKE_PREFIX_PATH and the build RPATH")

# The toolchain file is read once per try_compile project as well; forward
# our variables to those so they see the same search roots.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
     DBG_PPC_CROSS_PREFIX DBG_PPC_SYSROOT DBG_PPC_SYSROOT_EXTRA DBG_PPC_QEMU)

set(CMAKE_C_COMPILER   ${DBG_PPC_CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${DBG_PPC_CROSS_PREFIX}g++)

# The target's root: the SDK's sysroot, or where Debian's cross toolchain
# keeps the target's libraries.
if(DBG_PPC_SYSROOT)
  set(CMAKE_SYSROOT "${DBG_PPC_SYSROOT}")
  set(dbg_ppc_target_root "${DBG_PPC_SYSROOT}")
else()
  set(dbg_ppc_target_root /usr/powerpc-linux-gnu)
endif()

# ar/ranlib/strip/objdump/readelf: CMake derives the prefixed binutils
# from the compiler's name by itself.

# Search roots.
set(CMAKE_FIND_ROOT_PATH "${dbg_ppc_target_root}")
foreach(_dbg_ppc_p IN LISTS DBG_PPC_SYSROOT_EXTRA)
  if(_dbg_ppc_p)
    list(APPEND CMAKE_FIND_ROOT_PATH "${_dbg_ppc_p}")
    list(APPEND CMAKE_PREFIX_PATH    "${_dbg_ppc_p}")
    # Make target shared libraries from the extra prefixes loadable at run
    # time from the build tree under qemu (no LD_LIBRARY_PATH needed).
    list(APPEND CMAKE_BUILD_RPATH    "${_dbg_ppc_p}/lib")
  endif()
endforeach()
unset(_dbg_ppc_p)
list(REMOVE_DUPLICATES CMAKE_FIND_ROOT_PATH)
list(REMOVE_DUPLICATES CMAKE_PREFIX_PATH)
if(CMAKE_BUILD_RPATH)
  list(REMOVE_DUPLICATES CMAKE_BUILD_RPATH)
endif()

# Programs are host tools; libraries, headers and packages come only from
# the target roots.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Emulator used by try_run(), add_test() (for executable targets) and
# gtest_discover_tests(). Debian bookworm's qemu-user ships /usr/bin/qemu-ppc;
# qemu-user-static ships /usr/bin/qemu-ppc-static. -L points qemu at the
# target dynamic loader and libc/libstdc++.
if(NOT DBG_PPC_QEMU)
  find_program(DBG_PPC_QEMU NAMES qemu-ppc qemu-ppc-static
               DOC "qemu user-mode emulator for 32-bit PowerPC")
endif()
if(DBG_PPC_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${DBG_PPC_QEMU};-L;${dbg_ppc_target_root}")
else()
  message(WARNING
    "qemu-ppc / qemu-ppc-static not found: target executables cannot be run "
    "(install qemu-user, or run scripts/ppc-deps.sh)")
endif()
