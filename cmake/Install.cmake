# What is installed beside the programs and libraries: what others need to build with them, and the documentation.
include(CMakePackageConfigHelpers)

# The public headers, and no other one of the project's.
file(GLOB cpp_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/httpPool/cpp/*.hpp)
file(GLOB cpp_header CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/httpPool/httpPool.hpp)
install(FILES ${PROJECT_SOURCE_DIR}/foundation/ZEP_Foundation.h
  DESTINATION ${HTTPPOOL_INSTALL_HEADERDIR}/foundation COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/httpPool/ZEP_HttpPool.h ${cpp_header}
  DESTINATION ${HTTPPOOL_INSTALL_HEADERDIR}/httpPool COMPONENT development)
install(FILES ${cpp_headers} DESTINATION ${HTTPPOOL_INSTALL_HEADERDIR}/httpPool/cpp COMPONENT development)

# find_package(httpPool CONFIG)
install(EXPORT httpPoolTargets NAMESPACE httpPool::
  DESTINATION ${HTTPPOOL_INSTALL_CMAKEDIR} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/httpPoolConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/httpPoolConfig.cmake ${PROJECT_BINARY_DIR}/httpPoolConfigVersion.cmake
  DESTINATION ${HTTPPOOL_INSTALL_CMAKEDIR} COMPONENT development)

# pkg-config. The prefix is told from the file's own place, so that everything may be moved together.
file(RELATIVE_PATH prefix_from_pc
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
foreach(name httpPool zepfoundation)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

# The reference trace plug-in, for a host to put where its library looks for one.
if(TARGET qlxtrace)
  install(TARGETS qlxtrace LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/httppool COMPONENT tools)
endif()

install(FILES ${PROJECT_SOURCE_DIR}/docs/man/httppool.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/zep-trust-panel.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT library)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion/httppool
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion/_httppool
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)

# What a user of the library reads; behaviour.md is for those who change it.
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${HTTPPOOL_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${HTTPPOOL_INSTALL_DOCDIR}/docs COMPONENT development
  PATTERN man EXCLUDE
  PATTERN behaviour.md EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${HTTPPOOL_INSTALL_DOCDIR}/examples
  COMPONENT development)
