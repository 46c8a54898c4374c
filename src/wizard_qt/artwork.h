// The wizard's pictures, drawn at run time: the four step pictures (144 x 284, one per step,
// numbered 1 to 4 in step order) and the tree's node icons by image-list key ("company",
// "contact", "default-contact", "contact-open", "category"; anything else draws a blank).
#pragma once

#include <QIcon>
#include <QPixmap>
#include <QString>

namespace dossync::qt {

QPixmap stepPicture(int number, int width = 144, int height = 284);
QIcon nodeIcon(const QString& key);

}  // namespace dossync::qt
