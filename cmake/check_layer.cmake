# Run by slotag_layer (layers.cmake): fails when a file of FOLDER includes a
# project header outside ALLOWED ("|"-separated folders and headers).
cmake_policy(VERSION 3.25)
string(REPLACE "|" ";" allowed "${ALLOWED}")
file(GLOB files ${FOLDER}/*.cpp ${FOLDER}/*.h)
set(wrong "")
foreach(file IN LISTS files)
  file(STRINGS ${file} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"[^\"]*/")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]*)\".*" "\\1" header "${line}")
    # An allowed entry is a header, or a folder whose headers (not those of
    # its subfolders: cli/ does not open cli/core/) may be included.
    get_filename_component(dir "${header}" DIRECTORY)
    if(NOT dir IN_LIST allowed AND NOT header IN_LIST allowed)
      list(APPEND wrong "  ${file}: ${header}")
    endif()
  endforeach()
endforeach()
if(wrong)
  string(REPLACE ";" "\n" wrong "${wrong}")
  message(FATAL_ERROR "includes against the layers (allowed: ${allowed}):\n${wrong}")
endif()
file(TOUCH ${STAMP})
