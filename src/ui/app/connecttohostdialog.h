#pragma once

#include <QDialog>

class QComboBox;
class QLabel;

// Asks which machine to watch: [user@]HOST[:port], the recent hosts offered. The text is
// checked as ssh will take it; a problem is said in the dialog, which stays open.
class ConnectToHostDialog final : public QDialog {
    Q_OBJECT
public:
    ConnectToHostDialog(const QStringList& recentHosts, QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(ConnectToHostDialog)

    QString hostText() const;
    QComboBox* hostField() const { return m_host; }
    QLabel* problemLabel() const { return m_problem; }

    void accept() override;

private:
    QComboBox* m_host;
    QLabel* m_problem;
};
