# What makes an exploited fault end in a crash: for every program and library of the tree.
#
# ROVU_HARDENING=OFF leaves it out, for a device whose flash has no room left; docs/performance.md has both sizes. The
# stack's permission is left to the toolchain: on MIPS it is executable, since kernels before 4.8 run the delay slots
# of emulated floating-point branches on it.
option(ROVU_HARDENING "RELRO, PIE, stack protector, fortified library calls, stack clash and control-flow protection" ON)
if(NOT ROVU_HARDENING)
  return()
endif()

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
check_pie_supported(LANGUAGES CXX)

foreach(flag IN ITEMS -fstack-protector-strong -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "ROVU_HAS${flag}" has)
  check_cxx_compiler_flag("${flag} -Werror" ${has})
  if(${has})
    add_compile_options(${flag})
  endif()
endforeach()
# The C library fortifies what the optimiser has seen; a sanitizer checks more, and by itself.
string(TOUPPER "CMAKE_CXX_FLAGS_${CMAKE_BUILD_TYPE}" flags_of_type)
if("${CMAKE_CXX_FLAGS} ${${flags_of_type}}" MATCHES "-O[1-3gs]" AND NOT ROVU_SANITIZE)
  add_compile_options(-U_FORTIFY_SOURCE)
  check_cxx_source_compiles("
    #include <features.h>
    #if !__GLIBC_PREREQ(2, 34) || !(__GNUC_PREREQ(12, 0) || __clang_major__ >= 14)
    #error
    #endif
    int main() {}" ROVU_HAS_FORTIFY_SOURCE_3)
  add_compile_options(-D_FORTIFY_SOURCE=$<IF:$<BOOL:${ROVU_HAS_FORTIFY_SOURCE_3}>,3,2>)
endif()
add_link_options(-Wl,-z,relro -Wl,-z,now)
