# The layers of the program. Every header is included by its path from the
# repository root ("table/busid.h"), so include directories cannot hide one
# folder from another; instead each library checks the #include lines of
# its folder whenever one of its files changes, and the build fails on an
# include of a folder (or a header) its layer may not use.
#
#   slotag_layer(TARGET FOLDER ALLOWED...)   ALLOWED: folders, or single
#                                            headers as "folder/file.h"
function(slotag_layer target folder)
  file(GLOB files CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp
       ${PROJECT_SOURCE_DIR}/${folder}/*.h)
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/${target}.layer)
  string(REPLACE ";" "|" allowed "${folder};${ARGN}")
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} -DFOLDER=${PROJECT_SOURCE_DIR}/${folder} "-DALLOWED=${allowed}"
            -DSTAMP=${stamp} -P ${PROJECT_SOURCE_DIR}/cmake/check_layer.cmake
    DEPENDS ${files} ${PROJECT_SOURCE_DIR}/cmake/check_layer.cmake
    COMMENT "Checking the includes of ${folder}/"
    VERBATIM)
  target_sources(${target} PRIVATE ${stamp})
endfunction()
