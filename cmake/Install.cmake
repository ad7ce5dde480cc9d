# What an installation holds: the public headers, the two libraries, their descriptions for CMake and pkg-config, and
# the manual pages. The folders of the programs install those. Its components, each of which is a Debian package
# (packaging/): library, development, tools, kelnmsd, kelrshd.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kelstdmt)

install(TARGETS kelstdmt kelstdmt_nameserver EXPORT kelstdmtTargets
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(DIRECTORY include/kelstdmt DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
install(EXPORT kelstdmtTargets NAMESPACE kelstdmt:: DESTINATION ${package_dir} COMPONENT development)

configure_package_config_file(cmake/kelstdmtConfig.cmake.in ${PROJECT_BINARY_DIR}/kelstdmtConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelstdmtConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
# The printers lie where GDB looks for what belongs to this library, once installed and once beside it in the build tree.
# The folder has the prefix in it that is known when it is installed.
if(NOT KELSTDMT_STATIC)
  set(printers libkelstdmt.so.${PROJECT_VERSION}-gdb.py)
  configure_file(tools/gdb/kelstdmt-gdb.py ${PROJECT_BINARY_DIR}/${printers} COPYONLY)
  set(libdir ${CMAKE_INSTALL_LIBDIR})
  if(NOT IS_ABSOLUTE "${libdir}")
    set(libdir "\${CMAKE_INSTALL_PREFIX}/${libdir}")
  endif()
  install(FILES tools/gdb/kelstdmt-gdb.py DESTINATION "${CMAKE_INSTALL_DATADIR}/gdb/auto-load/${libdir}" RENAME ${printers}
    COMPONENT development)
endif()

install(FILES tools/wireshark/kelstdmt.lua DESTINATION ${CMAKE_INSTALL_DATADIR}/kelstdmt/wireshark COMPONENT development)

install(FILES ${PROJECT_BINARY_DIR}/kelstdmtConfig.cmake ${PROJECT_BINARY_DIR}/kelstdmtConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

# The .pc file finds its prefix from where it lies, so an installed tree may be moved; folders that are not below the
# prefix are told from there, too.
file(RELATIVE_PATH KELSTDMT_PC_TO_PREFIX
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH KELSTDMT_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH KELSTDMT_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
if(KELSTDMT_STATIC)
  set(KELSTDMT_PC_CFLAGS "-DKELSTDMT_STATIC")
  set(KELSTDMT_PC_LIBS "-lstdc++ -lm -pthread")
endif()
foreach(package kelstdmt kelstdmt-nameserver)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/kelstdmt.pc ${PROJECT_BINARY_DIR}/kelstdmt-nameserver.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# kelstdmt_install_pages(COMPONENT PAGE...): pages of doc/man/ with the programs that they are about.
function(kelstdmt_install_pages component)
  foreach(page ${ARGN})
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${PROJECT_SOURCE_DIR}/doc/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
      COMPONENT ${component})
  endforeach()
endfunction()
