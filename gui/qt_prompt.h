#pragma once
// The questions of a long operation as dialogs: message boxes and input
// boxes. Safe from any thread: a call from the worker blocks it while the
// interface thread shows the dialog and hands the answer back.

#include <QObject>
#include <QPointer>
#include <QWidget>
#include <functional>
#include <memory>

#include "frame/sinks.h"

namespace kelvor::gui {

class QtPrompt final : public Prompt {
 public:
  // Dialogs are centred over `parent` while it lives (may be null).
  // Made on the interface thread.
  explicit QtPrompt(QWidget* parent = nullptr);
  ~QtPrompt() override;

  void Message(std::string_view text, MessageIcon icon) override;
  bool AskYesNo(std::string_view text) override;
  std::optional<std::string> Input(std::string_view prompt, std::string_view deflt) override;

 private:
  // Runs `job` on the interface thread; from another thread the caller waits
  // until it has run.
  void OnInterfaceThread(const std::function<void()>& job);

  QPointer<QWidget> parent_;
  // Receives the questions of other threads on the interface thread.
  std::unique_ptr<QObject> dispatcher_;
};

}  // namespace kelvor::gui
