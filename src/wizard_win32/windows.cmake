# The wizard's Win32 view (common controls and GDI), for the COM server.
add_library(dossync_wizard_win32 STATIC ${CMAKE_SOURCE_DIR}/src/wizard_win32/wizard_window.cpp
  ${CMAKE_SOURCE_DIR}/src/wizard_win32/artwork.cpp)
target_link_libraries(dossync_wizard_win32 PUBLIC dossync_wizard comctl32 gdi32 user32)
