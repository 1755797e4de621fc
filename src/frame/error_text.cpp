#include "frame/error_text.h"

#include <cstring>

namespace kelvor {

std::string ErrorText(int err) {
  char buf[256];
  // GNU strerror_r returns the text, which need not be in buf.
  const char* s = strerror_r(err, buf, sizeof buf);
  return s ? std::string(s) : "error " + std::to_string(err);
}

std::string ErrorText(const std::error_code& ec) {
  if (ec.category() == std::system_category() || ec.category() == std::generic_category())
    return ErrorText(ec.value());
  return ec.message();
}

}  // namespace kelvor
