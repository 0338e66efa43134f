# What a product needs to link the module, and the standalone host beside it.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kvfile)

# Relative, so that the installed folder can be moved.
file(RELATIVE_PATH includedir_from_libdir ${CMAKE_INSTALL_FULL_LIBDIR}
  ${CMAKE_INSTALL_FULL_INCLUDEDIR})
function(kvf_install_pkgconfig package)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc
    @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

install(TARGETS kvfile kvfile_static kvfile_headers EXPORT kvfileTargets)
install(EXPORT kvfileTargets NAMESPACE kvfile:: DESTINATION ${package_folder})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kvfile DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  PATTERN kvhost.h EXCLUDE)
kvf_install_pkgconfig(kvfile)
kvf_install_pkgconfig(kvfile-static)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kvfileConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kvfileConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kvfileConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kvfileConfig.cmake
  ${PROJECT_BINARY_DIR}/kvfileConfigVersion.cmake DESTINATION ${package_folder})

if(KVFILE_STANDALONE)
  install(TARGETS kvfile_standalone EXPORT kvfileStandaloneTargets)
  install(EXPORT kvfileStandaloneTargets NAMESPACE kvfile:: DESTINATION ${package_folder})
  install(FILES ${PROJECT_SOURCE_DIR}/include/kvfile/kvhost.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvfile)
  kvf_install_pkgconfig(kvfile_standalone)
endif()
if(KVFILE_SHELL)
  install(TARGETS kvf)
endif()
