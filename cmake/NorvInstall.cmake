# What `cmake --install` brings to a board's or a developer's file system besides the libraries and headers: the CMake
# package `norv_io_linux` and a pkg-config file for each library and for the C++ headers.
include(CMakePackageConfigHelpers)

set(norv_package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/norv_io_linux)
# Nothing has to be found or set first, so the exported targets are the whole package.
install(EXPORT norv_io_linux NAMESPACE norv::
    FILE norv_io_linux-config.cmake DESTINATION ${norv_package_directory})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/norv_io_linux-config-version.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/norv_io_linux-config-version.cmake
    DESTINATION ${norv_package_directory})

# norv_pkg_config(NAME): NAME.pc.
function(norv_pkg_config name)
    set(file ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc)
    install(CODE "
        set(PROJECT_VERSION ${PROJECT_VERSION})
        set(CMAKE_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR})
        set(CMAKE_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
        set(template ${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in)
        set(file ${file})
        include(${PROJECT_SOURCE_DIR}/cmake/write_pkg_config.cmake)")
    install(FILES ${file} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

norv_pkg_config(norv_base)
norv_pkg_config(norv_cpp)
norv_pkg_config(norv_io_linux)
