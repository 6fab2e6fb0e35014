#pragma once

#include <QObject>

// The target of the application menu's update command. The command is never offered and does
// nothing: updates come from the system's package manager.
class SUUpdater final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SUUpdater)

public:
    explicit SUUpdater(QObject* parent = nullptr) : QObject(parent) {}

public slots:
    void checkForUpdates() {}
};
