#pragma once
// The one way an error number becomes text in a message. Every layer uses it
// (the file-system layer of data/ too), so that a failure reads the same in
// the run log, a message box and a test, on every thread.

#include <string>
#include <system_error>

namespace kelvor {

// The system's text for an errno value ("Permission denied", ...).
// Thread-safe: worker threads report read failures with it.
std::string ErrorText(int err);
// The same for an error code from std::filesystem (the system's errno, whose
// text is the same as above); codes of other categories give their message.
std::string ErrorText(const std::error_code& ec);

}  // namespace kelvor
