# What a product needs to link the module, and the standalone host beside it.
include(GNUInstallDirs)

set(header_folder ${CMAKE_INSTALL_INCLUDEDIR}/kvfile)
install(TARGETS kvfile kvfile_shared kvfile_standalone kvf)
file(GLOB platform_header_files ${PROJECT_SOURCE_DIR}/src/*.h)
install(FILES ${platform_header_files} ${PROJECT_SOURCE_DIR}/standalone/kvhost.h
  DESTINATION ${header_folder})
install(FILES ${PROJECT_SOURCE_DIR}/src/kvfile/kvfile.h
  ${PROJECT_SOURCE_DIR}/src/kvfile/action_table.def
  DESTINATION ${header_folder}/kvfile)

# Relative, so that the installed folder can be moved.
file(RELATIVE_PATH includedir_from_libdir ${CMAKE_INSTALL_FULL_LIBDIR}
  ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(package kvfile kvfile_standalone)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc
    @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
