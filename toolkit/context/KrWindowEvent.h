#pragma once

#include <cstdint>

/// What the user, or the window system, did with a window on the screen.
struct KrWindowEvent
{
    // Not the names of X11's macros.
    enum class Kind
    {
        KeyDown,
        KeyUp,
        ButtonDown,
        ButtonUp,
        Motion, ///< those that follow one another are told as one
        Wheel,
        Resized,   ///< the window's size is the event's width and height
        Exposed,   ///< the window's pixels were lost: draw again
        CloseAsked ///< the user asks for it; the window stays open
    };
    enum Modifier : std::uint32_t
    {
        Shift = 0x1,
        Control = 0x2,
        Alt = 0x4
    };

    Kind kind = Kind::Exposed;
    int x = 0; ///< of the pointer, pixels from the window's upper left corner
    int y = 0;
    std::uint32_t modifiers = 0; ///< held down
    std::uint32_t key = 0;       ///< X11's symbol of it: Latin-1 for characters, 0xff1b for Escape
    std::uint32_t button = 0;    ///< 1 left, 2 middle, 3 right
    bool isDoubleClick = false;  ///< of a button press
    int wheel = 0;               ///< notches, away from the user is positive
    unsigned int width = 0;      ///< pixels
    unsigned int height = 0;
};
