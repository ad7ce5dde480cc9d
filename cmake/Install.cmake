# What an installation holds: the public headers, the two libraries, and their descriptions for CMake and
# pkg-config. The folders of the programs install those.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kelstdmt)

install(TARGETS kelstdmt kelstdmt_nameserver EXPORT kelstdmtTargets)
install(DIRECTORY include/kelstdmt DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT kelstdmtTargets NAMESPACE kelstdmt:: DESTINATION ${package_dir})

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
  install(FILES tools/gdb/kelstdmt-gdb.py DESTINATION "${CMAKE_INSTALL_DATADIR}/gdb/auto-load/${libdir}" RENAME ${printers})
endif()

install(FILES tools/wireshark/kelstdmt.lua DESTINATION ${CMAKE_INSTALL_DATADIR}/kelstdmt/wireshark)

install(FILES ${PROJECT_BINARY_DIR}/kelstdmtConfig.cmake ${PROJECT_BINARY_DIR}/kelstdmtConfigVersion.cmake
  DESTINATION ${package_dir})

# The .pc file finds its prefix from where it lies, so an installed tree may be moved.
file(RELATIVE_PATH KELSTDMT_PC_TO_PREFIX
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
if(KELSTDMT_STATIC)
  set(KELSTDMT_PC_CFLAGS "-DKELSTDMT_STATIC")
  set(KELSTDMT_PC_LIBS "-lstdc++ -lm -pthread")
endif()
foreach(package kelstdmt kelstdmt-nameserver)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/kelstdmt.pc ${PROJECT_BINARY_DIR}/kelstdmt-nameserver.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
