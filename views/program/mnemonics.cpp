#include "views/program/mnemonics.h"

#include <QAbstractButton>
#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QToolButton>

namespace trovix::views {
namespace {

// `text` with "&" before the best letter not in `used` (which learns it).
QString WithMnemonic(const QString& text, QString* used) {
  if (text.isEmpty()) return text;
  if (QChar taken = MnemonicOf(text); !taken.isNull()) {
    used->append(taken);
    return text;
  }
  int best = -1;
  // First choice: a word's first letter; then any letter or digit; then a shared first letter.
  for (int pass = 0; pass < 3 && best < 0; ++pass) {
    for (int i = 0; i < text.size(); ++i) {
      const QChar c = text[i];
      if (!c.isLetterOrNumber() || c == QLatin1Char('&')) continue;
      if (pass == 0 && i > 0 && text[i - 1].isLetterOrNumber()) continue;
      if (pass < 2 && used->contains(c.toLower())) continue;
      best = i;
      break;
    }
  }
  if (best < 0) return text;  // no letter at all ("..."): nothing to underline
  used->append(text[best].toLower());
  QString out = text;
  out.insert(best, QLatin1Char('&'));
  return out;
}

// The mnemonics the buttons and labels of `window` already use.
QString UsedIn(QWidget* window) {
  QString used;
  for (QAbstractButton* b : window->findChildren<QAbstractButton*>())
    if (QChar c = MnemonicOf(b->text()); !c.isNull()) used.append(c);
  for (QLabel* l : window->findChildren<QLabel*>())
    if (QChar c = MnemonicOf(l->text()); !c.isNull() && l->buddy()) used.append(c);
  return used;
}

}  // namespace

void GiveMnemonics(QWidget* widget) {
  QWidget* window = widget->window();
  QString used = UsedIn(window);
  for (QAbstractButton* b : window->findChildren<QAbstractButton*>()) {
    // Tool buttons show icons or marks ("...", an arrow), reached by Tab and named for readers.
    if (qobject_cast<QToolButton*>(b)) continue;
    const QString before = b->text();
    const QString after = WithMnemonic(before, &used);
    if (after == before) continue;
    // The name a screen reader says stays the plain word.
    if (b->accessibleName().isEmpty())
      b->setAccessibleName(QString(before).remove(QLatin1Char('&')));
    b->setText(after);
  }
}

QChar MnemonicOf(const QString& text) {
  for (int i = 0; i + 1 < text.size(); ++i) {
    if (text[i] != QLatin1Char('&')) continue;
    if (text[i + 1] == QLatin1Char('&')) {
      ++i;
      continue;
    }
    return text[i + 1].toLower();
  }
  return QChar();
}

QString EscapeMnemonics(const QString& text) {
  return QString(text).replace(QLatin1Char('&'), QStringLiteral("&&"));
}

void GiveMnemonics(QMenu* menu) {
  QString used;
  for (QAction* a : menu->actions())
    if (QChar c = MnemonicOf(a->text()); !c.isNull()) used.append(c);
  for (QAction* a : menu->actions()) {
    if (a->isSeparator()) continue;
    const QString text = WithMnemonic(a->text(), &used);
    if (text != a->text()) a->setText(text);
    if (a->menu() && a->menu() != menu) GiveMnemonics(a->menu());
  }
}

}  // namespace trovix::views
