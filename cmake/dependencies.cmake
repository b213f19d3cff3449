# The only three libraries that the program may use.

find_package(CURL REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(PkgConfig REQUIRED)

# Distributions include the version in the module's name; Lua itself, and Buildroot, name it "lua". A module with two
# limits is two entries.
pkg_search_module(LUA51 IMPORTED_TARGET GLOBAL lua5.1 lua-5.1 lua51)
if(NOT LUA51_FOUND)
  pkg_check_modules(LUA51 REQUIRED IMPORTED_TARGET GLOBAL lua>=5.1 lua<5.2)
endif()

# The program uses libcrypto's 1.0 interface. The 3.0 headers still declare it, and mark it as deprecated
# unless the caller states the interface that it uses.
rovu_interface_library(crypto)
target_link_libraries(rovu_crypto INTERFACE OpenSSL::Crypto)
target_compile_definitions(rovu_crypto INTERFACE OPENSSL_API_COMPAT=0x10000000L)
