# A big-endian machine, by Debian's cross compiler (g++-s390x-linux-gnu). It shows that messages do not depend on the
# machine's byte order. The programs run on the build machine under qemu-s390x (qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-s390x;-L;/usr/s390x-linux-gnu")
set(CMAKE_LIBRARY_ARCHITECTURE s390x-linux-gnu)
