# What every target is compiled with. `rovu_warnings` goes into everything that is ours;
# `rovu_product` adds what holds for code that runs on a device: nothing thrown, no type information, and
# assertions that are fatal in every build.

add_library(rovu_warnings INTERFACE)
target_compile_options(rovu_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wformat=2 -Werror)

add_library(rovu_product INTERFACE)
target_link_libraries(rovu_product INTERFACE rovu_warnings)
target_compile_options(rovu_product INTERFACE -UNDEBUG -fno-exceptions -fno-rtti -ffunction-sections -fdata-sections)
# Files are counted in 32 bits only where the update format says so, and the clock goes on after 2038.
target_compile_definitions(rovu_product INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

option(ROVU_SANITIZE "Address and undefined-behaviour sanitizers, everything fatal" OFF)
if(ROVU_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
