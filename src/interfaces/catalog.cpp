#include "interfaces/catalog.h"

#include "base/value.h"

namespace dossync::store {

std::string dataSourceOf(const std::string& cs) {
  std::string up = value::upper(cs);
  size_t start = up.find("DATA SOURCE=");
  if (start == std::string::npos) return "";
  start += 12;
  // The value runs to the first ';' that ends the string or starts another known key, so a
  // path may itself hold ';'.
  size_t pos = start;
  while ((pos = cs.find(';', pos)) != std::string::npos) {
    std::string rest = up.substr(pos + 1);
    if (rest.empty() || rest.rfind("JET OLEDB:", 0) == 0 || rest.rfind("PROVIDER=", 0) == 0 ||
        rest.rfind("USER ID=", 0) == 0 || rest.rfind("PASSWORD=", 0) == 0 ||
        rest.rfind("MODE=", 0) == 0)
      return cs.substr(start, pos - start);
    ++pos;
  }
  return cs.substr(start);
}

}  // namespace dossync::store
