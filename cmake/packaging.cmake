# The Debian package: `cmake --build build --target package` writes parcelwise_<version>_<arch>.deb.
# What the executable links is found by dpkg-shlibdeps when it is there; otherwise the package of
# each linked Qt library is asked from dpkg, so the list follows the libraries actually linked.
# The drivers are loaded at run time and never linked, so they are named here.

set(PARCELWISE_RUNTIME_DEPENDS "libqt6sql6-sqlite, libqt6sql6-odbc, unixodbc, tdsodbc")

find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
find_program(DPKG dpkg)
set(linked_depends "")
if(NOT DPKG_SHLIBDEPS AND DPKG)
  foreach(lib Core Gui Widgets Sql)
    get_target_property(location Qt6::${lib} IMPORTED_LOCATION_RELEASE)
    if(NOT location)
      get_target_property(location Qt6::${lib} LOCATION)
    endif()
    file(REAL_PATH "${location}" location)
    execute_process(COMMAND ${DPKG} -S "${location}" OUTPUT_VARIABLE owner ERROR_QUIET
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    string(REGEX REPLACE "[:,].*" "" owner "${owner}")
    if(owner)
      list(APPEND linked_depends "${owner} (>= ${Qt6_VERSION_MAJOR}.${Qt6_VERSION_MINOR})")
    endif()
  endforeach()
  list(JOIN linked_depends ", " linked_depends)
  set(PARCELWISE_RUNTIME_DEPENDS "${linked_depends}, ${PARCELWISE_RUNTIME_DEPENDS}")
endif()

# Full RELRO: the dynamic linker resolves every symbol at start-up, then the table is read-only.
target_link_options(parcelwise PRIVATE "LINKER:-z,relro,-z,now")

# /usr/share/doc/parcelwise: the licence in Debian's machine-readable copyright format, the
# changelog compressed as Debian wants it (-n: no time stamp, the same bytes every build), the
# README and the SQL Server notes it links to.
set(PARCELWISE_DOCDIR ${CMAKE_INSTALL_DATADIR}/doc/parcelwise)
install(FILES cmake/debian/copyright README.md DESTINATION ${PARCELWISE_DOCDIR})
install(FILES docs/sqlserver.md DESTINATION ${PARCELWISE_DOCDIR}/docs)
if(GZIP)
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
                     COMMAND ${GZIP} -9 -n -c ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/changelog > changelog.gz
                     DEPENDS cmake/debian/changelog VERBATIM)
  add_custom_target(changelog ALL DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz DESTINATION ${PARCELWISE_DOCDIR})
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME parcelwise)
set(CPACK_PACKAGE_VENDOR zarnivo)
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_CURRENT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_CONTACT "zarnivo Parcelwise <parcelwise@zarnivo.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Copies folders and documents out of a document repository onto disk")
# CPack puts the summary first; this is the paragraph below it, one line each (lintian wants
# lines within 80 characters and CPack does not wrap them).
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION [=[Signs in to a SQL Server document repository, shows its folder tree and
writes the ticked folders and their documents to disk, from a window or
from the command line. Licensed under the MIT licence.]=])
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "${PARCELWISE_RUNTIME_DEPENDS}")
if(DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_COMPRESSION_TYPE gzip)
include(CPack)
