// A tree view control with check boxes, independent of any toolkit: nodes with a unique key,
// text, image and selected image (indices into the attached image list), check mark, expanded,
// bold and selected states. Nodes are numbered from 1 in the order they were added, which is
// the order "each node of the tree" walks them.
//
// add() takes the key of the node the new one is placed relative to and the relationship;
// only tvwChild (4) is used, and an empty relative key places the node at the top level.
// A missing relative is RuntimeError 35601, a key already present RuntimeError 35602: the
// control refuses the node and nothing is added.
//
// A view observes the tree (ITreeObserver) to mirror it: it is told when the tree is cleared,
// when a node is added and when a node's state changes. Setting a state to the value it has
// already tells nobody. Only one node is selected at a time.
// Thread use: the apartment's one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "wizard/controls.h"

namespace dossync::wizard {

enum TreeRelationship : int32_t {
  tvwFirst = 0,
  tvwLast = 1,
  tvwNext = 2,
  tvwPrevious = 3,
  tvwChild = 4
};

inline constexpr int32_t kTreeIndexOutOfBounds = 35600;
inline constexpr int32_t kTreeElementNotFound = 35601;
inline constexpr int32_t kTreeKeyNotUnique = 35602;

struct TreeNode {
  int32_t index = 0;  // 1-based
  std::string key, text;
  int32_t image = 0, selectedImage = 0;
  bool checked = false, expanded = false, bold = false;
  int32_t parent = 0;    // 0: top level
  int32_t position = 0;  // place among its parent's children
  std::vector<int32_t> children;
};

class ITreeObserver {
 public:
  virtual ~ITreeObserver() = default;
  virtual void treeCleared() = 0;
  virtual void nodeAdded(const TreeNode& node) = 0;
  virtual void nodeChanged(const TreeNode& node) = 0;
  virtual void selectionChanged(int32_t index) = 0;  // 0: nothing selected
};

class TreeView {
 public:
  TreeNode& add(const std::string& relative, int32_t relationship, const std::string& key,
                const std::string& text, int32_t image = 0, int32_t selectedImage = 0);
  void clear();

  int32_t count() const { return static_cast<int32_t>(nodes_.size()); }
  // 1-based; RuntimeError 35600 outside 1..count.
  TreeNode& node(int32_t index);
  const TreeNode& node(int32_t index) const;
  // The node with that key, or nullptr.
  TreeNode* find(const std::string& key);
  const std::vector<int32_t>& topLevel() const { return topLevel_; }

  // Navigation as the control offers it; 0 when there is no such node.
  int32_t child(int32_t index) const;
  int32_t next(int32_t index) const;
  int32_t lastSibling(int32_t index) const;
  int32_t childCount(int32_t index) const {
    return static_cast<int32_t>(node(index).children.size());
  }

  void setChecked(int32_t index, bool checked);
  void setExpanded(int32_t index, bool expanded);
  void setBold(int32_t index, bool bold);
  void select(int32_t index);  // 0 clears the selection
  int32_t selectedIndex() const { return selected_; }

  void setImageList(std::shared_ptr<ImageList> images) { imageList_ = std::move(images); }
  const std::shared_ptr<ImageList>& imageList() const { return imageList_; }
  void setIndentation(int32_t pixels) { indentation_ = pixels; }
  int32_t indentation() const { return indentation_; }

  void setObserver(ITreeObserver* observer) { observer_ = observer; }

 private:
  const std::vector<int32_t>& siblingsOf(const TreeNode& n) const;

  std::vector<TreeNode> nodes_;
  std::vector<int32_t> topLevel_;
  std::unordered_map<std::string, int32_t> byKey_;
  int32_t selected_ = 0;
  std::shared_ptr<ImageList> imageList_;
  int32_t indentation_ = 19;
  ITreeObserver* observer_ = nullptr;
};

}  // namespace dossync::wizard
