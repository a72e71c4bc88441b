# 32-bit ARM with hardware floating point, by Debian's cross compiler (g++-arm-linux-gnueabihf). What is built runs here
# under qemu-arm (qemu-user), tests included.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm;-L;/usr/arm-linux-gnueabihf")
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Without a note for every vector that is passed: GCC 7.1 changed how, and nothing here was built before that.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
