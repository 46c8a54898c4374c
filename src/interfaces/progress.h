// The progress dialog of the host's message-box library ("outlookDialog"): a message, a bar
// with a value and a maximum, a status line, and a start notification raised once the dialog
// is shown, in which the long work runs. show() returns when the work is done and the dialog
// closed. The value may go past the maximum. The host registers the implementation with the
// platform under kProgressDialogClass.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "base/object.h"

namespace dossync {

inline constexpr const char* kProgressDialogClass = "kvdlgbox3.outlookDialog";

class IProgressDialog : public Object {
 public:
  // Settings, in the order of the dialog's interface.
  virtual void setMessage(const std::string& text) = 0;
  virtual void setStyle(int32_t style) = 0;
  virtual void setOwner(ObjectPtr owner) = 0;
  virtual void setMinimum(int32_t value) = 0;
  virtual void setMaximum(int32_t value) = 0;
  virtual void setShowBar(bool show) = 0;
  virtual void setValue(int32_t value) = 0;
  virtual void setSecondaryValue(int32_t value) = 0;
  virtual void setAllowCancel(bool allow) = 0;
  virtual void setNumber(int32_t number) = 0;

  virtual void setStartHandler(std::function<void()> handler) = 0;
  virtual void show() = 0;
  virtual int32_t value() const = 0;
  virtual void setStatus(const std::string& text) = 0;
  virtual void close() = 0;
};

// What the progress dialogs of ours share: they keep the message, owner, range, value and start
// handler for their own show(), and ignore the style, the second bar, cancelling and the number.
class ProgressDialogBase : public IProgressDialog {
 public:
  void setMessage(const std::string& text) override { message_ = text; }
  void setStyle(int32_t) override {}
  void setOwner(ObjectPtr owner) override { owner_ = std::move(owner); }
  void setMinimum(int32_t value) override { minimum_ = value; }
  void setMaximum(int32_t value) override { maximum_ = value; }
  void setShowBar(bool) override {}
  void setValue(int32_t value) override { value_ = value; }
  void setSecondaryValue(int32_t) override {}
  void setAllowCancel(bool) override {}
  void setNumber(int32_t) override {}
  void setStartHandler(std::function<void()> handler) override { start_ = std::move(handler); }
  int32_t value() const override { return value_; }

 protected:
  ObjectPtr owner_;
  std::function<void()> start_;
  std::string message_;
  int32_t minimum_ = 0, maximum_ = 0, value_ = 0;
};

}  // namespace dossync
