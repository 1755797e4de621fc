#include <gtest/gtest.h>

#include "gui/main_window.h"
#include "gui/search_window.h"

namespace kelvor::gui {
namespace {

TEST(Windows, CarryTheirDesignNames) {
  MainWindow setup;
  SearchWindow results;
  EXPECT_EQ(setup.objectName(), "frmMain");
  EXPECT_EQ(results.objectName(), "frmDupSearch");
}

}  // namespace
}  // namespace kelvor::gui
