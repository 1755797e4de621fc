#include "gui/qt_prompt.h"

#include <QApplication>
#include <QInputDialog>
#include <QMessageBox>
#include <QThread>
#include <mutex>

namespace kelvor::gui {

namespace {

// Runs `f` on the interface thread and returns its value; from the worker the
// call waits until the dialog is answered. The question and the answer pass
// under a mutex of their own, so that the hand-over between the threads is
// plain to see (also to the thread sanitizer) and does not rest on Qt's
// event queue alone.
template <class F>
auto OnInterfaceThread(F f) -> decltype(f()) {
  QCoreApplication* app = QCoreApplication::instance();
  if (app == nullptr || QThread::currentThread() == app->thread()) return f();
  std::mutex handOver;
  decltype(f()) result{};
  {
    std::lock_guard<std::mutex> lock(handOver);  // f's captures are complete
  }
  QMetaObject::invokeMethod(
      app,
      [&] {
        {
          std::lock_guard<std::mutex> lock(handOver);  // the question as the worker made it
        }
        auto answer = f();
        std::lock_guard<std::mutex> lock(handOver);
        result = std::move(answer);
      },
      Qt::BlockingQueuedConnection);
  std::lock_guard<std::mutex> lock(handOver);
  return result;
}

QString Q(std::string_view s) {
  return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

QMessageBox::Icon BoxIcon(MessageIcon icon) {
  switch (icon) {
    case MessageIcon::Information:
      return QMessageBox::Information;
    case MessageIcon::Exclamation:
      return QMessageBox::Warning;
    case MessageIcon::Critical:
      return QMessageBox::Critical;
    case MessageIcon::Question:
      return QMessageBox::Question;
  }
  return QMessageBox::NoIcon;
}

}  // namespace

void QtPrompt::Message(std::string_view text, MessageIcon icon) {
  const QString t = Q(text);
  OnInterfaceThread([&] {
    QMessageBox box(BoxIcon(icon), QApplication::applicationDisplayName(), t, QMessageBox::Ok,
                    parent_.data());
    box.exec();
    return 0;
  });
}

bool QtPrompt::AskYesNo(std::string_view text) {
  const QString t = Q(text);
  return OnInterfaceThread([&] {
    return QMessageBox::question(parent_.data(), QApplication::applicationDisplayName(), t,
                                 QMessageBox::Yes | QMessageBox::No,
                                 QMessageBox::Yes) == QMessageBox::Yes;
  });
}

std::optional<std::string> QtPrompt::Input(std::string_view prompt, std::string_view deflt) {
  const QString p = Q(prompt), d = Q(deflt);
  return OnInterfaceThread([&]() -> std::optional<std::string> {
    bool ok = false;
    const QString answer = QInputDialog::getText(
        parent_.data(), QApplication::applicationDisplayName(), p, QLineEdit::Normal, d, &ok);
    if (!ok) return std::nullopt;
    return answer.toStdString();
  });
}

}  // namespace kelvor::gui
