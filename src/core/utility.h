// The utilities library's two helper objects, created on first use per apartment.
//   FileUtil     file exists, delete, copy with overwrite, folder of a path, trailing separator,
//                and a usability check (a regular, readable file).
//   GeneralUtil  the blank test and the numeric test of core/value.h, behind the object the
//                component hands the error service to.
// File operations throw RuntimeError naming the path on failure.
#pragma once

#include <memory>
#include <string>

#include "core/error.h"

namespace dossync {

class FileUtil {
 public:
  bool fileExists(const std::string& path) const;
  void deleteFile(const std::string& path) const;
  void copyFile(const std::string& from, const std::string& to) const;  // overwrites
  std::string folderOf(const std::string& path) const;
  std::string withTrailingSeparator(const std::string& folder) const;
  bool isUsableFile(const std::string& path) const;
};

// Whether a database location names a database on a server (a libpq URI: "postgresql://..." or
// "postgres://..."), which is opened to learn whether it is there, rather than a file.
bool isServerLocation(const std::string& location);

class GeneralUtil {
 public:
  void setErrorService(std::shared_ptr<IErrorService> service) { errorService_ = std::move(service); }
  bool isBlank(const std::string& text) const;
  bool isNumeric(const std::string& text) const;

 private:
  std::shared_ptr<IErrorService> errorService_;
};

}  // namespace dossync
