// The colour picker: fourteen swatches, a preview and a lightness slider that keeps the hue and
// saturation of the colour it starts from. The settings pages open it for every colour they edit.
#pragma once

#include <windows.h>

// Runs the picker on `initial`; the chosen colour on Ok, `initial` when the user cancels.
COLORREF PickColour(HWND owner, COLORREF initial);

// Hue, saturation and lightness, each in [0, 1]. The conversions truncate the channels, they
// never round, so a colour picked twice comes out the same.
struct Hsl {
    double hue, saturation, lightness;
};
Hsl ColourToHsl(COLORREF colour);
COLORREF HslToColour(double hue, double saturation, double lightness);
double HueToChannel(double p, double q, double t);
