# The Windows build (cmake/mingw-*.cmake, scripts/build-windows.sh): the same core as on Linux,
# the databases over ODBC and Outlook by automation, as the in-process COM server
# kvoutlookdx.dll; and, for the tests under Wine, a stand-in for Outlook over the vCard folder
# store and the test clients. Statically linked: nothing beside the DLL but the system's own.
add_compile_options(-Wall -Wextra -Wpedantic -Werror -Wno-unused-parameter -Wno-restrict
                    -Wno-cast-function-type)
add_compile_definitions(UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601)
add_link_options(-static -static-libgcc -static-libstdc++)

# nlohmann-json is header-only: its headers alone, without the rest of /usr/include.
set(DOSSYNC_WIN_INCLUDE ${CMAKE_BINARY_DIR}/generated/include)
file(MAKE_DIRECTORY ${DOSSYNC_WIN_INCLUDE})
file(CREATE_LINK /usr/include/nlohmann ${DOSSYNC_WIN_INCLUDE}/nlohmann SYMBOLIC)
include_directories(${CMAKE_SOURCE_DIR}/src)
include_directories(SYSTEM ${DOSSYNC_WIN_INCLUDE})

# One static library per module (cmake/modules.txt), as on Linux; here the modules' windows/
# subfolders take the place of their posix/ ones.
include(${CMAKE_SOURCE_DIR}/cmake/module_libraries.cmake)
# Case folding through the system's Unicode tables.
target_link_libraries(dossync_base PUBLIC user32)
# Previews and reports of runs need nothing more: no libzstd here, reports are stored in zstd
# frames uncompressed.
# The ODBC engine (the driver brings SQLite itself).
target_link_libraries(dossync_odbc PUBLIC odbc32 odbccp32)
# IDispatch helpers, and Outlook by automation.
target_link_libraries(dossync_win32 PUBLIC ole32 oleaut32 uuid)
# The vCard folder store, for the Outlook stand-in: mail items are written without GMime and
# never delivered, appointments are not kept (no libcurl, no libical on Windows); a desktop
# program opens a displayed mail.
target_link_libraries(dossync_mail PUBLIC shell32 shlwapi)

include(${CMAKE_SOURCE_DIR}/src/wizard_win32/windows.cmake)
include(${CMAKE_SOURCE_DIR}/src/com_server/windows.cmake)
include(${CMAKE_SOURCE_DIR}/tests/windows/outlook_standin/windows.cmake)
include(${CMAKE_SOURCE_DIR}/tests/windows/windows.cmake)

# No module links upward (cmake/modules.txt).
dossync_check_module_links(kvoutlookdx com_server)
