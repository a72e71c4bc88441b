# 32-bit ARM with hardware floating point, by Debian's cross compiler (g++-arm-linux-gnueabihf). The programs, tests included,
# run on the build machine under qemu-arm (qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm;-L;/usr/arm-linux-gnueabihf")
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Libraries for the machine that the compiler does not have, from scripts/foreign-packages.
list(APPEND CMAKE_PREFIX_PATH ${CMAKE_CURRENT_LIST_DIR}/../../build/foreign/armhf/usr)
# Turns off GCC's note for every vector that is passed. GCC 7.1 changed how vectors are passed, and no older compiler built this.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
