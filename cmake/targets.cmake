# Common to all targets: one namespace for the libraries, and one folder for the programs.

# A program looks for its companion programs in its own folder.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

# rovu_library(<name> <sources>...): adds a static library. Link it as rovu::<name>: CMake then reports a
# misspelt name, instead of passing it to the linker.
function(rovu_library name)
  add_library(rovu_${name} STATIC ${ARGN})
  add_library(rovu::${name} ALIAS rovu_${name})
endfunction()

# rovu_interface_library(<name>): the same for a library that has only headers or options.
function(rovu_interface_library name)
  add_library(rovu_${name} INTERFACE)
  add_library(rovu::${name} ALIAS rovu_${name})
endfunction()
