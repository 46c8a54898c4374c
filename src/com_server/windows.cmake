# kvoutlookdx64.dll (x86_64) or kvoutlookdx32.dll (i686): the component as an in-process COM
# server (included by cmake/windows.cmake). The bits in the name tell an installer's two files
# apart; the VERSIONINFO carries the project's version.
# The type library is compiled from kvoutlookdx.idl with widl into a header, the interface
# kvoutlookdx.tlb, which the DLL carries as resource TYPELIB 1.
set(KV_IDL ${CMAKE_SOURCE_DIR}/src/com_server/kvoutlookdx.idl)
set(KV_GEN ${CMAKE_BINARY_DIR}/generated/com)
set(KV_TLB ${KV_GEN}/kvoutlookdx.tlb)
file(MAKE_DIRECTORY ${KV_GEN})
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(KV_WIDL_ARCH --win64)
  set(KV_BITS 64)
else()
  set(KV_WIDL_ARCH --win32)
  set(KV_BITS 32)
endif()
set(KV_FILE_NAME kvoutlookdx${KV_BITS}.dll)
set(KV_VERSION_COMMAS ${PROJECT_VERSION_MAJOR},${PROJECT_VERSION_MINOR},${PROJECT_VERSION_PATCH},0)
# oaidl.idl and friends come with Wine's development files; stdole2.tlb with Wine.
set(KV_IDL_INCLUDE /usr/include/wine/wine/windows)
set(KV_STDOLE_DIR /usr/lib/x86_64-linux-gnu/wine/x86_64-windows)
add_custom_command(
  OUTPUT ${KV_GEN}/kvoutlookdx_h.h ${KV_TLB}
  COMMAND ${DOSSYNC_WIDL} ${KV_WIDL_ARCH} -I${KV_IDL_INCLUDE} -L${KV_STDOLE_DIR}
          -h -H ${KV_GEN}/kvoutlookdx_h.h -t -T ${KV_TLB} ${KV_IDL}
  DEPENDS ${KV_IDL}
  COMMENT "widl kvoutlookdx.idl")
add_custom_target(kvoutlookdx_idl DEPENDS ${KV_GEN}/kvoutlookdx_h.h ${KV_TLB})
set(KV_MANIFEST ${CMAKE_SOURCE_DIR}/src/com_server/kvoutlookdx.manifest)
configure_file(${CMAKE_SOURCE_DIR}/src/com_server/kvoutlookdx.rc.in ${KV_GEN}/kvoutlookdx.rc @ONLY)
set_source_files_properties(${KV_GEN}/kvoutlookdx.rc PROPERTIES OBJECT_DEPENDS
                            "${KV_TLB};${KV_MANIFEST}")

# The header and the identifiers of the type library, for the server and for clients built
# from it.
add_library(kvoutlookdx_guids STATIC ${CMAKE_SOURCE_DIR}/src/com_server/guids.cc)
target_include_directories(kvoutlookdx_guids PUBLIC ${KV_GEN})
add_dependencies(kvoutlookdx_guids kvoutlookdx_idl)

file(GLOB KV_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/com_server/*.cpp)
add_library(kvoutlookdx SHARED ${KV_SOURCES} ${KV_GEN}/kvoutlookdx.rc
            ${CMAKE_SOURCE_DIR}/src/com_server/kvoutlookdx.def)
set_target_properties(kvoutlookdx PROPERTIES PREFIX "" OUTPUT_NAME kvoutlookdx${KV_BITS})
add_dependencies(kvoutlookdx kvoutlookdx_idl dossync_check_layers)
# The modules the server uses (cmake/modules.txt).
foreach(used IN LISTS DOSSYNC_USES_com_server)
  dossync_module_target(${used} usedTarget)
  target_link_libraries(kvoutlookdx PRIVATE ${usedTarget})
endforeach()
target_link_libraries(kvoutlookdx PRIVATE kvoutlookdx_guids ole32 oleaut32 uuid)
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  # Exports by their plain names (the host and regsvr32 look them up so), not name@bytes.
  target_link_options(kvoutlookdx PRIVATE -Wl,--kill-at)
endif()
