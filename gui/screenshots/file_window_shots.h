#pragma once

#include <QString>
#include <QStringList>

namespace kelvor::gui {

// Pictures of the file manager as it opens with the trash chosen
// ("file-manager.png") and after a dry run of it over a copy of
// `sampleTree` ("file-manager-dry-run.png"), and of the export window with
// CSV chosen ("export.png"), written as PNG files into `dir`. Returns the
// files written; problems go to *error.
QStringList TakeFileWindowShots(const QString& dir, const QString& sampleTree, QString* error);

}  // namespace kelvor::gui
