# The Windows tests' own programs (included by cmake/windows.cmake); tests/windows/run.sh runs
# them under Wine.
add_executable(com_clients ${CMAKE_SOURCE_DIR}/tests/windows/com_clients.cpp)
target_link_libraries(com_clients PRIVATE kvoutlookdx_guids dossync_outlook_com dossync_core
                      ole32 oleaut32 uuid)
target_link_options(com_clients PRIVATE -municode)
# Drives the wizard through its windows (and photographs it).
add_executable(wizard_client ${CMAKE_SOURCE_DIR}/tests/windows/wizard_client.cpp
  ${CMAKE_SOURCE_DIR}/tests/windows/wizard_client.rc)
target_link_libraries(wizard_client PRIVATE dossync_outlook_com dossync_core windowscodecs
                      comctl32 ole32 oleaut32 uuid)
target_link_options(wizard_client PRIVATE -municode)
# The child window styles of the wizard's controls.
add_executable(control_style_test ${CMAKE_SOURCE_DIR}/tests/windows/control_style_test.cpp)
target_link_libraries(control_style_test PRIVATE dossync_wizard_win32)
target_link_options(control_style_test PRIVATE -municode)
