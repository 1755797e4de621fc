#include <gtest/gtest.h>

#include <QApplication>

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer, window tests only. Qt converts and scales large images
// (a window's backing store) on a pool of its own threads and hands the work
// over through its own futex-based locks, which the sanitizer cannot see
// inside the uninstrumented Qt libraries: memory Qt allocates on one thread
// and frees on another is then reported. Only the calls of the allocator and
// the other intercepted functions made from within Qt are ignored; every
// access of Kelvor's own code is still checked.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libQt6Core.so.6\n"
         "called_from_lib:libQt6Gui.so.6\n";
}
#endif

// Window tests need one QApplication for the whole program; they run on the
// offscreen platform unless the environment names another.
int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
