# Builds with Debian's cross compiler for the machine whose files are in TAVO_SYSROOT, and runs what is built with QEMU.
# The toolchain files beside this one set `machine`, the compiler's prefix, and `emulator`.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TAVO_SYSROOT)

set(CMAKE_SYSTEM_NAME Linux)
# A preset may name clang, which compiles for every machine.
if(NOT DEFINED CACHE{CMAKE_CXX_COMPILER})
  set(CMAKE_C_COMPILER ${machine}-gcc)
  set(CMAKE_CXX_COMPILER ${machine}-g++)
endif()
set(CMAKE_C_COMPILER_TARGET ${machine})
set(CMAKE_CXX_COMPILER_TARGET ${machine})

set(CMAKE_SYSROOT ${TAVO_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator};-L;${TAVO_SYSROOT})
