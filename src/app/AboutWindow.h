#pragma once

#include <QWidget>

namespace fiva {

// The About window: icon, name, version, author, site, description and licence. Created once and
// kept for the whole run; closing it only hides it.
class AboutWindow final : public QWidget
{
    Q_OBJECT

public:
    explicit AboutWindow(QWidget *parent = nullptr);

    static QString versionText();

Q_SIGNALS:
    void websiteRequested();
    void licenceRequested();
};

} // namespace fiva
