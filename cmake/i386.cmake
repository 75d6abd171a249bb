# ILP32 on the build machine. g++-12-multilib brings no /usr/include/asm for -m32 (the metapackage that does conflicts
# with every cross compiler), so the 64-bit multiarch headers come last in the search order.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
if(NOT CMAKE_C_COMPILER)
    set(CMAKE_C_COMPILER gcc-12)
endif()
if(NOT CMAKE_CXX_COMPILER)
    set(CMAKE_CXX_COMPILER g++-12)
endif()
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
# The processor runs these programs itself: no emulator, and tests are not "cross".
set(CMAKE_CROSSCOMPILING_EMULATOR "")
