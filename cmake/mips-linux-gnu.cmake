# Toolchain file for the device's processor, 32-bit big-endian MIPS. `device/vm/build` builds the libraries in
# the sysroot; tests run under qemu-mips.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)
set(CMAKE_CXX_COMPILER mips-linux-gnu-g++)
set(CMAKE_STRIP mips-linux-gnu-strip)

if(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(rovu_cache "$ENV{XDG_CACHE_HOME}/rovu")
else()
  set(rovu_cache "$ENV{HOME}/.cache/rovu")
endif()
set(rovu_sysroot "${rovu_cache}/mips/sysroot")
if(NOT IS_DIRECTORY "${rovu_sysroot}")
  message(FATAL_ERROR "No MIPS libraries in ${rovu_sysroot}; run device/vm/build first")
endif()

# Libraries and headers come from the sysroot only, programs from the workstation only.
set(CMAKE_FIND_ROOT_PATH "${rovu_sysroot}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${rovu_sysroot}/usr/lib/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${rovu_sysroot}")

# qemu-mips searches the dynamic linker and the C library in lib/ below the folder given by -L.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libc.so.6
  OUTPUT_VARIABLE rovu_libc OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
cmake_path(SET rovu_libc NORMALIZE "${rovu_libc}")
cmake_path(GET rovu_libc PARENT_PATH rovu_libc_root)
cmake_path(GET rovu_libc_root PARENT_PATH rovu_libc_root)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mips -L "${rovu_libc_root}" -E "LD_LIBRARY_PATH=${rovu_sysroot}/usr/lib")
