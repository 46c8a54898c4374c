// The Qt 6 Widgets view of the wizard form: a QDialog that renders every control of a
// frmWizard at its design position and forwards what the user does to the form. It has no
// behaviour of its own: after each forwarded action, and whenever the form asks for a repaint,
// it copies the controls' state (caption, enabled, visible, position, text, value, range)
// into the widgets. The tree widget mirrors the form's tree through its observer interface.
//
// Widgets: frames are group boxes (the step frames flat), labels word-wrap, text boxes are
// line edits (the password one masked), option buttons radio buttons and check boxes check
// boxes, whose checked state is the form's, the scheme list a combo box, the tree a QTreeWidget
// with check boxes and drawn icons (an icon's selected form is the node's selected image),
// pictures drawn step pictures.
//
// showModal runs the dialog modally over the owner window (QDialog::exec); when a session is
// set instead (offscreen rendering), it shows the dialog without a modal loop, runs the
// session and returns. The close box and Escape behave like Cancel only through the form.
// Thread use: the GUI thread.
#pragma once

#include <QDialog>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "wizard/wizard_form.h"

class QTreeWidget;
class QTreeWidgetItem;

namespace dossync::qt {

class WizardDialog : public QDialog, public wizard::IWizardView, public wizard::ITreeObserver {
 public:
  explicit WizardDialog(wizard::frmWizard& form, QWidget* parent = nullptr);
  ~WizardDialog() override;

  // IWizardView
  void showModal(const ObjectPtr& ownerWindow) override;
  void unload() override;
  void refresh() override;
  void controlsAdded() override;

  // ITreeObserver
  void treeCleared() override;
  void nodeAdded(const wizard::TreeNode& node) override;
  void nodeChanged(const wizard::TreeNode& node) override;
  void selectionChanged(int32_t index) override;

  // Copies the state of every control into its widget.
  void syncFromModel();
  QWidget* widget(const std::string& name, int32_t index = -1) const;
  QTreeWidget* treeWidget() const { return tree_; }
  QTreeWidgetItem* item(int32_t nodeIndex) const;
  wizard::frmWizard& form() { return form_; }

  std::function<void()> session;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void build();
  void forward(const std::function<void()>& action);
  void applyNode(QTreeWidgetItem* item, const wizard::TreeNode& node);
  QIcon iconFor(int32_t image, int32_t selectedImage);

  wizard::frmWizard& form_;
  std::map<const wizard::Control*, QWidget*> widgets_;
  std::map<QWidget*, wizard::Control*> controls_;
  QTreeWidget* tree_ = nullptr;
  std::vector<QTreeWidgetItem*> items_;  // by node index - 1
  bool syncing_ = false;
  bool inModalLoop_ = false;
  std::chrono::steady_clock::time_point lastPaint_;
  QMetaObject::Connection focusConnection_;
};

// A frmWizard with its Qt dialog: what the Qt host registers as "frmWizard".
class QtWizard : public wizard::frmWizard {
 public:
  QtWizard();
  ~QtWizard() override;
  WizardDialog& dialog() { return *dialog_; }

 private:
  std::unique_ptr<WizardDialog> dialog_;
};

// Registers QtWizard with the platform as "frmWizard"; setup (if any) is applied to each form
// made, to give it the host's hooks.
void registerQtWizard(std::function<void(QtWizard&)> setup = {});

}  // namespace dossync::qt
