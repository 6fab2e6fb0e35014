#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char* argv[])
{
    // Also when CTest lists the tests, which happens without the test environment.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-ui-tests"));
    testing::InitGoogleTest(&argc, argv);
    const int status = RUN_ALL_TESTS();
    // Windows closed with WA_DeleteOnClose wait for an event loop to delete them.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return status;
}
