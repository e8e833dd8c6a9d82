#include "views/frame/settings_dialog.h"

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QSpinBox>

#include <utility>
#include <vector>

#include "engine/extraction/contents_reader.h"
#include "engine/walk/folder_walk.h"
#include "views/program/mnemonics.h"

namespace trovix::views {

bool EditSettings(QWidget* parent, app::Settings* settings) {
  app::Settings& s = *settings;
  QDialog dialog(parent);
  dialog.setWindowTitle("Settings");
  auto* form = new QFormLayout(&dialog);
  struct Flag {
    const char* text;
    uint32_t bit;
    uint32_t* word;
  };
  const Flag flags[] = {
      {"Sort folders first", kFlagSortFoldersFirst, &s.binFlags},
      {"Natural number sort", kFlagNaturalSort, &s.binFlags},
      {"Search hidden folders", engine::kFlagSearchHidden, &s.binFlags},
      {"Follow junctions and symbolic links", engine::kFlagFollowLinks, &s.binFlags},
      {"Enter virtual folders", engine::kFlagEnterVirtualFolders, &s.binFlags},
      {"Never use the index", engine::kFlagNeverUseIndex, &s.binFlags},
      {"Talk enabled", kFlagTalkEnabled, &s.binFlags},
      {"Read the file inside compressed files (.gz, .bz2, .xz, .zst)", engine::kSearchFlagSearchZip,
       &s.binSearchFlags},
  };
  std::vector<std::pair<QCheckBox*, const Flag*>> boxes;
  for (const Flag& f : flags) {
    auto* box = new QCheckBox(f.text, &dialog);
    box->setAccessibleName(f.text);
    box->setChecked((*f.word & f.bit) != 0);
    if (f.bit == kFlagTalkEnabled) box->setToolTip("Use computer speech for common error messages instead of messageboxes");
    form->addRow(box);
    boxes.emplace_back(box, &f);
  }
  auto* jump = new QSpinBox(&dialog);
  jump->setRange(0, 12);
  jump->setValue(s.nCharsAutoFilter);
  jump->setAccessibleName("Jump after character #");
  jump->setToolTip("After this many letters are typed in the view, jump to autofilter box (0 to disable automatic jump)");
  form->addRow("Jump after character #", jump);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
  form->addRow(buttons);
  GiveMnemonics(buttons);
  QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
  QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
  if (dialog.exec() != QDialog::Accepted) return false;
  for (auto& [box, f] : boxes) *f->word = box->isChecked() ? (*f->word | f->bit) : (*f->word & ~f->bit);
  s.nCharsAutoFilter = jump->value();
  return true;
}

}  // namespace trovix::views
