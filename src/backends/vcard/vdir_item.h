// What every item of the local stores (contacts, contact groups, mail, appointments) also is,
// beside its Outlook interface: an item kept in a file of the profile's folder.
#pragma once

#include <string>

namespace dossync::vdir {

// What every item of the local stores also is: dynamic_cast an outlook item to it.
class VdirItem {
 public:
  virtual ~VdirItem() = default;
  // The item's file; "" until it is saved.
  virtual std::string FilePath() const = 0;
  // Removes the item's file. The item cannot be saved afterwards.
  virtual void Delete() = 0;
};

}  // namespace dossync::vdir
