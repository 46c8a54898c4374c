#include "wizard_qt/wizard_dialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFrame>
#include <QGroupBox>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTreeWidget>

#include "base/platform.h"
#include "wizard_qt/artwork.h"
#include "wizard_qt/qt_services.h"

namespace dossync::qt {
namespace {

using wizard::Control;
using wizard::ControlKind;

constexpr auto kPaintInterval = std::chrono::milliseconds(30);

QString q(const std::string& s) {
  return QString::fromStdString(s);
}

}  // namespace

WizardDialog::WizardDialog(wizard::frmWizard& form, QWidget* parent)
    : QDialog(parent), form_(form) {
  setFixedSize(wizard::kFormWidth, wizard::kFormHeight);
  setWindowFlag(Qt::WindowContextHelpButtonHint, false);
  build();
  form_.tree().setObserver(this);
  focusConnection_ =
      connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) {
        if (syncing_) return;
        auto it = controls_.find(now);
        if (it != controls_.end()) forward([&] { form_.userFocus(it->second); });
      });
  syncFromModel();
}

WizardDialog::~WizardDialog() {
  disconnect(focusConnection_);
  form_.tree().setObserver(nullptr);
}

void WizardDialog::build() {
  // Containers come before their contents in the form's list.
  for (const auto& owned : form_.controls()) {
    Control& c = *owned;
    if (widgets_.count(&c)) continue;
    QWidget* parent = this;
    if (!c.container.empty()) parent = widgets_.at(&form_.control(c.container, c.containerIndex));
    QWidget* w = nullptr;
    switch (c.kind) {
      case ControlKind::Frame: {
        auto* box = new QGroupBox(parent);
        box->setFlat(c.name == "fraStep");
        w = box;
        break;
      }
      case ControlKind::Label: {
        auto* label = new QLabel(parent);
        label->setWordWrap(true);
        label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
        if (c.name == "lblProgress") label->setAlignment(Qt::AlignHCenter | Qt::AlignBottom);
        w = label;
        break;
      }
      case ControlKind::CommandButton: {
        auto* button = new QPushButton(parent);
        button->setAutoDefault(false);
        connect(button, &QPushButton::clicked, this,
                [this, &c] { forward([&] { form_.userClick(c); }); });
        w = button;
        break;
      }
      case ControlKind::OptionButton: {
        auto* radio = new QRadioButton(parent);
        radio->setAutoExclusive(false);
        connect(radio, &QRadioButton::clicked, this,
                [this, &c] { forward([&] { form_.userClick(c); }); });
        w = radio;
        break;
      }
      case ControlKind::CheckBox: {
        auto* box = new QCheckBox(parent);
        connect(box, &QCheckBox::clicked, this,
                [this, &c] { forward([&] { form_.userClick(c); }); });
        w = box;
        break;
      }
      case ControlKind::TextBox: {
        auto* edit = new QLineEdit(parent);
        if (c.masked) edit->setEchoMode(QLineEdit::Password);
        connect(edit, &QLineEdit::textEdited, this, [this, &c](const QString& text) {
          forward([&] { form_.userType(c, text.toStdString()); });
        });
        w = edit;
        break;
      }
      case ControlKind::ComboBox: {
        auto* combo = new QComboBox(parent);
        connect(combo, &QComboBox::activated, this,
                [this](int index) { forward([&] { form_.userPick(index); }); });
        w = combo;
        break;
      }
      case ControlKind::TreeView: {
        tree_ = new QTreeWidget(parent);
        tree_->setHeaderHidden(true);
        tree_->setColumnCount(1);
        tree_->setUniformRowHeights(true);
        connect(tree_, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* it, int) {
          if (syncing_) return;
          int32_t index = it->data(0, Qt::UserRole).toInt();
          bool checked = it->checkState(0) == Qt::Checked;
          if (form_.tree().node(index).checked == checked) return;
          forward([&] { form_.userCheck(index, checked); });
        });
        w = tree_;
        break;
      }
      case ControlKind::ProgressBar:
        w = new QProgressBar(parent);
        break;
      case ControlKind::Image: {
        auto* picture = new QLabel(parent);
        picture->setPixmap(stepPicture(c.picture, c.width, c.height));
        w = picture;
        break;
      }
      case ControlKind::PictureBox:
        w = new QWidget(parent);
        break;
      case ControlKind::Line: {
        auto* line = new QFrame(parent);
        line->setFrameShape(QFrame::HLine);
        line->setFrameShadow(c.index == 0 ? QFrame::Sunken : QFrame::Plain);
        w = line;
        break;
      }
    }
    widgets_[&c] = w;
    controls_[w] = &c;
  }
}

void WizardDialog::controlsAdded() {
  std::map<const Control*, QWidget*> before = widgets_;
  build();
  // A control added later follows the one before it in its container in the tab order, not
  // the navigation buttons.
  std::map<std::pair<std::string, int32_t>, const Control*> lastIn;
  for (const auto& owned : form_.controls()) {
    const Control& c = *owned;
    const Control*& previous = lastIn[{c.container, c.containerIndex}];
    if (!before.count(&c) && previous) QWidget::setTabOrder(widgets_.at(previous), widgets_.at(&c));
    previous = &c;
  }
  syncFromModel();
}

void WizardDialog::forward(const std::function<void()>& action) {
  action();
  syncFromModel();
}

void WizardDialog::syncFromModel() {
  syncing_ = true;
  setWindowTitle(q(form_.caption()));
  for (auto& [c, w] : widgets_) {
    w->setGeometry(c->left, c->top, c->width, c->height);
    w->setEnabled(c->enabled);
    w->setVisible(c->visible);
    if (c->bold || c->fontSize) {
      QFont f = w->font();
      f.setBold(c->bold);
      if (c->fontSize) f.setPointSize(c->fontSize);
      w->setFont(f);
    }
    switch (c->kind) {
      case ControlKind::Frame:
        static_cast<QGroupBox*>(w)->setTitle(q(c->text));
        break;
      case ControlKind::Label:
        static_cast<QLabel*>(w)->setText(q(c->text));
        break;
      case ControlKind::CommandButton:
        static_cast<QPushButton*>(w)->setText(q(c->text));
        break;
      case ControlKind::OptionButton: {
        auto* radio = static_cast<QRadioButton*>(w);
        radio->setText(q(c->text));
        radio->setChecked(c->value);
        break;
      }
      case ControlKind::CheckBox: {
        auto* box = static_cast<QCheckBox*>(w);
        box->setText(q(c->text));
        box->setChecked(c->value);
        break;
      }
      case ControlKind::TextBox: {
        auto* edit = static_cast<QLineEdit*>(w);
        if (edit->text() != q(c->text)) edit->setText(q(c->text));
        break;
      }
      case ControlKind::ComboBox: {
        auto* combo = static_cast<QComboBox*>(w);
        bool same = combo->count() == static_cast<int>(c->items.size());
        for (int i = 0; same && i < combo->count(); ++i)
          same = combo->itemText(i) == q(c->items[static_cast<size_t>(i)].text);
        if (!same) {
          combo->clear();
          for (const auto& item : c->items) combo->addItem(q(item.text), item.itemData);
        }
        combo->setCurrentIndex(c->listIndex);
        break;
      }
      case ControlKind::ProgressBar: {
        auto* bar = static_cast<QProgressBar*>(w);
        bar->setRange(c->minimum, std::max(c->minimum, c->maximum));
        bar->setValue(std::clamp(c->progress, c->minimum, std::max(c->minimum, c->maximum)));
        break;
      }
      default:
        break;
    }
  }
  syncing_ = false;
}

QWidget* WizardDialog::widget(const std::string& name, int32_t index) const {
  return widgets_.at(&form_.control(name, index));
}

QTreeWidgetItem* WizardDialog::item(int32_t nodeIndex) const {
  if (nodeIndex < 1 || static_cast<size_t>(nodeIndex) > items_.size()) return nullptr;
  return items_[static_cast<size_t>(nodeIndex - 1)];
}

// ---- The tree.

QIcon WizardDialog::iconFor(int32_t image, int32_t selectedImage) {
  auto key = [&](int32_t i) -> QString {
    const auto& list = form_.tree().imageList();
    if (!list || i < 1 || i > list->count()) return {};
    return q(list->keys[static_cast<size_t>(i - 1)]);
  };
  QIcon icon = nodeIcon(key(image));
  if (selectedImage != image) {
    icon = QIcon(icon.pixmap(16, 16));
    icon.addPixmap(nodeIcon(key(selectedImage)).pixmap(16, 16), QIcon::Selected);
  }
  return icon;
}

void WizardDialog::applyNode(QTreeWidgetItem* it, const wizard::TreeNode& n) {
  bool was = syncing_;
  syncing_ = true;
  it->setCheckState(0, n.checked ? Qt::Checked : Qt::Unchecked);
  if (it->font(0).bold() != n.bold) {
    QFont f = it->font(0);
    f.setBold(n.bold);
    it->setFont(0, f);
  }
  if (it->isExpanded() != n.expanded) it->setExpanded(n.expanded);
  syncing_ = was;
}

void WizardDialog::treeCleared() {
  bool was = syncing_;
  syncing_ = true;
  tree_->clear();
  items_.clear();
  syncing_ = was;
}

void WizardDialog::nodeAdded(const wizard::TreeNode& n) {
  bool was = syncing_;
  syncing_ = true;
  auto* it = new QTreeWidgetItem();
  it->setText(0, q(n.text));
  it->setData(0, Qt::UserRole, n.index);
  it->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
  it->setIcon(0, iconFor(n.image, n.selectedImage));
  it->setCheckState(0, Qt::Unchecked);
  if (n.parent)
    item(n.parent)->addChild(it);
  else
    tree_->addTopLevelItem(it);
  items_.push_back(it);
  applyNode(it, n);
  syncing_ = was;
}

void WizardDialog::nodeChanged(const wizard::TreeNode& n) {
  if (QTreeWidgetItem* it = item(n.index)) applyNode(it, n);
}

void WizardDialog::selectionChanged(int32_t index) {
  bool was = syncing_;
  syncing_ = true;
  tree_->setCurrentItem(item(index));
  syncing_ = was;
}

// ---- The window.

void WizardDialog::showModal(const ObjectPtr& ownerWindow) {
  if (QWidget* owner = ownerWidget(ownerWindow); owner && owner != this) {
    setParent(owner, windowFlags() | Qt::Dialog);
  }
  syncFromModel();
  if (session) {
    show();
    QCoreApplication::processEvents();
    session();
    return;
  }
  setWindowModality(Qt::ApplicationModal);
  inModalLoop_ = true;
  exec();
  inModalLoop_ = false;
}

void WizardDialog::unload() {
  if (inModalLoop_)
    done(0);
  else
    hide();
}

void WizardDialog::refresh() {
  auto now = std::chrono::steady_clock::now();
  if (now - lastPaint_ < kPaintInterval) return;
  lastPaint_ = now;
  syncFromModel();
  QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

void WizardDialog::closeEvent(QCloseEvent* event) {
  if (form_.loaded()) form_.userClose();
  event->accept();
}

void WizardDialog::keyPressEvent(QKeyEvent* event) {
  forward([&] { form_.userKeyDown(event->key(), static_cast<int32_t>(event->modifiers())); });
  if (event->key() != Qt::Key_Escape) QDialog::keyPressEvent(event);
}

QtWizard::QtWizard() : dialog_(std::make_unique<WizardDialog>(*this)) {
  setView(dialog_.get());
}

QtWizard::~QtWizard() {
  setView(nullptr);
  dialog_.reset();
}

void registerQtWizard(std::function<void(QtWizard&)> setup) {
  platform::registerClass(kWizardFormClass, [setup] {
    auto form = std::make_shared<QtWizard>();
    if (setup) setup(*form);
    return form;
  });
}

}  // namespace dossync::qt
