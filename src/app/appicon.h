#pragma once
// The application's icon, drawn in code after resources/icons/parcelwise.svg (a folder with an
// arrow into it), so the window has its icon even where no SVG reader is installed.

#include <QIcon>

namespace app {

namespace AppIcon {
QIcon icon();
} // namespace AppIcon

} // namespace app
