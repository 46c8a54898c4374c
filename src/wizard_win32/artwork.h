// The wizard's pictures drawn with GDI at run time, at any size (the window's DPI): the four
// step pictures (designed at 144 x 284, numbered 1 to 4 in step order) and the tree's node
// icons by image-list key ("company", "contact", "default-contact", "contact-open",
// "category"; anything else draws nothing). Shapes are drawn four times larger and averaged
// down, which smooths their edges.
// The caller owns the bitmaps (DeleteObject). Any thread.
#pragma once

#include <windows.h>

#include <string>

namespace dossync::win32ui {

// A top-down 32-bit DIB section, opaque.
HBITMAP stepPicture(int number, int width, int height);

struct IconBitmaps {
  HBITMAP color = nullptr;  // 32-bit DIB section, premultiplied alpha, black where transparent
  HBITMAP mask = nullptr;   // monochrome, 1 where transparent (for image lists without alpha)
};
// A square icon of side `size`.
IconBitmaps nodeIcon(const std::string& key, int size);

}  // namespace dossync::win32ui
