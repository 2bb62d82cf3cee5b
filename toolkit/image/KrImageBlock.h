#pragma once

/// A rectangle of pixels in an image: its lowest column and row, and its size.
struct KrImageBlock
{
    unsigned int x = 0;
    unsigned int y = 0;
    unsigned int width = 0;
    unsigned int height = 0;
};
