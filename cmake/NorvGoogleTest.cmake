# GoogleTest: as Debian built it, or, for another processor, built here from Debian's sources of it.
if(CMAKE_CROSSCOMPILING)
    set(INSTALL_GTEST OFF)
    add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
else()
    find_package(GTest REQUIRED)
endif()

# What nearly every test includes, compiled once for all of them: half of the time that a test took to compile. A source
# still names all that it uses; the package build compiles without this.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/test_headers.cpp CONTENT "")
add_library(norv_test_headers OBJECT ${PROJECT_BINARY_DIR}/test_headers.cpp)
target_precompile_headers(norv_test_headers PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <algorithm> <functional> <memory> <string> <thread> <vector>)

# norv_test_options(TARGET): how all of a test is compiled. The library in it is optimised as ever; optimising the tests
# themselves, or describing their variables to a debugger, would only add to the time that they take to compile. Without
# optimisation the C library refuses _FORTIFY_SOURCE, which a distribution's flags may bring.
function(norv_test_options target)
    target_compile_features(${target} PRIVATE cxx_std_20)
    target_compile_options(${target} PRIVATE -O0 $<$<NOT:$<CONFIG:Debug>>:-g1> -U_FORTIFY_SOURCE)
    target_link_libraries(${target} PRIVATE norv_io_linux norv_warnings GTest::gmock GTest::gtest_main)
endfunction()
norv_test_options(norv_test_headers)

# norv_test_program(NAME SOURCES...): a GoogleTest program.
function(norv_test_program name)
    add_executable(${name} ${ARGN})
    norv_test_options(${name})
    target_precompile_headers(${name} REUSE_FROM norv_test_headers)
endfunction()
