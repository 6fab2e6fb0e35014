#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char* argv[])
{
    // Also when CTest lists the tests, which happens without the test environment.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-prefsui-tests"));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
