# cmake --install: the library, its headers, the program with its manual page and bash completion, and what other builds
# need to find them: a CMake package (find_package(YInet), target YInet::yinet) and a pkg-config file (yinet).
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/YInet)

install(TARGETS yinet EXPORT YInetTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS yinet_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_BINARY_DIR}/yinet.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/src/cli/completion.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME yinet)
install(EXPORT YInetTargets NAMESPACE YInet:: DESTINATION ${package_dir})

# The targets file is all that the package needs: users see no dependency of the library.
file(WRITE ${PROJECT_BINARY_DIR}/YInetConfig.cmake "include(\"\${CMAKE_CURRENT_LIST_DIR}/YInetTargets.cmake\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/YInetConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/YInetConfig.cmake ${PROJECT_BINARY_DIR}/YInetConfigVersion.cmake
  DESTINATION ${package_dir})

# Relative to the file itself, so that an installed tree can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig OUTPUT_VARIABLE up_to_prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/yinet.pc.in ${PROJECT_BINARY_DIR}/yinet.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/yinet.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
