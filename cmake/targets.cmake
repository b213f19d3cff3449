# What every target has in common: one name space for the libraries, and one folder for the programs.

# Programs that belong together look for each other beside themselves.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

# rovu_library(<name> <sources>...): a static library, to be linked as rovu::<name>, so that a misspelt name is an
# error and not a flag for the linker.
function(rovu_library name)
  add_library(rovu_${name} STATIC ${ARGN})
  add_library(rovu::${name} ALIAS rovu_${name})
endfunction()

# rovu_interface_library(<name>): the same, for headers or options alone.
function(rovu_interface_library name)
  add_library(rovu_${name} INTERFACE)
  add_library(rovu::${name} ALIAS rovu_${name})
endfunction()
