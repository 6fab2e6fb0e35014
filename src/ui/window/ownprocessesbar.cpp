#include "ownprocessesbar.h"

#include "prefs/userdefaults.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace {

const QString kDismissedKey = u"MainWindow/OwnProcessesBarDismissed"_s;

} // namespace

OwnProcessesBar::OwnProcessesBar(UserDefaults& defaults, QWidget* parent)
    : QFrame(parent), m_defaults(defaults), m_text(new QLabel(this)),
      m_install(new QPushButton(tr("Install Helper…"), this)),
      m_dismiss(new QPushButton(tr("Don't Show Again"), this)),
      m_close(new QPushButton(tr("Close"), this))
{
    setObjectName(u"OwnProcessesBar"_s);
    setFrameShape(QFrame::StyledPanel);
    // An information bar in the desktop's manner: a tinted band, not a dialog.
    setStyleSheet(u"#OwnProcessesBar { background: #dbe9f9; border: 1px solid #8fb4e3; "
                  "border-radius: 4px; } #OwnProcessesBar QLabel { color: #1b2b40; }"_s);
    auto* icon = new QLabel(this);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxInformation).pixmap(22, 22));
    m_text->setWordWrap(true);
    m_text->setText(tr("Only your own programs' connections are listed: without privileges, "
                       "lsof cannot see other users' and the system's processes. The "
                       "privileged helper lets Corvina list every connection."));
    connect(m_install, &QPushButton::clicked, this, &OwnProcessesBar::install);
    connect(m_dismiss, &QPushButton::clicked, this, [this] {
        m_defaults.setBool(kDismissedKey, true);
        hide();
    });
    connect(m_close, &QPushButton::clicked, this, [this] {
        m_closed = true;
        hide();
    });
    m_close->hide();
    hide();

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 6, 8, 6);
    layout->addWidget(icon, 0, Qt::AlignTop);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_install);
    layout->addWidget(m_dismiss);
    layout->addWidget(m_close);
}

void OwnProcessesBar::update(SnapshotSource::Road road, bool privileged)
{
    const bool ownOnly = !privileged && (road == SnapshotSource::Road::Direct ||
                                         road == SnapshotSource::Road::Script);
    setVisible(ownOnly && !m_closed && !m_defaults.boolForKey(kDismissedKey));
}

void OwnProcessesBar::setInstallHelperHandler(std::function<bool()> handler)
{
    m_installHelper = std::move(handler);
}

void OwnProcessesBar::install()
{
    showOutcome(m_installHelper && m_installHelper());
}

void OwnProcessesBar::showOutcome(bool installed)
{
    m_install->hide();
    m_dismiss->hide();
    m_close->show();
    m_text->setText(installed
                        ? tr("The helper is installed. Restart Corvina to list every "
                             "connection; if you were added to the group \"corvina\", log out "
                             "and in again first.")
                        : tr("The helper could not be installed (the system log says why). "
                             "You can try again from a terminal with: corvina helper install"));
}
