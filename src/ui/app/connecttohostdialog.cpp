#include "connecttohostdialog.h"

#include "remote/hostspec.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

ConnectToHostDialog::ConnectToHostDialog(const QStringList& recentHosts, QWidget* parent)
    : QDialog(parent), m_host(new QComboBox(this)), m_problem(new QLabel(this))
{
    setWindowTitle(tr("Connect to Host"));
    m_host->setEditable(true);
    m_host->setInsertPolicy(QComboBox::NoInsert);
    m_host->addItems(recentHosts);
    m_host->setCurrentIndex(-1);
    m_host->lineEdit()->setPlaceholderText(tr("user@host:port"));
    m_host->setMinimumContentsLength(28);

    auto* intro = new QLabel(tr("Watch the connections of another machine. Corvina logs in with "
                                "ssh, without asking for a password: your keys, your agent and "
                                "~/.ssh/config apply. There it runs \"corvina sockets\", or lsof."),
                             this);
    intro->setWordWrap(true);
    m_problem->setWordWrap(true);
    m_problem->setStyleSheet(u"color: #b3261e;"_s);
    m_problem->hide();

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Connect"));
    connect(buttons, &QDialogButtonBox::accepted, this, &ConnectToHostDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_host, &QComboBox::editTextChanged, m_problem, &QWidget::hide);

    auto* form = new QFormLayout;
    form->addRow(tr("&Host:"), m_host);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(intro);
    layout->addLayout(form);
    layout->addWidget(m_problem);
    layout->addWidget(buttons);
    setMinimumWidth(460);
}

QString ConnectToHostDialog::hostText() const
{
    return m_host->currentText().trimmed();
}

void ConnectToHostDialog::accept()
{
    QString problem;
    if (!HostSpec::parse(hostText(), &problem)) {
        m_problem->setText(problem);
        m_problem->show();
        m_host->setFocus();
        return;
    }
    QDialog::accept();
}
