# Toolchain for the agent that runs on ESX/ESXi hosts: 32-bit x86, linked
# statically (the host's userland has none of our libraries), with the
# 32-bit static zlib of Debian's lib32z1-dev.
#
#   cmake -S . -B build-esxi -DCMAKE_TOOLCHAIN_FILE=cmake/i386-static.cmake \
#         -DCMAKE_BUILD_TYPE=Release -DQS_STATIC=ON -DQS_TESTS=OFF
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
# float and double arithmetic in SSE registers, as on x86-64: with the x87
# unit's extended precision a product such as 1.4 * 10.0 would truncate to 13
# instead of 14, and the host binary would write other numbers than the
# native build. Every ESX/ESXi host has a 64-bit CPU, so SSE2 is always there.
# (long double stays the x87 format; the storage code uses it on purpose.)
set(CMAKE_C_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32 -static")

# The 32-bit libraries live in /usr/lib32; take zlib's static archive so that
# nothing is left to the host's dynamic loader.
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(ZLIB_INCLUDE_DIR /usr/include CACHE PATH "zlib headers")
set(ZLIB_LIBRARY /usr/lib32/libz.a CACHE FILEPATH "32-bit static zlib")
