# Generated types: the modules of FILES become headers and sources in <folder>/asn1data, and these the object library
# <target>. Whoever includes the headers links <target>_headers.
function(certkern_asn1 target folder)
  set(output ${folder}/asn1data)
  set(headers ${output}/built_in.h ${output}/catalogue.h)
  set(sources ${output}/built_in.cpp ${output}/catalogue.cpp)
  foreach(file IN LISTS ARGN)
    get_filename_component(name ${file} NAME_WLE)
    string(REPLACE "-" "_" name ${name})
    list(APPEND headers ${output}/${name}.h)
    list(APPEND sources ${output}/${name}.cpp)
  endforeach()
  add_custom_command(OUTPUT ${headers} ${sources}
    COMMAND asn1gen --out ${output} ${ARGN}
    DEPENDS asn1gen ${ARGN} COMMENT "Compiling the schema of ${target}" VERBATIM)
  add_custom_target(${target}_files DEPENDS ${headers} ${sources})

  add_library(${target}_headers INTERFACE)
  target_include_directories(${target}_headers INTERFACE ${folder} ${PROJECT_SOURCE_DIR}/src)
  add_dependencies(${target}_headers ${target}_files)

  add_library(${target} OBJECT ${sources})
  target_link_libraries(${target} PRIVATE certkern_options PUBLIC ${target}_headers)
endfunction()
