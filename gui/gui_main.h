#pragma once

namespace kelvor::gui {

// Opens the setup window and runs the event loop. Without a display it says
// so on standard error and returns 1.
int RunGui(int argc, char** argv);

}  // namespace kelvor::gui
