#pragma once

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <functional>
#include <string>

/// The last of the windows right below the root whose title `isWanted`; 0 when there is none.
inline Window findWindow(Display* display, const std::function<bool(const std::string& title)>& isWanted)
{
    Window root = 0, parent = 0, match = 0;
    Window* children = nullptr;
    unsigned int number = 0;
    XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &number);
    for (unsigned int i = 0; i < number; ++i) {
        char* name = nullptr;
        if (XFetchName(display, children[i], &name) && isWanted(name)) {
            match = children[i];
        }
        XFree(name);
    }
    XFree(children);
    return match;
}
