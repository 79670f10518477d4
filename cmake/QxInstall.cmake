# What `cmake --install` puts where. Libraries, catalogues and tools install themselves beside their targets; here is what
# belongs to none of them: headers' companions for consumers, directories for records, and what a user must know.
include(CMakePackageConfigHelpers)

# pkg-config: the files name the prefix by where they lie, so that an installed tree can be moved.
function(qx_install_pkg_config name)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" OUTPUT_VARIABLE QX_LIBDIR)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}"
    OUTPUT_VARIABLE QX_INCLUDEDIR)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig"
    OUTPUT_VARIABLE QX_UP_TO_PREFIX)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/install/${name}.pc.in" "${PROJECT_BINARY_DIR}/install/${name}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/install/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT development)
endfunction()

qx_install_pkg_config(qx_vosk)
qx_install_pkg_config(qx_cu)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/qx_vosk")
install(EXPORT qx_voskTargets NAMESPACE qx_vosk:: DESTINATION "${package_dir}" COMPONENT development)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/install/qx_voskConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/install/qx_voskConfig.cmake" INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/install/qx_voskConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/install/qx_voskConfig.cmake"
  "${PROJECT_BINARY_DIR}/install/qx_voskConfigVersion.cmake" DESTINATION "${package_dir}" COMPONENT development)

# The directories for records: made at boot, and by the installation itself on the running system.
install(FILES "${PROJECT_SOURCE_DIR}/cmake/install/qx_vosk.conf" DESTINATION lib/tmpfiles.d COMPONENT runtime)
install(FILES "${PROJECT_SOURCE_DIR}/examples/record_to_stack.c" "${PROJECT_SOURCE_DIR}/examples/record_to_log.c"
  "${PROJECT_SOURCE_DIR}/examples/refer_to_cause.c"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/qx_vosk/examples" COMPONENT development)
# The documents for those who run or link services; docs/proof.md is about this tree.
foreach(document IN ITEMS abi central-logs containers keeping reclamation services shell)
  install(FILES "${PROJECT_SOURCE_DIR}/docs/${document}.md" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/qx_vosk"
    COMPONENT development)
endforeach()
install(CODE "set(QX_LOCALEDIR \"${CMAKE_INSTALL_LOCALEDIR}\")" COMPONENT runtime)
install(SCRIPT "${PROJECT_SOURCE_DIR}/cmake/install/after_install.cmake" COMPONENT runtime)

# Manual pages of every section that there are.
file(GLOB man_pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/man/*.[1357]")
foreach(page IN LISTS man_pages)
  cmake_path(GET page EXTENSION LAST_ONLY section)
  string(SUBSTRING "${section}" 1 1 section)
  set(component development)
  if(section MATCHES "[15]")
    set(component tools)
  endif()
  install(FILES "${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}" COMPONENT ${component})
endforeach()
