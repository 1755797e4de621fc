#include <iostream>
#include <string>
#include <vector>

#include "headless/headless.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return kelvor::RunHeadless(argv[0], args, std::cout, std::cerr);
}
