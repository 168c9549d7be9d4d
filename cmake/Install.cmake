# The destinations of `cmake --install` and `cpack`: the libraries with their headers, the CMake
# package and the pkg-config file (component "development"), and the program with its manual and
# completions (component "program", in apps/qxuploader).
include(CMakePackageConfigHelpers)

set(QX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QXAwsUploader)

set(installed_libraries qx_testing)
set_target_properties(qx_testing PROPERTIES EXPORT_NAME testing)
if(BUILD_SHARED_LIBS)
  list(APPEND installed_libraries qxawsuploader)
else()
  foreach(part IN LISTS parts)
    list(APPEND installed_libraries qx_${part})
    set_target_properties(qx_${part} PROPERTIES EXPORT_NAME ${part})
  endforeach()
endif()
install(TARGETS ${installed_libraries} EXPORT QXAwsUploaderTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(EXPORT QXAwsUploaderTargets NAMESPACE qx:: DESTINATION ${QX_PACKAGE_DIR}
  COMPONENT development)

install(DIRECTORY ${QX_PUBLIC_INCLUDE_DIR}/qxawsuploader
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

configure_package_config_file(cmake/QXAwsUploaderConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QXAwsUploaderConfig.cmake INSTALL_DESTINATION ${QX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QXAwsUploaderConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QXAwsUploaderConfig.cmake
  ${PROJECT_BINARY_DIR}/QXAwsUploaderConfigVersion.cmake
  DESTINATION ${QX_PACKAGE_DIR} COMPONENT development)

# Two .deb packages. The dependencies of the program are read from the libraries that it is linked
# with. Those of the static libraries are the packages that a program linked with them needs.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qxawsuploader)
set(CPACK_PACKAGE_VENDOR "The QXAwsUploader developers")
set(CPACK_PACKAGE_CONTACT "The QXAwsUploader developers <developers@qxawsuploader.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Moves files to and from an object store with an application's short-lived credentials")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_COMPONENTS_ALL program development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME qxuploader)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqxawsuploader-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
string(JOIN ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libcurl4-openssl-dev (>= 7.88)"
  "libssl-dev (>= 3)" libplist-dev libjpeg-dev libpng-dev libwebp-dev "libtiff-dev (>= 4.5)")
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION "The command-line host qxuploader.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "The static libraries with their headers.")
# Each package has its copyright file at the place where Debian looks for it.
install(FILES packaging/deb/copyright
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libqxawsuploader-dev COMPONENT development)
if(TARGET qxuploader)
  install(FILES packaging/deb/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qxuploader COMPONENT program)
endif()
if(TARGET qx_platform_linux)
  if(BUILD_SHARED_LIBS)
    set(QX_PC_REQUIRES "")
    set(QX_PC_LIBS -lqxawsuploader)
  else()
    # A program that links the static libraries links what they need, too.
    set(QX_PC_REQUIRES "libcurl libplist-2.0 libjpeg libpng libwebp libtiff-4 libcrypto")
    set(QX_PC_LIBS "-lqx_platform_linux -lqx_core")
  endif()
  file(RELATIVE_PATH QX_PREFIX_FROM_PC /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  configure_file(cmake/qxawsuploader.pc.in ${PROJECT_BINARY_DIR}/qxawsuploader.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/qxawsuploader.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endif()

include(CPack)
