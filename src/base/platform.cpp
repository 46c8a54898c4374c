#include "base/platform.h"

#include <map>
#include <mutex>

namespace dossync::platform {
namespace {

struct Registration {
  Factory create;
  Factory attach;
  std::weak_ptr<Object> running;
};

std::mutex& lock() {
  static std::mutex m;
  return m;
}

std::map<std::string, Registration>& classes() {
  static std::map<std::string, Registration> c;
  return c;
}

}  // namespace

void registerClass(const std::string& name, Factory create, Factory attach) {
  std::lock_guard g(lock());
  classes()[name] = Registration{std::move(create), std::move(attach), {}};
}

void unregisterClass(const std::string& name) {
  std::lock_guard g(lock());
  classes().erase(name);
}

ObjectPtr createObject(const std::string& name) {
  Factory f;
  {
    std::lock_guard g(lock());
    auto it = classes().find(name);
    if (it == classes().end() || !it->second.create)
      throw RuntimeError(kCannotCreateObject,
                         "ActiveX component can't create object: no class '" + name + "'");
    f = it->second.create;
  }
  ObjectPtr obj = f();
  if (!obj)
    throw RuntimeError(kCannotCreateObject, "ActiveX component can't create object '" + name + "'");
  std::lock_guard g(lock());
  classes()[name].running = obj;
  return obj;
}

ObjectPtr getActiveObject(const std::string& name) {
  Factory attach;
  {
    std::lock_guard g(lock());
    auto it = classes().find(name);
    if (it == classes().end())
      throw RuntimeError(kCannotCreateObject,
                         "ActiveX component can't create object: no class '" + name + "'");
    if (auto running = it->second.running.lock()) return running;
    attach = it->second.attach;
  }
  ObjectPtr obj = attach ? attach() : nullptr;
  if (!obj) throw RuntimeError(kCannotCreateObject, "No running instance of '" + name + "'");
  return obj;
}

ObjectPtr attachOrCreate(const std::string& name, bool& created) {
  try {
    return getActiveObject(name);
  } catch (...) {
  }
  created = true;
  try {
    return createObject(name);
  } catch (...) {
  }
  return nullptr;
}

}  // namespace dossync::platform
