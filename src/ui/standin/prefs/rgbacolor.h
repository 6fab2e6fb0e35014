#pragma once
// Stand-in until the prefs branch is merged; deleted then.
#include <QtGlobal>
struct RgbaColor {
    quint8 r = 0, g = 0, b = 0, a = 255;
};
