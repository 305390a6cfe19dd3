# The Debian packages, by CPack: libhttppool1, libhttppool-dev and httppool-tools.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME httppool)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package has a description of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "httpPool maintainers <maintainers@httppool.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE httppool)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libhttppool1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
"HTTP requests as named tasks in named pools
httpPool runs the HTTP requests of a desktop application as named tasks in
named pools, and calls the application back to look at them. GTK and Qt
applications use it with their own event loops.

This package has the two shared libraries, and the panel that puts
untrusted servers to the user.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libhttppool-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libhttppool1 (= ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"HTTP requests as named tasks in named pools - development files
httpPool runs the HTTP requests of a desktop application as named tasks in
named pools, and calls the application back to look at them.

This package has the headers for C and C++, the files for CMake and
pkg-config, and the documentation.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME httppool-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION web)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"HTTP requests as named tasks in named pools - command-line tool
httppool runs HTTP requests side by side on the command line, from a job
file or one by one, with the library httpPool.

This package has the program and the library's reference trace plug-in.")

# Works on what CPack has installed into its folder, just before it is packed. What it finds out about a package
# goes into these files, which are made by it.
set(HTTPPOOL_CONTROL_FOLDER ${PROJECT_BINARY_DIR}/package-control)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  ${HTTPPOOL_CONTROL_FOLDER}/shlibs ${HTTPPOOL_CONTROL_FOLDER}/symbols
  ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/finish.cmake)
set(CPACK_HTTPPOOL_CONTROL_FOLDER ${HTTPPOOL_CONTROL_FOLDER})
set(CPACK_HTTPPOOL_DEBIAN_FOLDER ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_HTTPPOOL_CHANGELOG ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
set(CPACK_HTTPPOOL_LIBRARY_FOLDER ${CMAKE_INSTALL_LIBDIR})
include(CPack)
