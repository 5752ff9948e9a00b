#pragma once

#include <QString>
#include <QWidget>

class QLabel;
class QPushButton;
class QToolButton;

namespace fiva {

class LinkStore;

// A message bar above the record list for what went wrong without an alert: a failed save, a
// failed automatic backup or export, a data file set aside at start. Alerts interrupt; these
// failures happen while the user does something else, so the bar waits, non-modal, until it is
// closed. After a restore it offers to undo it.
class FailureBanner final : public QWidget
{
    Q_OBJECT

public:
    // The store must outlive the banner.
    explicit FailureBanner(LinkStore &store, QWidget *parent = nullptr);

    QString text() const;
    QPushButton *undoButton() const { return m_undo; }
    QToolButton *closeButton() const { return m_close; }

private:
    enum class Tone { failure, information };
    void showMessage(const QString &text, Tone tone, bool offerUndo);

    LinkStore &m_store;
    QLabel *m_text = nullptr;
    QPushButton *m_undo = nullptr;
    QToolButton *m_close = nullptr;
};

} // namespace fiva
