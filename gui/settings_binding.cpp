#include "gui/settings_binding.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QSpinBox>
#include <QWidget>
#include <string>

#include "frame/settings_store.h"

namespace kelvor::gui {

namespace {

QString Q(const std::string& s) {
  return QString::fromStdString(s);
}

std::string Unwrap(std::string v) {
  if (v.size() >= 2 && v.front() == ':' && v.back() == ':') return v.substr(1, v.size() - 2);
  return v;
}

QAbstractButton* RadioOf(QWidget* root, const char* control, int index) {
  return root->findChild<QAbstractButton*>(QStringLiteral("%1(%2)").arg(control).arg(index));
}

int RadioCount(QWidget* root, const char* control) {
  int n = 0;
  while (RadioOf(root, control, n) != nullptr) ++n;
  return n;
}

// The stored value of radio button `index`: its index, or counted from the
// last button when the table says so (arg 1).
int RadioValue(const SettingBinding& b, int count, int index) {
  return b.arg == 1 ? count - 1 - index : index;
}

void LoadOne(QWidget* root, const SettingBinding& b, const SettingsStore& s) {
  if (b.kind == Bind::Radio) {
    const long long v = s.GetInt(b.section, b.key);
    const int count = RadioCount(root, b.control);
    for (int i = 0; i < count; ++i)
      RadioOf(root, b.control, i)->setChecked(RadioValue(b, count, i) == v);
    return;
  }
  QWidget* w = root->findChild<QWidget*>(QString::fromUtf8(b.control));
  if (w == nullptr) return;
  const std::string value = s.Get(b.section, b.key);
  if (auto* list = qobject_cast<QListWidget*>(w)) {
    for (int i = 0; i < list->count(); ++i) {
      bool on = false;
      if (b.kind == Bind::ItemDigits)
        on = i < static_cast<int>(value.size()) && value[i] == '1';
      else
        on = s.GetBool(b.section, std::string(b.key) + std::to_string(i + 1));
      list->item(i)->setCheckState(on ? Qt::Checked : Qt::Unchecked);
    }
  } else if (auto* group = qobject_cast<QGroupBox*>(w)) {
    group->setChecked(s.GetBool(b.section, b.key));
  } else if (auto* button = qobject_cast<QAbstractButton*>(w)) {
    const bool on = s.GetBool(b.section, b.key);
    button->setChecked(b.kind == Bind::Inverted ? !on : on);
  } else if (auto* edit = qobject_cast<QLineEdit*>(w)) {
    edit->setText(Q(b.kind == Bind::Colons ? Unwrap(value) : value));
  } else if (auto* combo = qobject_cast<QComboBox*>(w)) {
    if (combo->isEditable()) {
      combo->setCurrentText(Q(value));
    } else {
      const long long index = s.GetInt(b.section, b.key) - (b.kind == Bind::ComboShift ? b.arg : 0);
      combo->setCurrentIndex(index >= 0 && index < combo->count() ? static_cast<int>(index) : 0);
    }
  } else if (auto* spin = qobject_cast<QSpinBox*>(w)) {
    spin->setValue(static_cast<int>(
        std::clamp<long long>(s.GetInt(b.section, b.key), spin->minimum(), spin->maximum())));
  }
}

void StoreOne(QWidget* root, const SettingBinding& b, SettingsStore& s) {
  if (b.kind == Bind::Radio) {
    const int count = RadioCount(root, b.control);
    for (int i = 0; i < count; ++i)
      if (RadioOf(root, b.control, i)->isChecked())
        s.SetInt(b.section, b.key, RadioValue(b, count, i));
    return;
  }
  QWidget* w = root->findChild<QWidget*>(QString::fromUtf8(b.control));
  if (w == nullptr) return;
  if (auto* list = qobject_cast<QListWidget*>(w)) {
    std::string digits;
    for (int i = 0; i < list->count(); ++i) {
      const bool on = list->item(i)->checkState() == Qt::Checked;
      if (b.kind == Bind::ItemDigits)
        digits += on ? '1' : '0';
      else
        s.SetBool(b.section, std::string(b.key) + std::to_string(i + 1), on);
    }
    if (b.kind == Bind::ItemDigits) s.Set(b.section, b.key, digits);
  } else if (auto* group = qobject_cast<QGroupBox*>(w)) {
    s.SetBool(b.section, b.key, group->isChecked());
  } else if (auto* button = qobject_cast<QAbstractButton*>(w)) {
    s.SetBool(b.section, b.key,
              b.kind == Bind::Inverted ? !button->isChecked() : button->isChecked());
  } else if (auto* edit = qobject_cast<QLineEdit*>(w)) {
    const std::string text = edit->text().toStdString();
    s.Set(b.section, b.key, b.kind == Bind::Colons && !text.empty() ? ":" + text + ":" : text);
  } else if (auto* combo = qobject_cast<QComboBox*>(w)) {
    if (combo->isEditable())
      s.Set(b.section, b.key, combo->currentText().toStdString());
    else
      s.SetInt(b.section, b.key, combo->currentIndex() + (b.kind == Bind::ComboShift ? b.arg : 0));
  } else if (auto* spin = qobject_cast<QSpinBox*>(w)) {
    s.SetInt(b.section, b.key, spin->value());
  }
}

}  // namespace

void SettingsBinder::Load(const SettingsStore& s) const {
  for (const SettingBinding& b : table_) LoadOne(root_, b, s);
}

void SettingsBinder::Store(SettingsStore& s) const {
  for (const SettingBinding& b : table_) StoreOne(root_, b, s);
}

int SettingsBinder::MissingControls() const {
  int missing = 0;
  for (const SettingBinding& b : table_) {
    const bool found = b.kind == Bind::Radio
                           ? RadioOf(root_, b.control, 0) != nullptr
                           : root_->findChild<QWidget*>(QString::fromUtf8(b.control)) != nullptr;
    if (!found) ++missing;
  }
  return missing;
}

}  // namespace kelvor::gui
