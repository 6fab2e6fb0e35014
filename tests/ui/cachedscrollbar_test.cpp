#include "ui/window/cachedscrollbar.h"

#include <QImage>
#include <QScrollBar>
#include <QStyle>
#include <QStyleFactory>

#include <gtest/gtest.h>

#include <memory>

namespace {

template <typename Bar> void shape(Bar& bar, int maximum, int value)
{
    bar.resize(14, 400);
    bar.setRange(0, maximum);
    bar.setPageStep(40);
    bar.setValue(value);
}

QImage picture(QWidget& bar)
{
    return bar.grab().toImage();
}

} // namespace

TEST(CachedScrollBar, ShowsWhatTheStandardBarDrawsWhateverItKeeps)
{
    // Two styles that draw the bar differently: one greys the arrow at an end out.
    for (const QString& name : {QStringLiteral("Fusion"), QStringLiteral("Windows")}) {
        SCOPED_TRACE(name.toStdString());
        const std::unique_ptr<QStyle> style(QStyleFactory::create(name));
        ASSERT_TRUE(style);
        QScrollBar plain(Qt::Vertical);
        CachedScrollBar cached(Qt::Vertical);
        plain.setStyle(style.get());
        cached.setStyle(style.get());
        const auto expectSame = [&](int maximum, int value, const char* what) {
            shape(plain, maximum, value);
            shape(cached, maximum, value);
            EXPECT_EQ(picture(cached), picture(plain)) << what;
        };

        expectSame(10000, 0, "at the top");
        expectSame(10000, 0, "painted again");
        // Ten rows more in ten thousand: the handle stays where it was.
        expectSame(10010, 0, "a slightly longer range");
        expectSame(10010, 2000, "off the top");
        expectSame(10010, 5000, "the handle moved");
        expectSame(10010, 10010, "at the bottom");
        expectSame(20060, 10010, "a longer range: the handle moved up, off the bottom");
        expectSame(60, 0, "a short range: a longer handle");

        cached.setEnabled(false);
        plain.setEnabled(false);
        expectSame(60, 0, "disabled");
    }
}

TEST(CachedScrollBar, LinesUpPatternsLikeTheStandardBarAnywhereInItsWindow)
{
    // Styles fill a disabled bar with a dotted pattern, which lines up with the window.
    const std::unique_ptr<QStyle> style(QStyleFactory::create(QStringLiteral("Windows")));
    ASSERT_TRUE(style);
    const auto windowWith = [&](auto& bar, QWidget& window) {
        window.resize(40, 420);
        bar.setParent(&window);
        bar.setStyle(style.get());
        bar.move(3, 5);
        shape(bar, 60, 0);
        bar.setEnabled(false);
        return window.grab().toImage();
    };
    QWidget plainWindow;
    QWidget cachedWindow;
    QScrollBar* plain = new QScrollBar(Qt::Vertical);
    CachedScrollBar* cached = new CachedScrollBar(Qt::Vertical);
    const QImage expected = windowWith(*plain, plainWindow);
    EXPECT_EQ(windowWith(*cached, cachedWindow), expected);
    EXPECT_EQ(cachedWindow.grab().toImage(), expected) << "from the kept picture";
}
