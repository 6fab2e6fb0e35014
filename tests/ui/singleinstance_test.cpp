#include "ui/app/singleinstance.h"

#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

TEST(SingleInstance, ALaterStartReachesTheRunningOneAndALeftoverSocketIsTakenOver)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(u"corvina.socket"_s);

    // Nobody runs yet, though a crashed instance left its socket behind.
    {
        const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray encoded = path.toLocal8Bit();
        std::copy(encoded.begin(), encoded.end(), address.sun_path);
        ASSERT_EQ(::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        ::close(stale);
    }
    SingleInstance first(path);
    EXPECT_FALSE(first.activateRunningInstance());
    ASSERT_TRUE(first.listen());
    QSignalSpy activations(&first, &SingleInstance::activationRequested);

    SingleInstance second(path);
    EXPECT_TRUE(second.activateRunningInstance());
    EXPECT_TRUE(activations.wait(2000));
    EXPECT_EQ(activations.size(), 1);

    // Something else talking on the socket raises nothing.
    const int other = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray encoded = path.toLocal8Bit();
    std::copy(encoded.begin(), encoded.end(), address.sun_path);
    ASSERT_EQ(::connect(other, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::write(other, "hello\n", 6), 6);
    ::close(other);
    EXPECT_FALSE(activations.wait(300));
    EXPECT_EQ(activations.size(), 1);
}
