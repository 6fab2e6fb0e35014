#include "savesearchdialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

SaveSearchDialog::SaveSearchDialog(QWidget* parent)
    : QDialog(parent), m_name(new QLineEdit(this)), m_expression(new QLineEdit(this))
{
    setWindowTitle(tr("Save Search"));
    setWindowModality(Qt::WindowModal);
    m_expression->setMinimumWidth(360);

    auto* form = new QFormLayout;
    form->addRow(tr("Name:"), m_name);
    form->addRow(tr("Search expression:"), m_expression);

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

void SaveSearchDialog::reject()
{
    // Escape and the window's close button count as "Cancel".
    Q_EMIT cancelClicked();
}
