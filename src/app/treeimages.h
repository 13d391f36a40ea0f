#pragma once
// The folder tree's image list: 29 small pictures drawn in code, so they stay crisp at any scale.
//   1 repository root, 2 site, 3 cabinet, 4-14 folders in eleven colours, 15 recycle bin,
//   16 administration, 17-27 archived folders (same colours, 18 drawn though never chosen),
//   28 archived site, 29 archived cabinet.
// Archived pictures wear a faded sepia body and a brown archive box in the lower right corner,
// so they stand apart from the live ones at a glance.

#include <QIcon>
#include <QPixmap>

namespace app {

namespace TreeImages {

// The picture for a 1-based image index; a null icon for 0 or anything out of range.
QIcon icon(int index);
// One rendering of a picture, side pixels square (drawn, not scaled).
QPixmap pixmap(int index, int side);
// Whether a picture is one of the archive variants.
bool isArchive(int index);

} // namespace TreeImages

} // namespace app
