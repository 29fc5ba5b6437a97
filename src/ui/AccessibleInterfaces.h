#pragma once

namespace corvane {

// Makes the window's own controls usable through the accessibility bus: the
// main window is a frame named after the program, the header's menu buttons
// open their menus through their accessible actions and say what they show,
// and the pickers are named by what they choose, their current item being
// their value. Call once the application exists; later calls do nothing.
void installAccessibleInterfaces();

} // namespace corvane
