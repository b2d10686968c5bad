# 64-bit Arm, as Debian calls it.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(machine aarch64-linux-gnu)
set(emulator qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
