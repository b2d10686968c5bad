# 32-bit Arm with hardware floating point, as Debian calls it.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(machine arm-linux-gnueabihf)
set(emulator qemu-arm-static)
# GCC would note at each template that it passes some arguments otherwise than GCC 6 did.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
