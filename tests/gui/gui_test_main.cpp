#include <gtest/gtest.h>

#include <QApplication>
#include <QThreadPool>

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
