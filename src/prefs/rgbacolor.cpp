#include "rgbacolor.h"
#include "platform/hexdigit.h"

using namespace Qt::StringLiterals;

namespace {

} // namespace

std::optional<RgbaColor> RgbaColor::fromText(const QString& text)
{
    if ((text.size() != 9 && text.size() != 7) || !text.startsWith(u'#'))
        return std::nullopt;
    quint8 bytes[4] = {255, 0, 0, 0};
    const bool hasAlpha = text.size() == 9;
    const int count = hasAlpha ? 4 : 3;
    for (int i = 0; i < count; ++i) {
        const int high = hexDigitValue(text[1 + 2 * i]);
        const int low = hexDigitValue(text[2 + 2 * i]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes[hasAlpha ? i : i + 1] = quint8(high * 16 + low);
    }
    return RgbaColor{bytes[1], bytes[2], bytes[3], bytes[0]};
}

QString RgbaColor::toText() const
{
    return QString::asprintf("#%02X%02X%02X%02X", a, r, g, b);
}
