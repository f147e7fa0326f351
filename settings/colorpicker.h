// The colour picker: fourteen swatches, a preview and a lightness slider that keeps the hue and
// saturation of the colour it starts from. The settings pages open it for every colour they edit.
#pragma once

#include <windows.h>

// The fourteen swatches, two rows of seven, and the slider's range: lightness 0 ... 1 in 240 steps.
const int PICKER_SWATCHES = 14;
const int PICKER_SWATCH_COLUMNS = 7;
const int PICKER_SLIDER_MAX = 240;
// Swatch `index`'s colour and its square in the picker's client pixels (the black frame lies one
// pixel outside it), and the preview's rectangle, framed the same way.
COLORREF PickerSwatchColour(int index);
RECT PickerSwatchRect(int index);
extern const RECT kPickerPreview;

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
