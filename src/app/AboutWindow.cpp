#include "app/AboutWindow.h"

#include "app/AppInfo.h"

#include <QFrame>
#include <QGraphicsDropShadowEffect>
#include <QIcon>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QVBoxLayout>

#include "Version.h"

namespace fiva {

namespace {

constexpr int iconSize = 110;
constexpr int iconCornerRadius = 22;

QPixmap roundedIcon(qreal devicePixelRatio)
{
    const QPixmap source = appIcon().pixmap(QSize(iconSize, iconSize), devicePixelRatio);
    QPixmap rounded(source.size());
    rounded.setDevicePixelRatio(source.devicePixelRatio());
    rounded.fill(Qt::transparent);
    QPainter painter(&rounded);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(0, 0, iconSize, iconSize), iconCornerRadius, iconCornerRadius);
    painter.setClipPath(clip);
    painter.drawPixmap(0, 0, source);
    return rounded;
}

QLabel *textLabel(const QString &text, QWidget *parent, double scale, bool bold = false,
                  bool secondary = false)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF((font.pointSizeF() > 0 ? font.pointSizeF() : 10.0) * scale);
    font.setBold(bold);
    label->setFont(font);
    label->setAlignment(Qt::AlignCenter);
    if (secondary)
        label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

} // namespace

QString AboutWindow::versionText()
{
    return QStringLiteral("Version ") + QLatin1String(versionNumber);
}

AboutWindow::AboutWindow(QWidget *parent) : QWidget(parent, Qt::Window)
{
    setWindowTitle(QStringLiteral("À propos de Fiva"));
    setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint | Qt::CustomizeWindowHint);
    setFixedSize(420, 500);

    auto *layout = new QVBoxLayout(this);
    layout->setSpacing(18);
    layout->setAlignment(Qt::AlignHCenter | Qt::AlignTop);

    auto *icon = new QLabel(this);
    icon->setObjectName(QStringLiteral("appIcon"));
    icon->setPixmap(roundedIcon(devicePixelRatio()));
    icon->setFixedSize(iconSize, iconSize);
    auto *shadow = new QGraphicsDropShadowEffect(icon);
    shadow->setColor(QColor(0, 0, 0, 84));
    shadow->setBlurRadius(5);
    shadow->setOffset(0, 0);
    icon->setGraphicsEffect(shadow);
    layout->addWidget(icon, 0, Qt::AlignHCenter);

    layout->addWidget(textLabel(QStringLiteral("Fiva"), this, 2.2, true));
    layout->addWidget(textLabel(versionText(), this, 1.1, true, true));

    auto *divider = new QFrame(this);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    layout->addWidget(divider);

    auto *details = new QVBoxLayout;
    details->setSpacing(10);
    details->addWidget(textLabel(QStringLiteral("Auteur :") + u' ' + authorName(), this, 1.0));

    auto *site = new QPushButton(QStringLiteral("Visiter le site web"), this);
    site->setObjectName(QStringLiteral("visitWebsite"));
    site->setFlat(true);
    site->setCursor(Qt::PointingHandCursor);
    site->setStyleSheet(
        QStringLiteral("QPushButton { color: palette(link); text-decoration: underline; border: none; }"));
    details->addWidget(site, 0, Qt::AlignHCenter);

    auto *description =
        textLabel(QStringLiteral("Gestionnaire de liens et de documents pour le bureau Linux.\n"
                                 "Écrit en C++ avec Qt Widgets."),
                  this, 0.95);
    description->setWordWrap(true);
    details->addWidget(description);

    auto *rights = textLabel(QStringLiteral("© 2025 ") + authorName() +
                                 QStringLiteral(". Logiciel libre distribué sous licence MIT."),
                             this, 0.85, false, true);
    rights->setWordWrap(true);
    details->addWidget(rights);

    details->addSpacing(8);
    auto *licence = new QPushButton(QStringLiteral("Voir la licence"), this);
    licence->setObjectName(QStringLiteral("showLicence"));
    details->addWidget(licence, 0, Qt::AlignHCenter);
    layout->addLayout(details);
    layout->addStretch(1);

    connect(site, &QPushButton::clicked, this, &AboutWindow::websiteRequested);
    connect(licence, &QPushButton::clicked, this, &AboutWindow::licenceRequested);
}

} // namespace fiva
