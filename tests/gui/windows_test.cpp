#include <gtest/gtest.h>

#include "gui/main_window.h"
#include "gui/search_window.h"
#include "support/temp_tree.h"

namespace kelvor::gui {
namespace {

TEST(Windows, CarryTheirDesignNames) {
  test::TempDir data;
  SessionOptions so;
  so.executable = ExecutablePath("kelvor");
  so.dataDir = data.path();
  so.env = Environment::FromProcess();
  MainWindow setup(so);
  SearchWindow results;
  EXPECT_EQ(setup.objectName(), "frmMain");
  EXPECT_EQ(results.objectName(), "frmDupSearch");
}

}  // namespace
}  // namespace kelvor::gui
