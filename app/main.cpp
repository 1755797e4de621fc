#include <iostream>
#include <string>
#include <vector>

#include "gui/gui_main.h"
#include "headless/headless.h"

// One program, two faces: `--headless` (and --help, --version) run in the
// terminal, all else opens the windows.
int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  for (const std::string& a : args) {
    if (a == "--version") {
      std::cout << "kelvor " << KELVOR_VERSION << "\n";
      return 0;
    }
    if (a == "--headless" || a == "--help" || a == "-?") {
      return kelvor::RunHeadless(argv[0], args, std::cout, std::cerr);
    }
  }
  return kelvor::gui::RunGui(argc, argv);
}
