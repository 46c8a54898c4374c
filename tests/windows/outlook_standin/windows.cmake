# outlook_standin.dll (included by cmake/windows.cmake): a stand-in for Outlook over the vCard
# folder store, registered as "Outlook.Application" by the Windows tests under Wine. Tests only:
# it is never installed on a user's machine.
set(STANDIN_DIR ${CMAKE_SOURCE_DIR}/tests/windows/outlook_standin)
add_library(outlook_standin SHARED ${STANDIN_DIR}/server.cpp ${STANDIN_DIR}/objects.cpp
            ${STANDIN_DIR}/outlook_standin.def)
set_target_properties(outlook_standin PROPERTIES PREFIX "" OUTPUT_NAME outlook_standin)
target_link_libraries(outlook_standin PRIVATE dossync_vdir dossync_outlook_com dossync_core
                      ole32 oleaut32 uuid)
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  target_link_options(outlook_standin PRIVATE -Wl,--kill-at)
endif()
