// The wizard's controls as plain model objects: what a form designer would hold for each
// control (name, array index, caption or text, enabled, visible, position and size in
// pixels, font) plus the value each kind carries (an option button's value, a combo box's
// entries and selection, a progress bar's range and value, a picture's number).
//
// The form (wizard_form.h) owns its controls and changes them only from its procedures; a view
// (the Qt dialog, or nothing at all in tests) renders them and forwards the user's actions back
// to the form. Positions are relative to the control's container; a frame moved to the left
// edge -10000 is off-screen, which is how the form hides the steps it is not on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/object.h"

namespace dossync::wizard {

enum class ControlKind {
  Frame,
  Label,
  CommandButton,
  OptionButton,
  CheckBox,
  TextBox,
  ComboBox,
  TreeView,
  ProgressBar,
  Image,
  PictureBox,
  Line,
};

// Error raised when code reaches an element of a control array that does not exist.
inline constexpr int32_t kControlArrayElementMissing = 340;

struct ComboItem {
  std::string text;
  int32_t itemData = 0;
};

struct Control {
  std::string name;
  int32_t index = -1;  // -1: not part of a control array
  ControlKind kind = ControlKind::Label;
  std::string container;  // "" for the form itself
  int32_t containerIndex = -1;

  std::string text;  // caption of labels, frames, buttons; text of text boxes
  bool enabled = true;
  bool visible = true;
  int32_t left = 0, top = 0, width = 0, height = 0;
  bool bold = false;
  int32_t fontSize = 0;  // 0: the form's font
  bool focusable = false;
  bool masked = false;  // text box showing its text as bullets

  bool value = false;  // option button, check box

  std::vector<ComboItem> items;  // combo box
  int32_t listIndex = -1;

  int32_t minimum = 0, maximum = 100, progress = 0;  // progress bar

  int32_t picture = 0;  // image: which step picture (1 to 4)

  // "fraStep(0)", "Label1".
  std::string fullName() const {
    return index < 0 ? name : name + "(" + std::to_string(index) + ")";
  }
};

// The images of the tree, by their 1-based index. Which picture an index shows is the host's
// choice; the view draws one icon per key.
class ImageList : public Object {
 public:
  std::vector<std::string> keys;
  int32_t count() const { return static_cast<int32_t>(keys.size()); }
};

}  // namespace dossync::wizard
