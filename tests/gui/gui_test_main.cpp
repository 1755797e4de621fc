#include <gtest/gtest.h>

#include <QApplication>
#include <QThreadPool>

#if defined(__SANITIZE_THREAD__)
// The thread sanitizer in the window tests. Qt is not built with it and its
// locks are futexes it cannot see, so memory that Qt hands between its own
// threads (fonts, images and a window's backing store are converted and
// scaled on Qt's thread pool) looks unsynchronised. Left out: reports with
// Qt's GUI library in a stack, the allocator and the other intercepted calls
// made from within Qt Core and Qt Gui, Qt Core's pool hand-overs by name,
// and the pool's threads ended by Qt at the program's exit. Every access of
// Kelvor's own code is still checked: the window's code that meets the
// search worker runs in Qt Core and Qt Widgets frames, not in these.
// glibc's time zone state is guarded by a lock of glibc's own, which the
// sanitizer does not see either: local-time conversions on a worker (the
// trash's deletion date) and on the interface thread are both safe.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libQt6Core.so.6\n"
         "called_from_lib:libQt6Gui.so.6\n"
         "race:libQt6Gui.so.6\n"
         "race:QRunnable::create\n"
         "race:QThreadPool\n"
         "race:QWaitCondition::~QWaitCondition\n"
         "race:tzset_internal\n";
}
#endif

// Window tests need one QApplication for the whole program; they run on the
// offscreen platform unless the environment names another.
int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  // Qt's own background work (its global thread pool) on one thread: the
  // thread sanitizer cannot see Qt's locks, and one pooled thread leaves it
  // nothing of Qt's to mistake for a race between two of them.
  QThreadPool::globalInstance()->setMaxThreadCount(1);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
