#include "savesearchdialog.h"

#include "filter/predicate.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

SaveSearchDialog::SaveSearchDialog(QWidget* parent)
    : QDialog(parent), m_name(new QLineEdit(this)), m_expression(new QLineEdit(this)),
      m_problem(new QLabel(this))
{
    setWindowTitle(tr("Save Search"));
    setWindowModality(Qt::WindowModal);
    m_expression->setMinimumWidth(360);

    auto* form = new QFormLayout;
    form->addRow(tr("Name:"), m_name);
    form->addRow(tr("Search expression:"), m_expression);
    m_problem->setWordWrap(true);
    m_problem->setTextFormat(Qt::PlainText);
    m_problem->setStyleSheet(QStringLiteral("color: #b3261e;"));
    m_problem->hide();
    form->addRow(QString(), m_problem);
    connect(m_expression, &QLineEdit::textChanged, this, &SaveSearchDialog::checkExpression);

    auto* buttons = new QDialogButtonBox(this);
    m_save = buttons->addButton(tr("Save"), QDialogButtonBox::AcceptRole);
    m_cancel = buttons->addButton(QDialogButtonBox::Cancel);
    m_save->setDefault(true);
    // The controller closes the sheet itself; the box only reports the clicks.
    connect(m_save, &QPushButton::clicked, this, &SaveSearchDialog::confirmClicked);
    connect(m_cancel, &QPushButton::clicked, this, &SaveSearchDialog::cancelClicked);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

QString SaveSearchDialog::expressionProblem() const
{
    const auto parsed = Predicate::parse(m_expression->text());
    if (const auto* error = std::get_if<PredicateError>(&parsed))
        return tr("Not a valid search expression: %1").arg(error->toString());
    return {};
}

void SaveSearchDialog::checkExpression()
{
    const QString problem = expressionProblem();
    m_problem->setText(problem);
    m_problem->setVisible(!problem.isEmpty());
}

void SaveSearchDialog::reject()
{
    // Escape and the window's close button count as "Cancel".
    Q_EMIT cancelClicked();
}
