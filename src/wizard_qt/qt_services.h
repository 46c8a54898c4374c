// The host services of a Qt 6 Widgets host: the message box (IMessageBox), the progress dialog
// (IProgressDialog, registered as the host's "outlookDialog"), the message pump and mouse
// pointer (IHostUi), and the host's main window as the object the component knows as MDIForm.
//
// Style codes of the message box are the host's: 3 shows a warning, 10 and anything else an
// information message; askYesNo asks a question with Yes and No. Messages and the progress
// dialog are owned by the window that is modal at the time (the wizard), else by the owner
// object's window. The message pump repaints at most every 30 ms, so a loop calling it per row
// stays fast; with the offscreen platform nothing waits for a user.
// Thread use: the GUI thread.
#pragma once

#include <QPointer>
#include <QWidget>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "base/object.h"
#include "interfaces/progress.h"
#include "interfaces/services.h"

class QProgressDialog;

namespace dossync::qt {

// A window as the component holds it (the host's MDIForm).
class WindowObject : public Object {
 public:
  explicit WindowObject(QWidget* w) : widget(w) {}
  QPointer<QWidget> widget;
};

// The widget behind an owner object, or the modal window of the moment.
QWidget* ownerWidget(const ObjectPtr& owner);

class QtMessageBox : public IMessageBox {
 public:
  int32_t showMessage(const std::string& text, int32_t style, const ObjectPtr& owner,
                      int32_t reserved1, int32_t reserved2, int32_t number) override;
  bool askYesNo(const std::string& text, int32_t style, const ObjectPtr& owner,
                int32_t number) override;
  // Answers instead of asking (offscreen runs and tests): every message is recorded, questions
  // get this answer.
  void setAutomatic(bool answerYes) { automatic_ = true, answerYes_ = answerYes; }
  const std::vector<std::string>& shown() const { return shown_; }

 private:
  bool automatic_ = false, answerYes_ = false;
  std::vector<std::string> shown_;
};

class QtProgressDialog : public ProgressDialogBase {
 public:
  QtProgressDialog();
  ~QtProgressDialog() override;
  void setMessage(const std::string& text) override;
  void setMinimum(int32_t value) override;
  void setMaximum(int32_t value) override;
  void setValue(int32_t value) override;
  void show() override;
  void setStatus(const std::string& text) override;
  void close() override;

 private:
  void pump(bool force);

  std::unique_ptr<QProgressDialog> dialog_;
  // False once this object is gone: the work show() runs may let go of the dialog's last owner.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  std::string status_;
  std::chrono::steady_clock::time_point lastPump_;
};

class QtHostUi : public IHostUi {
 public:
  void doEvents() override;
  void setMousePointer(int32_t pointer) override;

 private:
  std::chrono::steady_clock::time_point last_;
  bool overridden_ = false;
};

// Registers QtProgressDialog as the host's progress dialog and installs QtHostUi in this
// thread's apartment.
void installQtServices();

}  // namespace dossync::qt
