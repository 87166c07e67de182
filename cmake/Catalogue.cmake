# Message catalogues: <folder>/<language>.msg becomes <build>/catalogue/<language>/<name>.cat.
find_program(GENCAT gencat REQUIRED)
function(certkern_catalogue target name folder)
  set(outputs)
  foreach(language IN LISTS ARGN)
    set(output ${CMAKE_BINARY_DIR}/catalogue/${language}/${name}.cat)
    add_custom_command(OUTPUT ${output}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/catalogue/${language}
      COMMAND ${CMAKE_COMMAND} -E rm -f ${output}
      COMMAND ${GENCAT} ${output} ${folder}/${language}.msg
      DEPENDS ${folder}/${language}.msg VERBATIM)
    list(APPEND outputs ${output})
    install(FILES ${output} DESTINATION ${CMAKE_INSTALL_LOCALEDIR}/${language}/LC_MESSAGES)
  endforeach()
  add_custom_target(${target} ALL DEPENDS ${outputs})
endfunction()
