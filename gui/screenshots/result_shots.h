#pragma once

#include <QString>
#include <QStringList>

namespace kelvor::gui {

// Pictures of the results window for review, written as PNG files into
// `dir`: a search standing in its pause ("results-running.png"), the result
// of a content search of `sampleTree` with marks ("results-marks.png"), and
// its column menu open ("results-column-menu.png"). Searches run in a
// temporary data folder. Returns the files written; problems go to *error.
QStringList TakeResultShots(const QString& dir, const QString& sampleTree, QString* error);

}  // namespace kelvor::gui
