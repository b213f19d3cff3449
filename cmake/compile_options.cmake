# The compile options of every target. `rovu::warnings` is for all of the project's code; `rovu::product` adds
# the options for code that runs on a device: no exceptions, no RTTI, and assertions that are fatal in every
# build.

# Off by default: a compiler with more warnings must not break an integrator's build.
option(ROVU_WERROR "Treat compiler warnings as errors" OFF)

rovu_interface_library(warnings)
target_compile_options(rovu_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wformat=2
  $<$<BOOL:${ROVU_WERROR}>:-Werror>)

rovu_interface_library(product)
target_link_libraries(rovu_product INTERFACE rovu::warnings)
target_compile_options(rovu_product INTERFACE -UNDEBUG -fno-exceptions -fno-rtti -ffunction-sections -fdata-sections)
# File offsets and time_t are 64-bit, even where long is 32-bit.
target_compile_definitions(rovu_product INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

option(ROVU_SANITIZE "Address and undefined-behaviour sanitizers, every finding fatal" OFF)
if(ROVU_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

option(ROVU_COVERAGE "Count with gcov which lines and branches of app and common run" OFF)
if(ROVU_COVERAGE)
  # atomic: some tests have threads.
  target_compile_options(rovu_product INTERFACE --coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

# The same sources give the same programs in any folder: no path of it is in them. Coverage looks for the sources by
# their paths.
if(NOT ROVU_COVERAGE AND NOT ROVU_FUZZ)
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
endif()
