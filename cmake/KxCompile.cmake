# Compiler settings shared by every target of the project.

set(KX_WARNINGS -Wall -Wextra -Wshadow -Wformat=2 -Wno-format-nonliteral -Wcast-align
    -Wnon-virtual-dtor -Wpointer-arith -Wundef)
if(KX_WERROR)
  list(APPEND KX_WARNINGS -Werror)
endif()

add_library(kx_options INTERFACE)
target_compile_options(kx_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:${KX_WARNINGS}>)
# Large-file interfaces (open64, mmap64, ...) on the 32-bit target.
target_compile_definitions(kx_options INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64 _LARGEFILE64_SOURCE)

if(KX_SANITIZE)
  set(KX_SAN_FLAGS -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_compile_options(${KX_SAN_FLAGS})
  add_link_options(${KX_SAN_FLAGS})
endif()

# KX_TARGET_32BIT is 1 on the 32-bit target, where the exact on-disk and shared-memory layouts
# are asserted, and 0 elsewhere (always defined, so that -Wundef catches misspellings).
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(KX_TARGET_32BIT ON)
  target_compile_definitions(kx_options INTERFACE KX_TARGET_32BIT=1)
else()
  target_compile_definitions(kx_options INTERFACE KX_TARGET_32BIT=0)
endif()

find_package(PkgConfig REQUIRED)
pkg_check_modules(TIRPC REQUIRED IMPORTED_TARGET libtirpc)
find_library(KX_LIBCRYPT crypt REQUIRED)
find_package(Threads REQUIRED)
