# The Debian packages: one for each component of the installation. `packaging/build` makes them, in the preset
# `package`; `cpack` then does the work:
#   staging.cmake   before: completes the staged folders as Debian wants them
#   control.cmake   afterwards: completes the control files
# The revision and the maintainer stand in a changelog of Debian's form, and nowhere else.
set(KELSTDMT_DEBIAN_CHANGELOG ${PROJECT_SOURCE_DIR}/packaging/changelog CACHE FILEPATH
  "Changelog of the Debian packages")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${KELSTDMT_DEBIAN_CHANGELOG})
file(STRINGS ${KELSTDMT_DEBIAN_CHANGELOG} first LIMIT_COUNT 1)
string(REPLACE . [.] version ${PROJECT_VERSION})
if(NOT first MATCHES "^kelstdmt \\(${version}-([0-9A-Za-z.+~]+)\\) ")
  message(FATAL_ERROR "${KELSTDMT_DEBIAN_CHANGELOG}: the first entry is not about ${PROJECT_VERSION}: ${first}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_1})
file(STRINGS ${KELSTDMT_DEBIAN_CHANGELOG} signatures REGEX "^ -- ")
list(GET signatures 0 signature)
string(REGEX REPLACE "^ -- (.*>)  .*" "\\1" CPACK_PACKAGE_CONTACT "${signature}")

# debian_package(COMPONENT NAME SECTION DESCRIPTION FIELD VALUE...): FIELD is a name that CPack knows, as DEPENDS.
macro(debian_package component name section description)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
  set(fields ${ARGN})
  while(fields)
    list(POP_FRONT fields field value)
    set(CPACK_DEBIAN_${upper}_PACKAGE_${field} "${value}")
  endwhile()
endmacro()

# A library of one minor version does for all that was built with that version or an earlier one of the same.
math(EXPR next_minor "${PROJECT_VERSION_MINOR} + 1")
set(library "libkelstdmt0 (>= ${PROJECT_VERSION}), libkelstdmt0 (<< ${PROJECT_VERSION_MAJOR}.${next_minor}~)")
set(exact "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_COMPONENTS_ALL)
debian_package(library libkelstdmt0 libs
"runtime library of a component framework
Types that are declared in a few lines print, throw, count their references
and can be inspected by name. Around this core stand strings, streams with
three encodings, files and settings, processes and events, and servers that
clients find by name.

This package holds the library, and the name server as a library.")
debian_package(development libkelstdmt-dev libdevel
"runtime library of a component framework: development files
Headers, and the descriptions of the library for CMake and pkg-config. The
documentation is in /usr/share/doc/libkelstdmt-dev."
  DEPENDS "libkelstdmt0 (= ${exact})")
debian_package(tools kelstdmt-tools utils
"files, settings, monitor files and servers from the command line
The program kel copies and sums files, shows and changes the registry and
configuration files, follows what programs publish in monitor files, asks
name servers and the servers that they know, and runs commands on other
machines."
  DEPENDS "${library}" SUGGESTS "kelnmsd, kelrshd, bash-completion")
debian_package(kelnmsd kelnmsd net
"name server of a host
Servers register with it a record of named texts, by which clients of this
and other machines find them. The records outlive the server in a journal.

It listens on port 1239 of all addresses. Everybody may ask; only programs of
the same machine may register and remove."
  DEPENDS "${library}" SUGGESTS kelstdmt-tools)
debian_package(kelrshd kelrshd net
"remote-shell server of a host
It runs the commands that clients of this machine send, and those of other
machines that have a place on its list, as a user made for it.

Nothing that travels is encrypted or authenticated: across a network it
belongs behind a tunnel."
  DEPENDS "${library}" RECOMMENDS kelnmsd SUGGESTS kelstdmt-tools)

# Both daemons enter, start and leave their units alike.
foreach(DAEMON kelnmsd kelrshd)
  string(TOUPPER ${DAEMON} upper)
  foreach(script postinst prerm postrm)
    set(file ${PROJECT_BINARY_DIR}/packaging/${DAEMON}/${script})
    configure_file(${PROJECT_SOURCE_DIR}/packaging/daemon.${script}.in ${file} @ONLY)
    list(APPEND CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${file})
  endforeach()
endforeach()
# What programs that are built with the library shall depend on, and what makes the loader see it.
file(WRITE ${PROJECT_BINARY_DIR}/packaging/libkelstdmt0/shlibs
  "libkelstdmt 0 ${library}\nlibkelstdmt_nameserver 0 ${library}\n")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/libkelstdmt0/triggers "activate-noawait ldconfig\n")
set(CPACK_KELSTDMT_LIBRARY_CONTROL ${PROJECT_BINARY_DIR}/packaging/libkelstdmt0)
set(CPACK_KELSTDMT_CHANGELOG ${KELSTDMT_DEBIAN_CHANGELOG})

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_DEBIAN_PACKAGE_SOURCE kelstdmt)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/nameserver)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/staging.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/control.cmake)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
