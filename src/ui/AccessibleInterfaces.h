#pragma once

namespace corvane {

// Makes the window's own controls usable through the accessibility bus: the
// main window is a frame named after the program, the header's menu buttons
// open their menus through their accessible actions and say what they show,
// and the pickers are named by what they choose, their current item being
// their value. Call before such a control exists: an interface, once made,
// is kept for the object's life. Later calls do nothing.
void installAccessibleInterfaces();

} // namespace corvane
