#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

// A colour as the settings store keeps it: text "#AARRGGBB". The GUI turns it into a QColor;
// the core needs no more than this value.
struct RgbaColor {
    quint8 r = 0;
    quint8 g = 0;
    quint8 b = 0;
    quint8 a = 255;

    // Accepts "#AARRGGBB" and, as opaque, "#RRGGBB"; hex digits in either case. Anything else,
    // surrounding blanks included, is not a colour.
    static std::optional<RgbaColor> fromText(const QString& text);
    QString toText() const;

    friend bool operator==(const RgbaColor&, const RgbaColor&) = default;
};
