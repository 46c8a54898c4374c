# The wizard's Win32 view (common controls and GDI), for the COM server; its library is made
# with the other modules' (cmake/modules.cmake).
target_link_libraries(dossync_wizard_win32 PUBLIC comctl32 gdi32 user32)
