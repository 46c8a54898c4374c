// The base of every object that crosses an interface by reference (what COM calls an object):
// the host's main window, data access objects, Outlook objects, services. Shared ownership;
// "Nothing" is an empty pointer.
#pragma once

#include <memory>

namespace dossync {

class Object {
 public:
  virtual ~Object() = default;
};

using ObjectPtr = std::shared_ptr<Object>;

}  // namespace dossync
