# Flags shared by everything that is ours: target vex_flags (warnings, sanitizers, hardening) and vex_library_flags on
# top of it for the library and the platform (no exceptions for the library is set there).
set(VEX_SANITIZE "" CACHE STRING "Comma-separated sanitizers: address, undefined, thread; empty for none")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON) # GNU: 0-argument variadic macros, %S, __FILE_NAME__
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()
# In place of CMake's own defaults; what the command line says stays.
foreach(language C CXX)
    if(CMAKE_${language}_FLAGS_DEBUG STREQUAL "-g")
        set(CMAKE_${language}_FLAGS_DEBUG "-O1 -g1")
    endif()
    if(CMAKE_${language}_FLAGS_RELEASE STREQUAL "-O3 -DNDEBUG")
        set(CMAKE_${language}_FLAGS_RELEASE "-O2 -g1")
    endif()
endforeach()

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

find_package(Threads REQUIRED)

add_library(vex_flags INTERFACE)
target_link_libraries(vex_flags INTERFACE Threads::Threads)
target_compile_options(vex_flags INTERFACE
    -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wvla -Werror
    -Wno-format-nonliteral -Wcast-align -Werror=address-of-packed-member
    $<$<COMPILE_LANGUAGE:CXX>:-Wmissing-declarations -Wnon-virtual-dtor -Woverloaded-virtual>
    -fstack-protector-strong)
option(VEX_COVERAGE "Count the lines and branches that run" OFF)
if(VEX_COVERAGE)
    target_compile_options(vex_flags INTERFACE --coverage -fprofile-abs-path -fprofile-update=atomic)
    target_link_options(vex_flags INTERFACE --coverage)
else()
    target_compile_options(vex_flags INTERFACE -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)  # two folders, the same bytes
endif()
# Files over 2 GiB and times after 2038 on 32-bit systems too.
target_compile_definitions(vex_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_link_options(vex_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

if(VEX_SANITIZE)
    target_compile_options(vex_flags INTERFACE
        -fsanitize=${VEX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vex_flags INTERFACE -fsanitize=${VEX_SANITIZE})
else()
    target_compile_definitions(vex_flags INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=3>)
    target_compile_options(vex_flags INTERFACE -fstack-clash-protection)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i686|amd64")
        target_compile_options(vex_flags INTERFACE -fcf-protection=full)
    endif()
endif()
