#pragma once

#include "gacommandrunner.h"
#include "socketrecord.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

// The facts acquisition depends on. The application's come from the system; tests inject
// their own.
struct AcquisitionRoads {
    using HelperReply = std::function<void(const QByteArray&)>;

    // Asked once per run: is the privileged helper installed?
    std::function<bool()> helperInstalled;
    // Asks the helper for lsof's output (UTF-8), or for the built-in collector's (the same text
    // with its figure lines); the reply (null on any failure) may come on any thread. Unset:
    // the helper offers no such request.
    std::function<void(HelperReply)> runLsofThroughHelper;
    std::function<void(HelperReply)> runCollectorThroughHelper;
    // After a null reply: why the helper gave nothing, in a sentence for the user that says
    // what to do, or empty when there is nothing to say. Unset: nothing to say.
    std::function<QString()> helperProblem;
    // Confined (Flatpak, Snap): lsof runs through the user's script.
    std::function<bool()> sandboxed;
    std::function<QString()> scriptPath;
    std::function<GACommandRunner::SyncResult(const QString& program, const QStringList& arguments,
                                              GACommandRunner::Road road)>
        run;

    // The built-in collector, in this process: its records, or why the kernel refused (then
    // lsof stands in). It keeps what it learned from pass to pass, and hears the sockets that
    // close between passes: `closed` are those, since the last pass (what it had listed, with
    // final figures, and short-lived ones it never listed). `problem` is what the pass missed
    // although it gave its records. Unset: not offered.
    struct Collected {
        SocketRecords records;
        QString refusal;
        SocketRecords closed = {};
        QString problem = {};
    };
    std::function<Collected()> collect;
    // The sockets destroyed since the last pass when the pass's records came from the helper,
    // whose collector runs once per pass and hears no socket close: this process listens
    // instead. `listed` are the helper's records; the answer has no records of its own, only
    // `closed` and `problem`. Unset: no one listens.
    std::function<Collected(const SocketRecords& listed)> closedAmong;

    // Another machine's snapshot as lsof text, when one is watched over ssh: the bytes, or why
    // there are none. Unset: this machine.
    struct Remote {
        QByteArray output;
        QString problem;
    };
    std::function<Remote()> runRemote;
    // The host runRemote reaches, as the user named it.
    QString remoteHost;

    // Which helper the application's roads use.
    struct HelperChoice {
        enum class Mode {
            Off,    // never the helper
            Auto,   // the installed helper, asked once per run whether it is there
            Socket, // the daemon on `socketPath`, taken as installed (tests, manual runs)
        };
        Mode mode = Mode::Off;
        QString socketPath;
        // Offer to install the helper once per helper version (the desktop application).
        bool offerInstall = false;
    };

    // The system's roads. With a helper, call this on the thread that runs the event loop
    // (the helper's client lives there).
    static AcquisitionRoads system(const HelperChoice& helper);
    static AcquisitionRoads system();
};
