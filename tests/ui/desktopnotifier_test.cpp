#include "ui/app/desktopnotifier.h"

#include <gtest/gtest.h>

#include <QTimer>

namespace {

class NotifierTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        notifier.setClock([this] { return now; });
        notifier.setSender(
            [this](const DesktopNotifier::Notification& n, std::function<void(uint)> delivered) {
                sent << n;
                delivered(uint(100 + sent.size()));
            });
    }
    // A pass's announcement: the title, the application, its connections first..first+count-1.
    static QStringList pass(const QString& title, const QString& app, int count, int first = 1)
    {
        QStringList lines{title, app};
        for (int i = first; i < first + count; ++i)
            lines << u"  10.0.0.%1:443"_s.arg(i);
        return lines;
    }

    DesktopNotifier notifier;
    qint64 now = 50000;
    QList<DesktopNotifier::Notification> sent;
};

TEST_F(NotifierTest, PassesInQuickSuccessionBecomeOneBubbleEveryTenSeconds)
{
    notifier.deliverNotification(pass(u"New Connections"_s, u"Firefox"_s, 1));
    ASSERT_EQ(sent.size(), 1) << "the first goes at once";
    EXPECT_EQ(sent[0].summary, u"Corvina: 1 new connection"_s);
    EXPECT_EQ(sent[0].replacesId, 0u);
    EXPECT_TRUE(sent[0].body.contains(u"Firefox"_s));

    // Four more passes within seven seconds: held back, counted, not stacked.
    for (int second : {2, 4, 6}) {
        now = 50000 + second * 1000;
        notifier.deliverNotification(pass(u"New Connections"_s, u"curl"_s, 3, second));
    }
    now = 56500;
    notifier.deliverNotification(pass(u"State Changed"_s, u"ssh"_s, 1));
    EXPECT_EQ(sent.size(), 1);
    ASSERT_TRUE(notifier.pendingTimer()->isActive());
    // Set at the first held-back pass, for ten seconds after the bubble.
    EXPECT_EQ(notifier.pendingTimer()->interval(), 8000);

    now = 60000;
    notifier.flush(); // what the timer does when it fires
    ASSERT_EQ(sent.size(), 2);
    EXPECT_EQ(sent[1].summary, u"Corvina: 9 new connections, 1 state change"_s);
    EXPECT_EQ(sent[1].replacesId, 101u) << "replaces the bubble before";
    // Each application once, its peers once (10.0.0.2 to .8), the first few lines, then how
    // many more there were.
    const QStringList body = sent[1].body.split(u'\n');
    EXPECT_EQ(body,
              (QStringList{u"curl"_s, u"  10.0.0.2:443"_s, u"  10.0.0.3:443"_s, u"  10.0.0.4:443"_s,
                           u"  10.0.0.5:443"_s, u"  10.0.0.6:443"_s, u"… and 3 more"_s}));
    EXPECT_FALSE(notifier.hasPending());

    // Quiet for longer than the gap: the next one goes at once again.
    now = 75000;
    notifier.deliverNotification(pass(u"State Changed"_s, u"ssh"_s, 2));
    ASSERT_EQ(sent.size(), 3);
    EXPECT_EQ(sent[2].summary, u"Corvina: 2 state changes"_s);
    EXPECT_EQ(sent[2].replacesId, 102u);
}

TEST_F(NotifierTest, MessagesOfTheApplicationGoAtOnceAndReplaceNothing)
{
    notifier.deliverNotification(pass(u"New Connections"_s, u"Firefox"_s, 1));
    notifier.deliverMessage(u"Corvina keeps running"_s, u"Quit from the <tray>"_s);
    ASSERT_EQ(sent.size(), 2);
    EXPECT_EQ(sent[1].replacesId, 0u);
    EXPECT_EQ(sent[1].body, u"Quit from the &lt;tray&gt;"_s);
    now += 1000;
    notifier.deliverNotification(pass(u"New Connections"_s, u"curl"_s, 1));
    now += 10000;
    notifier.flush();
    EXPECT_EQ(sent.last().replacesId, 101u) << "the message's id is not the one replaced";
}

} // namespace
