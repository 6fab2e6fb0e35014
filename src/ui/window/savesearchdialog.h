#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;

// The sheet in which the user names a search expression before it is saved. The window's
// controller decides what the buttons do. An expression that does not parse is said so under
// the field, with the parser's message; it can still be saved and mended later.
class SaveSearchDialog final : public QDialog {
    Q_OBJECT
public:
    explicit SaveSearchDialog(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(SaveSearchDialog)

    QLineEdit* nameField() const { return m_name; }
    QLineEdit* expressionField() const { return m_expression; }
    QPushButton* saveButton() const { return m_save; }
    QPushButton* cancelButton() const { return m_cancel; }
    // Empty while the expression parses, else the parser's message with its position.
    QString expressionProblem() const;
    // Parses the expression field and shows what is wrong with it, if anything.
    void checkExpression();

Q_SIGNALS:
    void confirmClicked();
    void cancelClicked();

protected:
    void reject() override;

private:
    QLineEdit* m_name;
    QLineEdit* m_expression;
    QLabel* m_problem;
    QPushButton* m_save;
    QPushButton* m_cancel;
};
