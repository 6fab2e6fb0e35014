#pragma once

#include "snapshot/snapshotsource.h"

#include <QFrame>

#include <functional>

class QLabel;
class QPushButton;
class UserDefaults;

// The bar above the table that tells an ordinary user why the list holds only their own
// processes' connections, and offers the privileged helper that lifts the limit.
class OwnProcessesBar final : public QFrame {
    Q_OBJECT
public:
    explicit OwnProcessesBar(UserDefaults& defaults, QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(OwnProcessesBar)

    QPushButton* installButton() const { return m_install; }
    QPushButton* dismissButton() const { return m_dismiss; }
    // Shown while the snapshots' road sees only the user's own processes, unless dismissed.
    void update(SnapshotSource::Road road, bool privileged);
    // Installs the helper; true when it worked.
    void setInstallHelperHandler(std::function<bool()> handler);

private:
    void install();
    void showOutcome(bool installed);

    UserDefaults& m_defaults;
    std::function<bool()> m_installHelper;
    bool m_closed = false;
    bool m_seesOwnOnly = false;
    QLabel* m_text;
    QPushButton* m_install;
    QPushButton* m_dismiss;
    QPushButton* m_close;
};
