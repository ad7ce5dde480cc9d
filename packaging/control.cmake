# Run by cpack with the packages made: what their control files need and CPack does not give them. Its own scripts for
# the library would call ldconfig, which is a matter of a trigger.
foreach(package ${CPACK_PACKAGE_FILES})
  set(work ${CPACK_TEMPORARY_DIRECTORY}/control)
  file(REMOVE_RECURSE ${work})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${work} COMMAND_ERROR_IS_FATAL ANY)
  set(shared foreign)
  if(package MATCHES "/libkelstdmt[^/]*$")
    set(shared same)
  endif()
  file(READ ${work}/DEBIAN/control control)
  string(REPLACE "\nPackage:" "\nMulti-Arch: ${shared}\nPackage:" control "${control}")
  file(WRITE ${work}/DEBIAN/control "${control}")
  if(package MATCHES "/libkelstdmt0_[^/]*$")
    file(REMOVE ${work}/DEBIAN/postinst ${work}/DEBIAN/postrm)
    file(COPY ${CPACK_KELSTDMT_LIBRARY_CONTROL}/ DESTINATION ${work}/DEBIAN
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${work} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${work})
endforeach()
