#include "wizard/tree_view.h"

namespace dossync::wizard {

TreeNode& TreeView::add(const std::string& relative, int32_t relationship, const std::string& key,
                        const std::string& text, int32_t image, int32_t selectedImage) {
  int32_t parent = 0;
  if (!relative.empty()) {
    if (relationship != tvwChild)
      throw RuntimeError(kInvalidProcedureCall, "Only child nodes can be added relative to a node");
    auto it = byKey_.find(relative);
    if (it == byKey_.end())
      throw RuntimeError(kTreeElementNotFound, "Element not found: '" + relative + "'");
    parent = it->second;
  }
  if (!key.empty() && byKey_.count(key))
    throw RuntimeError(kTreeKeyNotUnique, "Key is not unique in collection: '" + key + "'");

  TreeNode n;
  n.index = count() + 1;
  n.key = key;
  n.text = text;
  n.image = image;
  n.selectedImage = selectedImage;
  n.parent = parent;
  std::vector<int32_t>& siblings = parent ? nodes_[parent - 1].children : topLevel_;
  n.position = static_cast<int32_t>(siblings.size());
  siblings.push_back(n.index);
  if (!key.empty()) byKey_.emplace(key, n.index);
  nodes_.push_back(std::move(n));
  TreeNode& added = nodes_.back();
  if (observer_) observer_->nodeAdded(added);
  return added;
}

void TreeView::clear() {
  nodes_.clear();
  topLevel_.clear();
  byKey_.clear();
  selected_ = 0;
  if (observer_) observer_->treeCleared();
}

TreeNode& TreeView::node(int32_t index) {
  if (index < 1 || index > count())
    throw RuntimeError(kTreeIndexOutOfBounds, "Index out of bounds: " + std::to_string(index));
  return nodes_[index - 1];
}

const TreeNode& TreeView::node(int32_t index) const {
  return const_cast<TreeView*>(this)->node(index);
}

TreeNode* TreeView::find(const std::string& key) {
  auto it = byKey_.find(key);
  return it == byKey_.end() ? nullptr : &nodes_[it->second - 1];
}

const std::vector<int32_t>& TreeView::siblingsOf(const TreeNode& n) const {
  return n.parent ? nodes_[n.parent - 1].children : topLevel_;
}

int32_t TreeView::child(int32_t index) const {
  const TreeNode& n = node(index);
  return n.children.empty() ? 0 : n.children.front();
}

int32_t TreeView::next(int32_t index) const {
  const TreeNode& n = node(index);
  const auto& s = siblingsOf(n);
  size_t p = static_cast<size_t>(n.position) + 1;
  return p < s.size() ? s[p] : 0;
}

int32_t TreeView::lastSibling(int32_t index) const {
  return siblingsOf(node(index)).back();
}

void TreeView::setChecked(int32_t index, bool checked) {
  TreeNode& n = node(index);
  if (n.checked == checked) return;
  n.checked = checked;
  if (observer_) observer_->nodeChanged(n);
}

void TreeView::setExpanded(int32_t index, bool expanded) {
  TreeNode& n = node(index);
  if (n.expanded == expanded) return;
  n.expanded = expanded;
  if (observer_) observer_->nodeChanged(n);
}

void TreeView::setBold(int32_t index, bool bold) {
  TreeNode& n = node(index);
  if (n.bold == bold) return;
  n.bold = bold;
  if (observer_) observer_->nodeChanged(n);
}

void TreeView::select(int32_t index) {
  if (index) node(index);  // range check
  if (selected_ == index) return;
  selected_ = index;
  if (observer_) observer_->selectionChanged(index);
}

}  // namespace dossync::wizard
