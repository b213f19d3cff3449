# The three libraries that the program may use, and no others.

find_package(CURL REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(PkgConfig REQUIRED)

# Distributions name the module after the version, Lua's own makefile just "lua".
pkg_search_module(LUA51 REQUIRED IMPORTED_TARGET GLOBAL lua5.1 lua-5.1 lua51 lua>=5.1<5.2)

# The program is written against libcrypto's 1.0 interface, which the 3.0 headers still declare and
# mark as deprecated unless the caller says which interface it was written for.
rovu_interface_library(crypto)
target_link_libraries(rovu_crypto INTERFACE OpenSSL::Crypto)
target_compile_definitions(rovu_crypto INTERFACE OPENSSL_API_COMPAT=0x10000000L)
