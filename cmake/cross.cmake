# Toolchain file for any processor, by the prefix of its compiler's name:
#
#   -DROVU_TRIPLET=arm-linux-gnueabihf   the compiler is arm-linux-gnueabihf-g++
#   -DROVU_SYSROOT=FOLDER                the libraries with their headers; the C library too, or else the compiler's own
#
# By default, the sysroot is where `device/vm/build` leaves the one for MIPS. Tests run under qemu-user.

set(ROVU_TRIPLET mips-linux-gnu CACHE STRING "Prefix of the cross-compiler's name")
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${ROVU_TRIPLET}")
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER ${ROVU_TRIPLET}-g++)
set(CMAKE_STRIP ${ROVU_TRIPLET}-strip)
set(CMAKE_LIBRARY_ARCHITECTURE ${ROVU_TRIPLET})

if(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(rovu_cache "$ENV{XDG_CACHE_HOME}/rovu")
else()
  set(rovu_cache "$ENV{HOME}/.cache/rovu")
endif()
set(ROVU_SYSROOT "${rovu_cache}/${CMAKE_SYSTEM_PROCESSOR}/sysroot" CACHE PATH "Libraries of the target")
if(NOT IS_DIRECTORY "${ROVU_SYSROOT}")
  message(FATAL_ERROR "No libraries in ${ROVU_SYSROOT}; give ROVU_SYSROOT, or run device/vm/build for those of MIPS")
endif()
# CMake's checks of the compiler are projects of their own.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ROVU_TRIPLET ROVU_SYSROOT)

# qemu-user searches the dynamic linker and the C library in lib/ below the folder given by -L.
if(EXISTS "${ROVU_SYSROOT}/usr/include/stdio.h")
  set(CMAKE_SYSROOT "${ROVU_SYSROOT}")
  set(rovu_libc_root "${ROVU_SYSROOT}")
else()
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libc.so.6
    OUTPUT_VARIABLE rovu_libc OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT IS_ABSOLUTE "${rovu_libc}")  # musl's has another name
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libc.so
      OUTPUT_VARIABLE rovu_libc OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  endif()
  cmake_path(SET rovu_libc NORMALIZE "${rovu_libc}")
  cmake_path(GET rovu_libc PARENT_PATH rovu_libc_root)
  cmake_path(GET rovu_libc_root PARENT_PATH rovu_libc_root)
endif()

# Libraries and headers come from the sysroot only, programs from the workstation only.
set(CMAKE_FIND_ROOT_PATH "${ROVU_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(rovu_libraries "${ROVU_SYSROOT}/usr/lib")
set(ENV{PKG_CONFIG_LIBDIR} "${rovu_libraries}/${ROVU_TRIPLET}/pkgconfig:${rovu_libraries}/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ROVU_SYSROOT}")
# qemu-user names some processors otherwise than compilers do.
string(REGEX REPLACE "^powerpc" "ppc" rovu_emulator "${CMAKE_SYSTEM_PROCESSOR}")
string(REGEX REPLACE "^i[4-6]86$" "i386" rovu_emulator "${rovu_emulator}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${rovu_emulator} -L "${rovu_libc_root}"
  -E "LD_LIBRARY_PATH=${rovu_libraries}/${ROVU_TRIPLET}:${rovu_libraries}")
