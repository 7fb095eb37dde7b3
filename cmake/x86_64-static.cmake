# Toolchain for the 64-bit agent for ESX/ESXi hosts: x86-64, linked
# statically (the host's userland has none of our libraries), with the
# static zlib of Debian's zlib1g-dev. Current hosts may refuse to run 32-bit
# programs; this build is the one to copy there.
#
#   cmake -S . -B build-esxi64 -DCMAKE_TOOLCHAIN_FILE=cmake/x86_64-static.cmake \
#         -DCMAKE_BUILD_TYPE=Release -DQS_STATIC=ON -DQS_TESTS=OFF
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT "-m64")
set(CMAKE_CXX_FLAGS_INIT "-m64")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m64 -static")

# zlib's static archive, so that nothing is left to the host's dynamic
# loader.
set(CMAKE_LIBRARY_ARCHITECTURE x86_64-linux-gnu)
set(ZLIB_INCLUDE_DIR /usr/include CACHE PATH "zlib headers")
set(ZLIB_LIBRARY /usr/lib/x86_64-linux-gnu/libz.a CACHE FILEPATH "64-bit static zlib")
