#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvina-ui-tests"));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
