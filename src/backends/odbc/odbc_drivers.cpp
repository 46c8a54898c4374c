// Which flavour a database file is, which driver opens it, and the path the driver takes.

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "backends/odbc/odbc_internal.h"
#include "base/error.h"
#include "base/value.h"

namespace dossync::odbc {

std::filesystem::path filePath(const std::string& path) {
  return std::filesystem::path(std::u8string(path.begin(), path.end()));
}

bool fileExists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(filePath(path), error);
}

namespace {

// The first bytes of a file; fewer when it is shorter.
std::string header(const std::string& path, size_t size) {
  std::string bytes(size, '\0');
  std::ifstream in(filePath(path), std::ios::binary);
  in.read(bytes.data(), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  return bytes;
}

constexpr const char* kAce = "Microsoft Access Driver (*.mdb, *.accdb)";
constexpr const char* kJet = "Microsoft Access Driver (*.mdb)";

}  // namespace

bool hasAccessHeader(const std::string& path) {
  std::string bytes = header(path, 19);
  return bytes.size() == 19 && (bytes.compare(4, 15, "Standard Jet DB") == 0 ||
                                bytes.compare(4, 15, "Standard ACE DB") == 0);
}

Flavour flavourOf(const std::string& path) {
  if (hasAccessHeader(path)) return Flavour::Access;
  if (header(path, 16) == std::string("SQLite format 3\0", 16)) return Flavour::SQLite;
  size_t slash = path.find_last_of("/\\");
  std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = file.rfind('.');
  std::string ext = dot == std::string::npos ? "" : value::upper(file.substr(dot));
  if (ext != ".MDB" && ext != ".ACCDB") return Flavour::SQLite;
  // A file that is there but empty is made anew by SQLite; one that holds something else is
  // left for the Access driver to judge.
  std::error_code error;
  std::filesystem::path p = filePath(path);
  bool exists = std::filesystem::exists(p, error);
  if (exists && std::filesystem::file_size(p, error) == 0 && !error) return Flavour::SQLite;
  if (exists) return Flavour::Access;
  static const bool access = driverInstalled(kAce) || driverInstalled(kJet);
  return access ? Flavour::Access : Flavour::SQLite;
}

std::vector<std::string> driverNames(Flavour flavour) {
  if (flavour == Flavour::Access) return {kAce, kJet};
  const char* name = std::getenv("DOSSYNC_ODBC_SQLITE_DRIVER");
  if (name && *name) return {name};
#ifdef _WIN32
  // The SQLite ODBC driver's installer for Windows names it so; under Wine, the drivers are the
  // host's unixODBC ones, where Debian names it "SQLite3".
  return {"SQLite3 ODBC Driver", "SQLite3"};
#else
  return {"SQLite3"};
#endif
}

bool driverAvailable(Flavour flavour) {
  for (const std::string& name : driverNames(flavour))
    if (driverInstalled(name)) return true;
  return false;
}

std::string driverName(Flavour flavour) {
  std::vector<std::string> names = driverNames(flavour);
  std::string tried;
  for (const std::string& name : names) {
    if (driverInstalled(name)) return name;
    tried += (tried.empty() ? "\"" : ", \"") + name + "\"";
  }
  throw RuntimeError(kProviderNotFound, std::string("No ODBC driver for ") +
                                            (flavour == Flavour::Access ? "Access (Jet) databases"
                                                                        : "SQLite databases") +
                                            " is installed (tried " + tried + ")");
}

bool driverInstalled(const std::string& name) {
  SQLHENV env = SQL_NULL_HENV;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env))) return false;
  SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  bool found = false;
  SQLWCHAR description[512], attributes[2048];
  SQLSMALLINT descriptionLength = 0, attributesLength = 0;
  for (SQLUSMALLINT direction = SQL_FETCH_FIRST; SQL_SUCCEEDED(SQLDriversW(
           env, direction, description, static_cast<SQLSMALLINT>(std::size(description)),
           &descriptionLength, attributes, static_cast<SQLSMALLINT>(std::size(attributes)),
           &attributesLength));
       direction = SQL_FETCH_NEXT) {
    size_t n = std::min<size_t>(static_cast<size_t>(std::max<SQLSMALLINT>(descriptionLength, 0)),
                                std::size(description) - 1);
    if (value::equalsIgnoreCase(narrow(description, n), name)) found = true;
  }
  SQLFreeHandle(SQL_HANDLE_ENV, env);
  return found;
}

#ifdef _WIN32
std::string driverPath(const std::string& path) {
  // Wine's kernel32 alone has it: char* wine_get_unix_file_name(const WCHAR*), the Unix path in
  // UTF-8, allocated on the process heap.
  using UnixName = char*(__cdecl*)(const WCHAR*);
  static const auto unixName = reinterpret_cast<UnixName>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  if (!unixName) return path;
  std::wstring dos = utf16::widen<wchar_t>(path);
  char* unix = unixName(dos.c_str());
  if (!unix) return path;
  std::string result = unix;
  HeapFree(GetProcessHeap(), 0, unix);
  return result;
}
#else
std::string driverPath(const std::string& path) {
  return path;
}
#endif

}  // namespace dossync::odbc
