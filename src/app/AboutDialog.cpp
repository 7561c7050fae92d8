#include "app/AboutDialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QVBoxLayout>

// The shell is a static library: its resources are linked in only when something refers to
// them, and Q_INIT_RESOURCE must be called outside any namespace.
static void initialiseResources() { Q_INIT_RESOURCE(sonvale); }

namespace sonvale {

QIcon applicationIcon() {
    initialiseResources();
    return QIcon(":/sonvale/sonvale.svg");
}

AboutDialog::AboutDialog(QWidget* parent)
    : QDialog(parent) {
    setWindowTitle("About Sonvale");
    setObjectName("about");

    auto* icon = new QLabel;
    icon->setObjectName("aboutIcon");
    icon->setAlignment(Qt::AlignCenter);
    icon->setPixmap(applicationIcon().pixmap(QSize(128, 128), devicePixelRatioF()));

    auto* name = new QLabel("Sonvale");
    QFont nameFont = name->font();
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.6);
    nameFont.setBold(true);
    name->setFont(nameFont);
    name->setObjectName("aboutName");
    name->setAlignment(Qt::AlignCenter);

    auto* version = new QLabel(QString("Version %1").arg(SONVALE_VERSION));
    version->setObjectName("aboutVersion");
    version->setAlignment(Qt::AlignCenter);
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* description = new QLabel(summary);
    description->setObjectName("aboutSummary");
    description->setAlignment(Qt::AlignCenter);
    description->setWordWrap(true);

    auto* licenceText = new QLabel(
        QString("Free software under the GNU General Public License, version 3 or later (%1). "
                "It comes with absolutely no warranty. "
                "<a href='https://www.gnu.org/licenses/gpl-3.0.html'>Read the licence</a>.")
            .arg(licence));
    licenceText->setObjectName("aboutLicence");
    licenceText->setAlignment(Qt::AlignCenter);
    licenceText->setWordWrap(true);
    licenceText->setOpenExternalLinks(true);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(icon);
    layout->addWidget(name);
    layout->addWidget(version);
    layout->addSpacing(8);
    layout->addWidget(description);
    layout->addWidget(licenceText);
    layout->addWidget(buttons);
    setFixedWidth(380);
    setWindowIcon(applicationIcon());
}

} // namespace sonvale
