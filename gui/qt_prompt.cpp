#include "gui/qt_prompt.h"

#include <QApplication>
#include <QInputDialog>
#include <QMessageBox>
#include <QThread>

namespace kelvor::gui {

namespace {

// Runs `f` on the interface thread and returns its value; from the worker the
// call waits until the dialog is answered.
template <class F>
auto OnInterfaceThread(F f) -> decltype(f()) {
  QCoreApplication* app = QCoreApplication::instance();
  if (app == nullptr || QThread::currentThread() == app->thread()) return f();
  decltype(f()) result{};
  QMetaObject::invokeMethod(
      app, [&] { result = f(); }, Qt::BlockingQueuedConnection);
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
