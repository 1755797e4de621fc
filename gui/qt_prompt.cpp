#include "gui/qt_prompt.h"

#include <QApplication>
#include <QInputDialog>
#include <QMessageBox>
#include <QThread>
#include <condition_variable>
#include <mutex>

namespace kelvor::gui {

namespace {

// A question of another thread, posted to the interface thread as an event.
// The worker waits on the call's own mutex and condition, so that the
// hand-over between the threads is plain to see (also to the thread
// sanitizer) and rests on no lock hidden inside Qt.
struct Call {
  std::mutex m;
  std::condition_variable cv;
  std::function<void()> job;
  bool done = false;
};

QEvent::Type AskEventType() {
  static const QEvent::Type type = static_cast<QEvent::Type>(QEvent::registerEventType());
  return type;
}

class AskEvent final : public QEvent {
 public:
  explicit AskEvent(Call* c) : QEvent(AskEventType()), call(c) {}
  Call* call;
};

class Dispatcher final : public QObject {
 public:
  bool event(QEvent* e) override {
    if (e->type() != AskEventType()) return QObject::event(e);
    Call* call = static_cast<AskEvent*>(e)->call;
    std::function<void()> job;
    {
      std::lock_guard<std::mutex> lock(call->m);
      job = call->job;
    }
    job();
    // Told under the lock: the waiting thread owns the call and ends it as
    // soon as it sees `done`.
    std::lock_guard<std::mutex> lock(call->m);
    call->done = true;
    call->cv.notify_all();
    return true;
  }
};

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

QtPrompt::QtPrompt(QWidget* parent)
    : parent_(parent), dispatcher_(std::make_unique<Dispatcher>()) {}

QtPrompt::~QtPrompt() = default;

void QtPrompt::OnInterfaceThread(const std::function<void()>& job) {
  QCoreApplication* app = QCoreApplication::instance();
  if (app == nullptr || QThread::currentThread() == dispatcher_->thread()) {
    job();
    return;
  }
  Call call;
  {
    std::lock_guard<std::mutex> lock(call.m);
    call.job = job;
  }
  QCoreApplication::postEvent(dispatcher_.get(), new AskEvent(&call));
  std::unique_lock<std::mutex> lock(call.m);
  call.cv.wait(lock, [&] { return call.done; });
}

void QtPrompt::Message(std::string_view text, MessageIcon icon) {
  const QString t = Q(text);
  OnInterfaceThread([&] {
    QMessageBox box(BoxIcon(icon), QApplication::applicationDisplayName(), t, QMessageBox::Ok,
                    parent_.data());
    box.exec();
  });
}

bool QtPrompt::AskYesNo(std::string_view text) {
  const QString t = Q(text);
  bool yes = false;
  OnInterfaceThread([&] {
    yes = QMessageBox::question(parent_.data(), QApplication::applicationDisplayName(), t,
                                QMessageBox::Yes | QMessageBox::No,
                                QMessageBox::Yes) == QMessageBox::Yes;
  });
  return yes;
}

std::optional<std::string> QtPrompt::Input(std::string_view prompt, std::string_view deflt) {
  const QString p = Q(prompt), d = Q(deflt);
  std::optional<std::string> typed;
  OnInterfaceThread([&] {
    bool ok = false;
    const QString answer = QInputDialog::getText(
        parent_.data(), QApplication::applicationDisplayName(), p, QLineEdit::Normal, d, &ok);
    if (ok) typed = answer.toStdString();
  });
  return typed;
}

}  // namespace kelvor::gui
