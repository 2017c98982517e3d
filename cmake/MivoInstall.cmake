# SPDX-License-Identifier: Apache-2.0
# What a package of the library holds: the shared library, the headers of the public interface, and the files by
# which CMake and pkg-config find them. All are relocatable.

include(CMakePackageConfigHelpers)

install(TARGETS mivo EXPORT mivoTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)

# Definitions (*Impl.hpp, *_impl.hpp) and the headers named by mivo_internal_headers() stay out. The workers of the
# kernel families, which run on a space that a caller makes, are part of the interface.
get_property(internal_headers GLOBAL PROPERTY MIVO_INTERNAL_HEADERS)
set(exclusions "")
foreach(header IN LISTS internal_headers)
  list(APPEND exclusions PATTERN "${header}" EXCLUDE)
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/mivo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.hpp" PATTERN "*Impl.hpp" EXCLUDE PATTERN "*_impl.hpp" EXCLUDE PATTERN "mpi_stub" EXCLUDE ${exclusions})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/mivo/ops DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mivo COMPONENT development
  FILES_MATCHING PATTERN "*Impl.hpp" ${exclusions})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mivo)
install(EXPORT mivoTargets NAMESPACE mivo:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/mivoConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/mivoConfig.cmake INSTALL_DESTINATION ${package_dir})
# Before version 1.0 each minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/mivoConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/mivoConfig.cmake
  ${PROJECT_BINARY_DIR}/package/mivoConfigVersion.cmake ${PROJECT_SOURCE_DIR}/cmake/MivoMpi.cmake
  DESTINATION ${package_dir} COMPONENT development)

file(RELATIVE_PATH MIVO_PC_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
foreach(name mivo mivo-mpi)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
