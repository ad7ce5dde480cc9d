# document(NAME FILE): the pieces of code in a page, compiled and run. Pieces of one language, one behind the other,
# are a program, and the pieces of text (```text) behind them what it prints; without such it is not run by itself.
#
#   ```cpp  ```c     a program called NAME; with a word behind the language, called by that word
#   ```python        a script that finds examples/python
#   ```cmake         a file for other tests
#   ```sh            a script in an empty folder that finds the page's programs, kel and the daemons; left out where
#                    those are not built
#
# The programs are built by a test, so a slip in a page is a test that fails and not a build that stops.
set(document_runs ${CMAKE_CURRENT_LIST_DIR}/prints.sh)
set(document_shell ${CMAKE_CURRENT_LIST_DIR}/in_shell.sh)

function(document name file)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  file(READ ${file} rest)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/${name})
  set(programs)
  set(last)
  while(rest MATCHES "(^|\n)```")
    string(REGEX MATCH "(^|\n)```[^\n]*\n" fence "${rest}")
    string(STRIP "${fence}" info)
    string(SUBSTRING "${info}" 3 -1 info)
    string(FIND "${rest}" "${fence}" begin)
    string(LENGTH "${fence}" length)
    math(EXPR begin "${begin} + ${length}")
    string(SUBSTRING "${rest}" ${begin} -1 rest)
    string(FIND "${rest}" "```" end)
    string(SUBSTRING "${rest}" 0 ${end} piece)
    math(EXPR end "${end} + 3")
    string(SUBSTRING "${rest}" ${end} -1 rest)
    if(info MATCHES "^(cpp|c|python|sh|cmake)( ([a-z_]+))?$")
      set(last ${CMAKE_MATCH_3}.${CMAKE_MATCH_1})
      string(REGEX REPLACE "^[.]" "${name}." last ${last})
      list(APPEND programs ${last})
      string(APPEND ${last}_code "${piece}")
    elseif(info STREQUAL "text" AND last)
      string(APPEND ${last}_text "${piece}")
    endif()
  endwhile()
  if(NOT programs)
    message(FATAL_ERROR "${file} has no code")
  endif()
  list(REMOVE_DUPLICATES programs)

  set(built)
  foreach(program ${programs})
    file(GENERATE OUTPUT ${folder}/${program} CONTENT "${${program}_code}")
    file(GENERATE OUTPUT ${folder}/${program}.text CONTENT "${${program}_text}")
    get_filename_component(word ${program} NAME_WE)
    set(target doc_${name}_${word})
    set(command)
    if(program MATCHES "[.](cpp|c)$")
      add_executable(${target} EXCLUDE_FROM_ALL ${folder}/${program})
      set_target_properties(${target} PROPERTIES OUTPUT_NAME ${word} RUNTIME_OUTPUT_DIRECTORY ${folder})
      target_link_libraries(${target} PRIVATE kelstdmt kelstdmt_own kelstdmt_nameserver)
      list(APPEND built ${target})
      set(command ${document_runs} $<TARGET_FILE:${target}> ${folder}/${program}.text)
    elseif(program MATCHES "[.]sh$" AND TARGET kel)
      set(command ${document_runs} ${document_shell} ${folder}/${program}.text ${folder}/${program} ${folder}
        $<TARGET_FILE_DIR:kel> $<TARGET_FILE_DIR:kelnmsd> $<TARGET_FILE_DIR:kelrshd>)
    elseif(program MATCHES "[.]python$" AND KELSTDMT_PYTHON AND NOT KELSTDMT_SANITIZE AND NOT KELSTDMT_STATIC AND
           CMAKE_SIZEOF_VOID_P EQUAL 8)
      set(command ${CMAKE_COMMAND} -E env PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=${PROJECT_SOURCE_DIR}/examples/python
        KELSTDMT_LIBRARY=$<TARGET_FILE:kelstdmt>
        ${document_runs} ${KELSTDMT_PYTHON} ${folder}/${program}.text ${folder}/${program})
    endif()
    if(command AND ${program}_text)
      string(REGEX REPLACE "^${name}[.]" "" word ${program})
      kelstdmt_add_test(doc_${name}_${word} ${command})
      set_tests_properties(doc_${name}_${word} PROPERTIES FIXTURES_REQUIRED doc_${name})
    endif()
  endforeach()
  if(built)
    kelstdmt_add_test(doc_${name}_compiles ${CMAKE_COMMAND} --build ${PROJECT_BINARY_DIR} --target ${built})
    set_tests_properties(doc_${name}_compiles PROPERTIES FIXTURES_SETUP doc_${name} RESOURCE_LOCK build_folder)
  endif()
endfunction()
