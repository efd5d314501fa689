# Embeds files into a static library as byte arrays, looked up by file name
# through platform/Resources.h, so the binary needs no resource folder.
function(embed_resources target)
  set(out ${CMAKE_BINARY_DIR}/embedded_resources.cpp)
  string(REPLACE ";" "|" files "${ARGN}")
  add_custom_command(
    OUTPUT ${out}
    COMMAND ${CMAKE_COMMAND} -DOUT=${out} -DFILES=${files} -P ${CMAKE_SOURCE_DIR}/cmake/GenerateResources.cmake
    DEPENDS ${ARGN} ${CMAKE_SOURCE_DIR}/cmake/GenerateResources.cmake
    COMMENT "Embedding resources"
    VERBATIM)
  add_library(${target} STATIC ${out})
endfunction()
