# What the compiler and the linker add to everything that is shipped, so that a memory error ends the program and is not
# exploited. Each flag is used where the compiler has it for the processor at hand.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

set(norv_hardening_options)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "NORV_HAS${flag}" has_flag)
    # Clang takes a flag of another processor and warns that it makes no use of it.
    set(CMAKE_REQUIRED_FLAGS -Werror)
    check_cxx_compiler_flag(${flag} ${has_flag})
    unset(CMAKE_REQUIRED_FLAGS)
    if(${has_flag})
        list(APPEND norv_hardening_options ${flag})
    endif()
endforeach()

# The C library's checks of buffers need an optimising compiler. A build type of one's own brings its own flags.
foreach(level 3 2)
    set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level}")
    check_cxx_source_compiles("
        #include <cstdio>
        #if __USE_FORTIFY_LEVEL < ${level}
        #error no such level
        #endif
        int main() {}" NORV_HAS_FORTIFY_${level})
    unset(CMAKE_REQUIRED_FLAGS)
    if(NORV_HAS_FORTIFY_${level})
        list(APPEND norv_hardening_options
            "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${level}>")
        break()
    endif()
endforeach()

check_pie_supported(LANGUAGES C CXX)

# norv_harden(TARGET): nothing with a sanitizer, which checks more and knows the unfortified calls alone.
function(norv_harden target)
    if(NORV_SANITIZE)
        return()
    endif()
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE ${norv_hardening_options})
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
endfunction()
