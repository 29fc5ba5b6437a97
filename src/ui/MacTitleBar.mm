#include "MacTitleBar.h"

#include <QWidget>

#import <AppKit/AppKit.h>

namespace corvane {

void extendUnderTitleBar(QWidget& window)
{
    // winId() creates the native window; a top-level widget's view is the
    // content view of its NSWindow.
    NSView* view = reinterpret_cast<NSView*>(window.winId());
    NSWindow* nsWindow = view.window;
    if (nsWindow == nil)
        return;
    nsWindow.styleMask |= NSWindowStyleMaskFullSizeContentView;
    nsWindow.titlebarAppearsTransparent = YES;
    nsWindow.titleVisibility = NSWindowTitleHidden;
}

} // namespace corvane
