# The module table (cmake/modules.txt) as CMake reads it, for the build and for the layer check
# (cmake/check_layers.cmake). After dossync_read_modules():
#   DOSSYNC_ALL_MODULES         every module, in the table's order (lowest first)
#   DOSSYNC_ON_<module>         all, linux or windows
#   DOSSYNC_USES_<module>       the modules it names
#   DOSSYNC_BELOW_<module>      what it may include and link: those and, in turn, theirs
#   DOSSYNC_TABLE_ERRORS        lines that name a module not above them
# The library of a module is dossync_ and the last part of its folder (dossync_module_target).

function(dossync_module_target module out)
  get_filename_component(leaf ${module} NAME)
  set(${out} dossync_${leaf} PARENT_SCOPE)
endfunction()

macro(dossync_read_modules table)
  file(STRINGS ${table} _lines REGEX "^[a-z]")
  set(DOSSYNC_ALL_MODULES "")
  set(DOSSYNC_TABLE_ERRORS "")
  foreach(_line IN LISTS _lines)
    string(REGEX REPLACE "[ \t]+" ";" _fields "${_line}")
    list(POP_FRONT _fields _module _on)
    list(REMOVE_ITEM _fields "-")
    set(DOSSYNC_ON_${_module} ${_on})
    set(DOSSYNC_USES_${_module} ${_fields})
    set(DOSSYNC_BELOW_${_module} "")
    foreach(_used IN LISTS _fields)
      if(NOT _used IN_LIST DOSSYNC_ALL_MODULES)
        list(APPEND DOSSYNC_TABLE_ERRORS "${_module} uses ${_used}, which is not a module below it")
        continue()
      endif()
      list(APPEND DOSSYNC_BELOW_${_module} ${_used} ${DOSSYNC_BELOW_${_used}})
    endforeach()
    list(REMOVE_DUPLICATES DOSSYNC_BELOW_${_module})
    list(APPEND DOSSYNC_ALL_MODULES ${_module})
  endforeach()
endmacro()
