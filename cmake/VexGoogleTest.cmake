# GoogleTest from Debian's source package, built with the machine flags of the preset. It is not ours to diagnose: no
# warnings, no optimisation, no address sanitizer (instrumenting it costs 30 s a preset and finds nothing of ours); the
# thread sanitizer must see it, since it hands results between threads.
set(VEX_GTEST_SOURCE /usr/src/googletest/googletest CACHE PATH "GoogleTest sources")
if(NOT EXISTS ${VEX_GTEST_SOURCE}/src/gtest-all.cc)
    message(FATAL_ERROR "GoogleTest sources not found in ${VEX_GTEST_SOURCE}: install the package 'googletest'")
endif()
add_library(vex_gtest STATIC
    ${VEX_GTEST_SOURCE}/src/gtest-all.cc ${VEX_GTEST_SOURCE}/src/gtest_main.cc)
target_include_directories(vex_gtest SYSTEM PUBLIC ${VEX_GTEST_SOURCE}/include)
target_include_directories(vex_gtest PRIVATE ${VEX_GTEST_SOURCE})
target_compile_options(vex_gtest PRIVATE -O0 -g0 -w)
target_link_libraries(vex_gtest PUBLIC Threads::Threads)
if(VEX_SANITIZE MATCHES "thread")
    target_compile_options(vex_gtest PRIVATE -fsanitize=thread)
endif()

# vex_add_command_test(NAME COMMAND program [arguments...] [TIMEOUT seconds]): a test that runs a program of ours, under the
# emulator or with a quiet address space where the preset needs it.
function(vex_add_command_test name)
    cmake_parse_arguments(T "" "TIMEOUT" "COMMAND" ${ARGN})
    set(command ${T_COMMAND})
    if(VEX_SANITIZE AND CMAKE_SIZEOF_VOID_P EQUAL 8)
        # Kernels with 32 bits of mmap randomness place mappings where 64-bit sanitizers keep their shadow.
        find_program(SETARCH setarch)
        if(SETARCH)
            list(PREPEND command ${SETARCH} -R)
        endif()
    elseif(CMAKE_CROSSCOMPILING_EMULATOR)
        list(PREPEND command ${CMAKE_CROSSCOMPILING_EMULATOR})
    endif()
    add_test(NAME ${name} COMMAND ${command})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT}
        ENVIRONMENT "UBSAN_OPTIONS=print_stacktrace=1;TSAN_OPTIONS=halt_on_error=1")
endfunction()

# vex_add_test(NAME SOURCES... [LINK targets...] [TIMEOUT seconds]): one test binary and one ctest entry (an emulated or
# sanitized process start costs more than a case).
function(vex_add_test name)
    cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LINK} vex_gtest vex_flags)
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
    # Tests are built often and run briefly: optimising them triples the time to build and saves nothing.
    target_compile_options(${name} PRIVATE $<$<CONFIG:Debug>:-O0>)
    vex_add_command_test(${name} COMMAND $<TARGET_FILE:${name}> --gtest_brief=1 TIMEOUT ${T_TIMEOUT})
endfunction()
