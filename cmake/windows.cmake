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

file(GLOB DOSSYNC_CORE_SOURCES CONFIGURE_DEPENDS
  src/core/*.cpp src/store/*.cpp src/engine/*.cpp src/transfer/*.cpp
  src/hostdb/*.cpp src/format/*.cpp src/mail/*.cpp src/interfaces/*.cpp)
add_library(dossync_core STATIC ${DOSSYNC_CORE_SOURCES})
# Case folding through the system's Unicode tables.
target_link_libraries(dossync_core PUBLIC user32)

# Previews and reports of runs (no libzstd here: reports are stored in zstd frames uncompressed).
file(GLOB DOSSYNC_REPORT_SOURCES CONFIGURE_DEPENDS src/report/*.cpp)
add_library(dossync_report STATIC ${DOSSYNC_REPORT_SOURCES})
target_link_libraries(dossync_report PUBLIC dossync_core)

# The shared SQL layer and the ODBC engine.
file(GLOB DOSSYNC_SQL_SOURCES CONFIGURE_DEPENDS src/backends/sql/*.cpp)
add_library(dossync_sql STATIC ${DOSSYNC_SQL_SOURCES})
target_link_libraries(dossync_sql PUBLIC dossync_core)
# The connection and catalog of the synchronisation database in SQLite's words, without SQLite
# itself (the driver brings it).
file(GLOB DOSSYNC_ODBC_SOURCES CONFIGURE_DEPENDS src/backends/odbc/*.cpp)
add_library(dossync_odbc STATIC ${DOSSYNC_ODBC_SOURCES} src/backends/sqlite/sqlite_schema.cpp
  src/backends/sqlite/sql_catalog.cpp)
target_link_libraries(dossync_odbc PUBLIC dossync_sql odbc32 odbccp32)

# IDispatch helpers and Outlook by automation.
file(GLOB DOSSYNC_OUTLOOK_COM_SOURCES CONFIGURE_DEPENDS
  src/backends/win32/*.cpp src/backends/outlook_com/*.cpp)
add_library(dossync_outlook_com STATIC ${DOSSYNC_OUTLOOK_COM_SOURCES})
target_link_libraries(dossync_outlook_com PUBLIC dossync_core ole32 oleaut32 uuid)

# The vCard folder store, for the Outlook stand-in: mail items are written without GMime and
# never delivered, appointments are not kept (no libcurl, no libical on Windows).
file(GLOB DOSSYNC_VDIR_SOURCES CONFIGURE_DEPENDS src/backends/vdir/*.cpp)
list(FILTER DOSSYNC_VDIR_SOURCES EXCLUDE REGEX ".*/(mime_message|smtp_client|vdir_calendar)\\.cpp$")
add_library(dossync_vdir STATIC ${DOSSYNC_VDIR_SOURCES}
  src/backends/vdir/windows/mime_plain.cpp src/backends/vdir/windows/unavailable.cpp)
target_link_libraries(dossync_vdir PUBLIC dossync_core shell32 shlwapi)

# The wizard's form (no toolkit) and its Win32 view.
file(GLOB DOSSYNC_WIZARD_SOURCES CONFIGURE_DEPENDS src/wizard/*.cpp)
add_library(dossync_wizard STATIC ${DOSSYNC_WIZARD_SOURCES})
target_link_libraries(dossync_wizard PUBLIC dossync_core)
include(${CMAKE_SOURCE_DIR}/src/wizard_win32/windows.cmake)

include(${CMAKE_SOURCE_DIR}/src/com_server/windows.cmake)
include(${CMAKE_SOURCE_DIR}/tests/windows/outlook_standin/windows.cmake)
include(${CMAKE_SOURCE_DIR}/tests/windows/windows.cmake)
