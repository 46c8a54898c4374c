// Host services the component reaches through interfaces: the message box (and the progress
// dialog of the same library), and the platform's user-interface hooks (message pump, mouse
// pointer). The error service is in base/error.h. The host supplies them; the component owns
// nothing here but references. Everything runs on the apartment's one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/object.h"

namespace dossync {

class IMessageBox {
 public:
  virtual ~IMessageBox() = default;
  // Shows a message; answers the button the user chose (host-defined codes).
  virtual int32_t showMessage(const std::string& text, int32_t style, const ObjectPtr& owner,
                              int32_t reserved1, int32_t reserved2, int32_t number) = 0;
  // The yes/no question: true for Yes.
  virtual bool askYesNo(const std::string& text, int32_t style, const ObjectPtr& owner,
                        int32_t number) = 0;
};

// The platform's message pump and screen mouse pointer (hourglass 11, default 0).
class IHostUi {
 public:
  virtual ~IHostUi() = default;
  virtual void doEvents() {}
  virtual void setMousePointer(int32_t pointer) {}
};

constexpr int32_t kPointerDefault = 0;
constexpr int32_t kPointerHourglass = 11;

}  // namespace dossync
