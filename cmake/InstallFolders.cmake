# Where things are installed, under any prefix.

# Debian has its libraries in a folder for each architecture. That place is kept under every prefix, so that the
# packages can be made of any build.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE AND NOT DEFINED CMAKE_INSTALL_LIBDIR)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Folder of the libraries")
endif()
include(GNUInstallDirs)

# Headers are included as <httpPool/...> and <foundation/...>: from a folder that is the project's own.
set(HTTPPOOL_INSTALL_HEADERDIR ${CMAKE_INSTALL_INCLUDEDIR}/httppool)
set(HTTPPOOL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/httpPool)
# As Debian names it, after the package that has the documents.
set(HTTPPOOL_INSTALL_DOCDIR ${CMAKE_INSTALL_DATADIR}/doc/libhttppool-dev)

# The components are the Debian packages: "library", "development" and "tools".
function(install_library target)
  install(TARGETS ${target} EXPORT httpPoolTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
endfunction()
