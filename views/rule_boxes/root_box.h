// The root-folder box of the search panel: an editable list of the frequently used folders
// (most used first) and a button that opens the folder chooser. Several roots may be typed
// joined by "|"; the search driver splits them. Enter in the box is left to the panel, which
// starts the search.
//
// UI thread only.
#pragma once

#include <QString>
#include <QWidget>
#include <vector>

#include "app/settings/saved_lists.h"

class QComboBox;
class QToolButton;

namespace trovix::views {

class RootBox : public QWidget {
  Q_OBJECT
 public:
  explicit RootBox(QWidget* parent = nullptr);

  QString Text() const;
  void SetText(const QString& text);
  // Replaces the drop-down's entries; the typed text stays.
  void SetFrequentFolders(const std::vector<app::FrequentFolder>& folders);

  QComboBox* combo() const { return combo_; }
  QToolButton* browseButton() const { return browse_; }

 signals:
  void edited();

 private:
  void Browse();

  QComboBox* combo_;
  QToolButton* browse_;
};

// The folders in the order the drop-down offers them: most used first, equal counts in list
// order; entries with an empty text or a count below 1 are left out.
std::vector<app::FrequentFolder> FoldersByUse(std::vector<app::FrequentFolder> folders);

}  // namespace trovix::views
