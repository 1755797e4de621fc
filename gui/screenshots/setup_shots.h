#pragma once

#include <QString>

namespace kelvor::gui {

// PNGs of the setup window in its states, written into `dir`; `sample` is
// the folder the window lists. `dataDir` holds the window's settings.
// Returns the number of pictures written.
int TakeSetupShots(const QString& dir, const QString& sample, const QString& dataDir);

}  // namespace kelvor::gui
