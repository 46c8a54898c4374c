# Makes the static library of every module of cmake/modules.txt built on this platform, from the
# *.cpp of its folder and of its posix/ (Linux) or windows/ subfolder, linked PUBLIC to the
# libraries of the modules it uses. The libraries from outside the project are linked by the
# platform's own build files; dossync_check_module_links() then makes sure no module library
# links a module it may not use. A module's main.cpp is its program, not part of its library;
# com_server's library is made by its own build file.
include(${CMAKE_SOURCE_DIR}/cmake/modules.cmake)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/modules.txt)
dossync_read_modules(${CMAKE_SOURCE_DIR}/cmake/modules.txt)
if(DOSSYNC_TABLE_ERRORS)
  message(FATAL_ERROR "cmake/modules.txt: ${DOSSYNC_TABLE_ERRORS}")
endif()
if(WIN32)
  set(DOSSYNC_PLATFORM windows)
  set(DOSSYNC_VARIANT_DIR windows)
else()
  set(DOSSYNC_PLATFORM linux)
  set(DOSSYNC_VARIANT_DIR posix)
endif()

# The layer check (cmake/check_layers.cmake) runs before any module compiles, and again whenever
# a source or the table changes: an include of a module above fails the build.
file(GLOB_RECURSE DOSSYNC_ALL_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/*.h
     ${CMAKE_SOURCE_DIR}/src/*.cpp ${CMAKE_SOURCE_DIR}/src/*.cc)
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/layers.checked
  COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${CMAKE_SOURCE_DIR} -P ${CMAKE_SOURCE_DIR}/cmake/check_layers.cmake
  COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_BINARY_DIR}/layers.checked
  DEPENDS ${DOSSYNC_ALL_SOURCES} ${CMAKE_SOURCE_DIR}/cmake/modules.txt
          ${CMAKE_SOURCE_DIR}/cmake/modules.cmake ${CMAKE_SOURCE_DIR}/cmake/check_layers.cmake
  COMMENT "Checking that modules use only the modules below them")
add_custom_target(dossync_check_layers DEPENDS ${CMAKE_BINARY_DIR}/layers.checked)

set(DOSSYNC_MODULES "")
foreach(module IN LISTS DOSSYNC_ALL_MODULES)
  if(NOT DOSSYNC_ON_${module} STREQUAL "all" AND NOT DOSSYNC_ON_${module} STREQUAL DOSSYNC_PLATFORM)
    continue()
  endif()
  list(APPEND DOSSYNC_MODULES ${module})
  if(module STREQUAL "com_server")
    continue()
  endif()
  dossync_module_target(${module} target)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${module}/*.cpp
       ${CMAKE_SOURCE_DIR}/src/${module}/${DOSSYNC_VARIANT_DIR}/*.cpp)
  list(REMOVE_ITEM sources ${CMAKE_SOURCE_DIR}/src/${module}/main.cpp)
  add_library(${target} STATIC ${sources})
  add_dependencies(${target} dossync_check_layers)
  foreach(used IN LISTS DOSSYNC_USES_${module})
    dossync_module_target(${used} usedTarget)
    target_link_libraries(${target} PUBLIC ${usedTarget})
  endforeach()
endforeach()

# Fails the configuration when a module's library (or `extra`, a target standing for a module:
# `extra` then `module`) links the library of a module it may not use.
function(dossync_check_module_links)
  set(targets "")
  foreach(module IN LISTS DOSSYNC_MODULES)
    dossync_module_target(${module} target)
    set(moduleOf_${target} ${module})
    if(TARGET ${target})
      list(APPEND targets ${target})
    endif()
  endforeach()
  set(pairs ${ARGN})
  while(pairs)
    list(POP_FRONT pairs target module)
    set(moduleOf_${target} ${module})
    list(APPEND targets ${target})
  endwhile()
  foreach(target IN LISTS targets)
    set(module ${moduleOf_${target}})
    get_target_property(libs ${target} LINK_LIBRARIES)
    foreach(lib IN LISTS libs)
      if(DEFINED moduleOf_${lib} AND NOT moduleOf_${lib} STREQUAL module
         AND NOT moduleOf_${lib} IN_LIST DOSSYNC_BELOW_${module})
        message(FATAL_ERROR "${target} (src/${module}) links ${lib} (src/${moduleOf_${lib}}), "
                            "which cmake/modules.txt does not let it use")
      endif()
    endforeach()
  endforeach()
endfunction()
