# The layer check: fails when a file of a module includes a header of a module it may not use
# (cmake/modules.txt), or when a folder under src/ with code is in no module.
#   cmake -DSOURCE_DIR=<tree> -P cmake/check_layers.cmake
# reads <tree>/cmake/modules.txt and <tree>/src; the build runs it before any module compiles.
cmake_minimum_required(VERSION 3.20)
include(${CMAKE_CURRENT_LIST_DIR}/modules.cmake)
if(NOT SOURCE_DIR)
  get_filename_component(SOURCE_DIR ${CMAKE_CURRENT_LIST_DIR}/.. ABSOLUTE)
endif()
dossync_read_modules(${SOURCE_DIR}/cmake/modules.txt)
set(problems ${DOSSYNC_TABLE_ERRORS})

# The module a path under src/ belongs to: the longest module folder it lies in.
function(module_of path out)
  set(found "")
  foreach(module IN LISTS DOSSYNC_ALL_MODULES)
    string(LENGTH "${found}" foundLength)
    string(LENGTH "${module}" length)
    if(path MATCHES "^${module}/" AND length GREATER foundLength)
      set(found ${module})
    endif()
  endforeach()
  set(${out} "${found}" PARENT_SCOPE)
endfunction()

file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR}/src ${SOURCE_DIR}/src/*.h ${SOURCE_DIR}/src/*.cpp
     ${SOURCE_DIR}/src/*.cc)
foreach(file IN LISTS files)
  module_of(${file} module)
  if(NOT module)
    list(APPEND problems "src/${file} is in no module")
    continue()
  endif()
  file(STRINGS ${SOURCE_DIR}/src/${file} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^[^\"]*\"([^\"]*)\".*" "\\1" header "${line}")
    module_of(${header} used)
    if(used AND NOT used STREQUAL module AND NOT used IN_LIST DOSSYNC_BELOW_${module})
      list(APPEND problems "src/${file} (${module}) includes ${header} (${used})")
    endif()
  endforeach()
endforeach()

if(problems)
  list(JOIN problems "\n  " text)
  message(FATAL_ERROR "Upward use of a module (cmake/modules.txt):\n  ${text}")
endif()
