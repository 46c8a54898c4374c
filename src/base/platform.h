// The platform's object registry: how the component obtains objects by class name, the way
// COM's CreateObject and GetObject do. The host (app/) registers which back end answers each
// class ("Outlook.Application", the data access class, the database catalog and connection).
//
//   createObject(name)     a new instance from the registered factory
//   getActiveObject(name)  attach to a running instance: the registered attach function, or the
//                          last instance createObject made that is still alive
// Both throw RuntimeError 429 when no such class is registered or nothing runs.
// Registration is process-wide; call it before components are created.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "base/error.h"
#include "base/object.h"

namespace dossync::platform {

using Factory = std::function<ObjectPtr()>;

// The class names the component asks for.
inline constexpr const char* kOutlookApplication = "Outlook.Application";
inline constexpr const char* kDataAccess = "{6E0879B2-6114-4F2B-8661-7D86E6DC207B}";
inline constexpr const char* kAdoConnection = "ADODB.Connection";
inline constexpr const char* kAdoxCatalog = "ADOX.Catalog";

void registerClass(const std::string& name, Factory create, Factory attach = nullptr);
void unregisterClass(const std::string& name);
ObjectPtr createObject(const std::string& name);
ObjectPtr getActiveObject(const std::string& name);

// Attaches to the running instance or, when there is none, creates one, catching any failure
// of either in place: Nothing when neither worked. `created` is set when attaching failed and
// a new instance was asked for.
ObjectPtr attachOrCreate(const std::string& name, bool& created);

template <class T>
std::shared_ptr<T> create(const std::string& name) {
  auto obj = std::dynamic_pointer_cast<T>(createObject(name));
  if (!obj) throw RuntimeError(kCannotCreateObject, "Cannot create object '" + name + "'");
  return obj;
}

}  // namespace dossync::platform
