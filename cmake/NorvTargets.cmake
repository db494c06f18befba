# How this project's targets are built: one set of warnings for everything, and the two shared libraries
# without exceptions, run-time type information or the C++ runtime.

include(cmake/NorvHardening.cmake)

# Errors are for the project's own builds, the presets: a later compiler that warns about more does not stop a packager.
add_library(norv_warnings INTERFACE)
target_compile_options(norv_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${NORV_WARNINGS_AS_ERRORS}>:-Werror>)

# 64-bit file offsets and time on 32-bit processors too.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# norv_shared_library(NAME SOURCES...): a library with a C interface. It exports the names that its linker
# map NAME.map lists, and needs nothing but the C library and what it links. Users know norv_NAME as norv::NAME.
function(norv_shared_library name)
    add_library(${name} SHARED ${ARGN})
    string(REPLACE norv_ "" package_name ${name})
    add_library(norv::${package_name} ALIAS ${name})
    set(map ${CMAKE_CURRENT_SOURCE_DIR}/${name}.map)
    set_target_properties(${name} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${NORV_SOVERSION}
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        EXPORT_NAME ${package_name}
        LINKER_LANGUAGE C
        LINK_DEPENDS ${map})
    target_compile_features(${name} PRIVATE cxx_std_20)
    target_compile_options(${name} PRIVATE
        -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-asynchronous-unwind-tables)
    target_compile_definitions(${name} PRIVATE _GNU_SOURCE)
    target_link_options(${name} PRIVATE -Wl,--version-script=${map})
    if(NOT NORV_SANITIZE)
        target_link_options(${name} PRIVATE -Wl,-z,defs)
    endif()
    target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:norv_warnings>)
    norv_harden(${name})
endfunction()

# norv_program(NAME SOURCES...): the tool, an example or a benchmark over the shared library, as programs are shipped.
function(norv_program name)
    add_executable(${name} ${ARGN})
    target_compile_features(${name} PRIVATE cxx_std_20 c_std_11)
    target_link_libraries(${name} PRIVATE norv_io_linux norv_warnings)
    norv_harden(${name})
endfunction()

# norv_overlays(PROGRAM SOURCE.dts...): compiles device-tree overlays into the build directory, for a program.
function(norv_overlays program)
    find_program(NORV_DTC dtc REQUIRED)
    foreach(source ${ARGN})
        get_filename_component(name ${source} NAME_WE)
        set(overlay ${CMAKE_CURRENT_BINARY_DIR}/${name}.dtbo)
        add_custom_command(OUTPUT ${overlay}
            COMMAND ${NORV_DTC} -@ -I dts -O dtb -o ${overlay} ${CMAKE_CURRENT_SOURCE_DIR}/${source}
            DEPENDS ${source} VERBATIM)
        target_sources(${program} PRIVATE ${overlay})
    endforeach()
endfunction()

if(NORV_SANITIZE)
    add_compile_options(-fsanitize=${NORV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${NORV_SANITIZE})
endif()
if(NORV_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
