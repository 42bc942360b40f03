# What a consumer gets: two shared libraries, the headers, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

set(TARNIS_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tarnis)

install(
    TARGETS tarnis StorageFramework
    EXPORT TarnisTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/include/Tarnis
              ${PROJECT_SOURCE_DIR}/framework/include/FileSystem
              ${PROJECT_SOURCE_DIR}/framework/include/Utilities
              ${PROJECT_BINARY_DIR}/src/include/Tarnis
              ${PROJECT_BINARY_DIR}/framework/include/FileSystem
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarnis
    FILES_MATCHING
    PATTERN "*.h")

install(
    EXPORT TarnisTargets
    NAMESPACE Tarnis::
    DESTINATION ${TARNIS_CMAKE_DIR})
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/TarnisConfig.cmake.in ${PROJECT_BINARY_DIR}/TarnisConfig.cmake
    INSTALL_DESTINATION ${TARNIS_CMAKE_DIR})
# Before 1.0 a minor version may break its users, so only the same one will do.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TarnisConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TarnisConfig.cmake
              ${PROJECT_BINARY_DIR}/TarnisConfigVersion.cmake DESTINATION ${TARNIS_CMAKE_DIR})

# Relative to the file itself, so that the installed tree can be moved.
file(RELATIVE_PATH TARNIS_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/tarnis.pc.in ${PROJECT_BINARY_DIR}/tarnis.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarnis.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
