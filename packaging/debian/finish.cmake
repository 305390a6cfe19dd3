# Makes Debian packages of what has been installed for them. Run by CPack, between installing and packing, once for all
# packages: each is a folder of CPACK_TEMPORARY_DIRECTORY, named after its component. What is set here is seen by
# CPack when it packs.

set(stage ${CPACK_TEMPORARY_DIRECTORY})
set(debian ${CPACK_HTTPPOOL_DEBIAN_FOLDER})
set(control ${CPACK_HTTPPOOL_CONTROL_FOLDER})
set(library_package ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME})
set(libraries library/usr/${CPACK_HTTPPOOL_LIBRARY_FOLDER})
file(REMOVE_RECURSE ${control})
file(MAKE_DIRECTORY ${control})

execute_process(COMMAND dpkg-architecture -qDEB_HOST_MULTIARCH
  OUTPUT_VARIABLE architecture OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
if(NOT CPACK_HTTPPOOL_LIBRARY_FOLDER STREQUAL lib/${architecture})
  message(FATAL_ERROR "The packages need libraries in lib/${architecture}, not ${CPACK_HTTPPOOL_LIBRARY_FOLDER}: "
    "configure with -U CMAKE_INSTALL_LIBDIR.")
endif()

# Debian's libraries are where the loader looks anyway, and what is left of the build is of no use.
file(GLOB programs ${stage}/tools/usr/bin/* ${stage}/library/usr/libexec/zep/*)
file(GLOB images ${stage}/${libraries}/*.so.*.*.* ${stage}/tools/usr/${CPACK_HTTPPOOL_LIBRARY_FOLDER}/httppool/*)
foreach(file IN LISTS programs images)
  file(RPATH_REMOVE FILE ${file})
  execute_process(COMMAND strip --strip-unneeded --remove-section=.comment ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

# Where pkg-config looks by itself the prefix is as always; it puts the root of another system before it.
file(GLOB configurations ${stage}/development/usr/${CPACK_HTTPPOOL_LIBRARY_FOLDER}/pkgconfig/*.pc)
foreach(file IN LISTS configurations)
  file(READ ${file} text)
  string(REGEX REPLACE "^prefix=[^\n]*" "prefix=/usr" text "${text}")
  file(WRITE ${file} "${text}")
endforeach()

function(compress)
  execute_process(COMMAND gzip -9n ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(GLOB_RECURSE pages ${stage}/*/usr/share/man/*.1)
compress(${pages})
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(documents ${stage}/${component}/usr/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  file(MAKE_DIRECTORY ${documents})
  file(REMOVE ${documents}/CHANGELOG.md)
  configure_file(${CPACK_HTTPPOOL_CHANGELOG} ${documents}/changelog COPYONLY)
  configure_file(${debian}/changelog ${documents}/changelog.Debian COPYONLY)
  configure_file(${debian}/copyright ${documents}/copyright COPYONLY)
  compress(${documents}/changelog ${documents}/changelog.Debian)
endforeach()

# Whatever the builder lets others do with new files.
execute_process(COMMAND chmod -R u=rwX,go=rX ${stage} COMMAND_ERROR_IS_FATAL ANY)

# The tools of dpkg want to see a source package and the packages' control data.
set(work ${control}/source)
set(sources "Source: httppool\n")
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  string(APPEND sources "\nPackage: ${CPACK_DEBIAN_${upper}_PACKAGE_NAME}\nArchitecture: any\n")
  file(MAKE_DIRECTORY ${stage}/${component}/DEBIAN)
endforeach()
file(WRITE ${work}/debian/control ${sources})

function(dpkg_tool)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${work} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  set(output "${output}" PARENT_SCOPE)
endfunction()

# What programs that are linked with the libraries will depend on. A version of symbols that is missing in the list, or
# from the libraries, is an error.
file(GLOB sonames RELATIVE ${stage}/${libraries} ${stage}/${libraries}/*.so.1)
foreach(soname IN LISTS sonames)
  string(REGEX REPLACE "\\.so\\." " " name_and_version ${soname})
  file(APPEND ${control}/shlibs "${name_and_version} ${library_package} (>= ${CPACK_PACKAGE_VERSION})\n")
endforeach()
list(TRANSFORM sonames PREPEND -e${stage}/${libraries}/)
dpkg_tool(dpkg-gensymbols -q -c4 -p${library_package} -v${CPACK_PACKAGE_VERSION} -I${debian}/${library_package}.symbols
  -P${stage}/library -O${control}/symbols ${sonames})
file(COPY ${control}/shlibs ${control}/symbols DESTINATION ${stage}/library/DEBIAN)

# What the packages depend on, by the libraries that their programs are linked with.
file(GLOB_RECURSE library_images ${stage}/library/usr/libexec/* ${stage}/${libraries}/*.so.*.*.*)
file(GLOB_RECURSE tools_images ${stage}/tools/usr/bin/* ${stage}/tools/usr/lib/*.dylib)
foreach(component library tools)
  string(TOUPPER ${component} upper)
  dpkg_tool(dpkg-shlibdeps -O -S${stage}/library -l${stage}/${libraries}
    -x${CPACK_DEBIAN_${upper}_PACKAGE_NAME} ${${component}_images})
  string(REGEX REPLACE "^.*shlibs:Depends=([^\n]*).*$" "\\1" CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${output}")
endforeach()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  file(REMOVE_RECURSE ${stage}/${component}/DEBIAN)
endforeach()
file(REMOVE_RECURSE ${work})
