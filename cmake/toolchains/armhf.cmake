# 32-bit ARM with hardware floating point, by Debian's cross compiler (g++-arm-linux-gnueabihf). The programs, tests included,
# run on the build machine under qemu-arm (qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Libraries for the machine that the compiler does not have, from scripts/foreign-packages.
set(foreign_folder ${CMAKE_CURRENT_LIST_DIR}/../../build/foreign/armhf)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm;-L;/usr/arm-linux-gnueabihf;-E;LD_LIBRARY_PATH=${foreign_folder}/usr/lib/arm-linux-gnueabihf:${foreign_folder}/lib/arm-linux-gnueabihf")
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
list(APPEND CMAKE_PREFIX_PATH ${foreign_folder}/usr)
# Turns off GCC's note for every vector that is passed. GCC 7.1 changed how vectors are passed, and no older compiler built this.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
