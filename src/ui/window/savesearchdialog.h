#pragma once

#include <QDialog>

class QLineEdit;
class QPushButton;

// The sheet in which the user names a search expression before it is saved. The window's
// controller decides what the buttons do.
class SaveSearchDialog final : public QDialog {
    Q_OBJECT
public:
    explicit SaveSearchDialog(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(SaveSearchDialog)

    QLineEdit* nameField() const { return m_name; }
    QLineEdit* expressionField() const { return m_expression; }
    QPushButton* saveButton() const { return m_save; }
    QPushButton* cancelButton() const { return m_cancel; }

Q_SIGNALS:
    void confirmClicked();
    void cancelClicked();

protected:
    void reject() override;

private:
    QLineEdit* m_name;
    QLineEdit* m_expression;
    QPushButton* m_save;
    QPushButton* m_cancel;
};
