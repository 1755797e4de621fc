#pragma once
// Binds the controls of a window to settings keys by a table: each row names
// a control (its object name), a section and a key, and how the value is
// kept. Load puts the store's values into the controls, Store writes the
// controls back, so a window's state is the state of its settings file.

#include <span>

class QWidget;

namespace kelvor {
class SettingsStore;
}

namespace kelvor::gui {

enum class Bind {
  Auto,        // by the control: check box or checkable group "0"/"1", line
               // edit text, combo box index (an editable one its text),
               // spin box number
  Inverted,    // a check box whose stored "0" means checked
  Colons,      // a line edit kept between two ":" so that blanks survive
  ComboShift,  // a combo box whose first item stands for the stored `arg`
  Radio,       // radio buttons "<control>(0)", "<control>(1)", ...: the index
               // of the one checked (arg 1: counted from the last button)
  ItemKeys,    // a check list: item n (from 1) under key + n, "0"/"1"
  ItemDigits,  // a check list: one "0"/"1" digit per item in one key
};

struct SettingBinding {
  const char* control;
  const char* section;
  const char* key;
  Bind kind = Bind::Auto;
  int arg = 0;
};

class SettingsBinder {
 public:
  SettingsBinder(QWidget* root, std::span<const SettingBinding> table)
      : root_(root), table_(table) {}

  void Load(const SettingsStore& s) const;
  void Store(SettingsStore& s) const;
  // Object names of the table that the window lacks (none in a sound table).
  int MissingControls() const;

 private:
  QWidget* root_;
  std::span<const SettingBinding> table_;
};

}  // namespace kelvor::gui
