#include "changes/changereporter.h"
#include "changes/connectionlog.h"
#include "cli/commandline.h"
#include "cvappdelegate.h"
#include "prefs/cvprefshelper.h"
#include "singleinstance.h"
#include "snapshot/lsofsnapshotworker.h"

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QStandardPaths>
#include <QTextStream>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

QStringList argumentsOf(int argc, char* argv[])
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return arguments;
}

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

void setApplicationNames()
{
    // No organisation name: it would add a second "Corvina" to the data folder's path.
    QCoreApplication::setApplicationName(u"Corvina"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVINA_VERSION));
}

int runCommandLine(int argc, char* argv[], const QStringList& arguments)
{
    QCoreApplication app(argc, argv);
    setApplicationNames();
    QTextStream out(stdout);
    QTextStream err(stderr);
    return CommandLine(out, err).run(arguments);
}

} // namespace

int main(int argc, char* argv[])
{
    const QStringList arguments = argumentsOf(argc, argv);
    // A word that is no option of Qt's goes to the command line, which knows its verbs.
    if (CommandLine::isCommand(arguments) ||
        (!arguments.isEmpty() && !arguments.first().startsWith(u'-')))
        return runCommandLine(argc, argv, arguments);
    if (!hasDisplay()) {
        std::fputs("corvina: no graphical display (DISPLAY and WAYLAND_DISPLAY are unset); "
                   "running `corvina watch` instead.\n",
                   stderr);
        return runCommandLine(argc, argv, {u"watch"_s});
    }

    QApplication app(argc, argv);
    setApplicationNames();
    // A second start brings the running window forward instead of watching twice.
    SingleInstance instance;
    if (instance.activateRunningInstance())
        return 0;
    instance.listen();
    QGuiApplication::setDesktopFileName(u"com.brindle.Corvina"_s);
    if (QIcon::themeName().isEmpty() || QIcon::themeName() == u"hicolor"_s)
        QIcon::setThemeName(u"Adwaita"_s);
    QApplication::setWindowIcon(QIcon(u":/corvina/icons/corvina.svg"_s));

    // The saved-search database lies here; its manager does not create the folder.
    QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation));

    CVPrefsHelper& prefs = CVPrefsHelper::sharedHelper();
    LsofFetcher& fetcher = LsofFetcher::shared();
    ConnectionLog log(prefs);
    ChangeReporter reporter(prefs, log);
    fetcher.setReporter(&reporter);
    // The installed helper when there is one; the first run of each helper version offers to
    // install it.
    AcquisitionRoads::HelperChoice helper;
    helper.mode = AcquisitionRoads::HelperChoice::Mode::Auto;
    helper.offerInstall = true;
    fetcher.setRoads(AcquisitionRoads::system(helper));
    LsofSnapshotWorker source(fetcher);
    CVAppDelegate delegate(source, prefs);
    QObject::connect(&instance, &SingleInstance::activationRequested, &delegate,
                     &CVAppDelegate::showMainWindow);
    // Announcements are assembled on the acquisition thread; notifications go from this one.
    reporter.setAnnouncementSink([&delegate](const ChangeReporter::Announcement& announcement) {
        QMetaObject::invokeMethod(
            &delegate,
            [&delegate, announcement] {
                delegate.deliverNotification(QStringList{announcement.title} + announcement.lines);
            },
            Qt::QueuedConnection);
    });
    delegate.applicationDidFinishLaunching();
    const int status = app.exec();
    fetcher.setReporter(nullptr);
    return status;
}
