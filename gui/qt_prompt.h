#pragma once
// The questions of a long operation as dialogs: message boxes and input
// boxes. Safe from any thread: a call from the worker blocks it while the
// interface thread shows the dialog and hands the answer back.

#include <QPointer>
#include <QWidget>

#include "frame/sinks.h"

namespace kelvor::gui {

class QtPrompt final : public Prompt {
 public:
  // Dialogs are centred over `parent` while it lives (may be null).
  explicit QtPrompt(QWidget* parent = nullptr) : parent_(parent) {}

  void Message(std::string_view text, MessageIcon icon) override;
  bool AskYesNo(std::string_view text) override;
  std::optional<std::string> Input(std::string_view prompt, std::string_view deflt) override;

 private:
  QPointer<QWidget> parent_;
};

}  // namespace kelvor::gui
