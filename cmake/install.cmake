# What `cmake --install` puts in place: headers, library, tool, and the descriptions by which other projects find the
# library with find_package(corvane) or pkg-config. An installation may be moved as a whole.
include(CMakePackageConfigHelpers)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/corvane)

install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN *.h PATTERN *.hpp)
install(TARGETS qx EXPORT corvaneTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(CORVANE_BUILD_TOOL)
  install(TARGETS qx_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(EXPORT corvaneTargets NAMESPACE corvane:: DESTINATION ${packageDir})

configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/corvaneConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/cmake/corvaneConfig.cmake INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/cmake/corvaneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/cmake/corvaneConfig.cmake ${CMAKE_BINARY_DIR}/cmake/corvaneConfigVersion.cmake
        DESTINATION ${packageDir})

file(RELATIVE_PATH pcToPrefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_SOURCE_DIR}/cmake/qx.pc.in ${CMAKE_BINARY_DIR}/cmake/qx.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/cmake/qx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
