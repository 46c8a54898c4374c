#include "wizard_qt/qt_services.h"

#include <QApplication>
#include <QMessageBox>
#include <QProgressDialog>

#include "base/platform.h"
#include "core/apartment.h"

namespace dossync::qt {
namespace {

constexpr auto kPumpInterval = std::chrono::milliseconds(30);

QString q(const std::string& s) {
  return QString::fromStdString(s);
}

}  // namespace

QWidget* ownerWidget(const ObjectPtr& owner) {
  if (QWidget* modal = QApplication::activeModalWidget()) return modal;
  if (auto w = std::dynamic_pointer_cast<WindowObject>(owner)) return w->widget;
  return nullptr;
}

int32_t QtMessageBox::showMessage(const std::string& text, int32_t style, const ObjectPtr& owner,
                                  int32_t, int32_t, int32_t) {
  shown_.push_back(text);
  if (automatic_) return 1;
  QMessageBox box(style == 3 ? QMessageBox::Warning : QMessageBox::Information,
                  QApplication::applicationDisplayName(), q(text), QMessageBox::Ok,
                  ownerWidget(owner));
  box.exec();
  return 1;
}

bool QtMessageBox::askYesNo(const std::string& text, int32_t, const ObjectPtr& owner, int32_t) {
  shown_.push_back(text);
  if (automatic_) return answerYes_;
  return QMessageBox::question(ownerWidget(owner), QApplication::applicationDisplayName(), q(text),
                               QMessageBox::Yes | QMessageBox::No,
                               QMessageBox::No) == QMessageBox::Yes;
}

QtProgressDialog::QtProgressDialog() = default;
QtProgressDialog::~QtProgressDialog() {
  *alive_ = false;
}

void QtProgressDialog::setMessage(const std::string& text) {
  message_ = text;
  if (dialog_) dialog_->setLabelText(q(status_.empty() ? message_ : message_ + "\n" + status_));
}

void QtProgressDialog::setStatus(const std::string& text) {
  status_ = text;
  setMessage(message_);
  pump(false);
}

void QtProgressDialog::setMinimum(int32_t value) {
  minimum_ = value;
  if (dialog_) dialog_->setMinimum(value);
}

void QtProgressDialog::setMaximum(int32_t value) {
  maximum_ = value;
  if (dialog_) dialog_->setMaximum(std::max(value, minimum_));
}

void QtProgressDialog::setValue(int32_t value) {
  value_ = value;
  if (dialog_) dialog_->setValue(std::min(value, dialog_->maximum()));
  pump(false);
}

void QtProgressDialog::pump(bool force) {
  auto now = std::chrono::steady_clock::now();
  if (!force && now - lastPump_ < kPumpInterval) return;
  lastPump_ = now;
  QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

void QtProgressDialog::show() {
  dialog_ = std::make_unique<QProgressDialog>(ownerWidget(owner_));
  dialog_->setWindowModality(Qt::ApplicationModal);
  dialog_->setCancelButton(nullptr);
  dialog_->setMinimumDuration(0);
  dialog_->setAutoClose(false);
  dialog_->setAutoReset(false);
  dialog_->setWindowTitle(QApplication::applicationDisplayName());
  dialog_->setMinimum(minimum_);
  dialog_->setMaximum(std::max(maximum_, minimum_));
  dialog_->setValue(minimum_);
  setMessage(message_);
  dialog_->show();
  pump(true);
  std::shared_ptr<bool> alive = alive_;
  if (start_) start_();  // the work runs while the dialog is up, and may close it for good
  if (*alive) close();
}

void QtProgressDialog::close() {
  if (!dialog_) return;
  dialog_->hide();
  dialog_.reset();
}

void QtHostUi::doEvents() {
  auto now = std::chrono::steady_clock::now();
  if (now - last_ < kPumpInterval) return;
  last_ = now;
  QCoreApplication::processEvents();
}

void QtHostUi::setMousePointer(int32_t pointer) {
  if (pointer == kPointerHourglass && !overridden_) {
    QApplication::setOverrideCursor(Qt::WaitCursor);
    overridden_ = true;
  } else if (pointer == kPointerDefault && overridden_) {
    QApplication::restoreOverrideCursor();
    overridden_ = false;
  }
}

void installQtServices() {
  platform::registerClass(kProgressDialogClass,
                          [] { return std::make_shared<QtProgressDialog>(); });
  apartment().hostUi = std::make_shared<QtHostUi>();
}

}  // namespace dossync::qt
