# outlook_standin.dll (included by cmake/windows.cmake): a stand-in for Outlook over the vCard
# folder store, registered as "Outlook.Application" by the Windows tests under Wine. Tests only:
# it is never installed on a user's machine.
set(STANDIN_DIR ${CMAKE_SOURCE_DIR}/tests/windows/outlook_standin)
# The progress dialog stand-in's type library, resource TYPELIB 1 (KV_* from the component's).
set(STANDIN_TLB ${KV_GEN}/dialog_standin.tlb)
add_custom_command(
  OUTPUT ${STANDIN_TLB}
  COMMAND ${DOSSYNC_WIDL} ${KV_WIDL_ARCH} -I${KV_IDL_INCLUDE} -L${KV_STDOLE_DIR}
          -t -T ${STANDIN_TLB} ${STANDIN_DIR}/dialog_standin.idl
  DEPENDS ${STANDIN_DIR}/dialog_standin.idl
  COMMENT "widl dialog_standin.idl")
file(WRITE ${KV_GEN}/outlook_standin.rc "1 TYPELIB \"${STANDIN_TLB}\"\n")
set_source_files_properties(${KV_GEN}/outlook_standin.rc PROPERTIES OBJECT_DEPENDS
                            ${STANDIN_TLB})
add_library(outlook_standin SHARED ${STANDIN_DIR}/server.cpp ${STANDIN_DIR}/objects.cpp
            ${STANDIN_DIR}/dialog.cpp ${KV_GEN}/outlook_standin.rc
            ${STANDIN_DIR}/outlook_standin.def)
set_target_properties(outlook_standin PROPERTIES PREFIX "" OUTPUT_NAME outlook_standin)
target_link_libraries(outlook_standin PRIVATE dossync_vdir dossync_outlook_com dossync_core
                      ole32 oleaut32 uuid)
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  target_link_options(outlook_standin PRIVATE -Wl,--kill-at)
endif()
