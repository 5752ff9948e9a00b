#pragma once

#include <QString>
#include <QWidget>

namespace fiva {

class Workspace;

// A window of its own, 900 × 700 and titled with the file's name, previewing one attached file:
// images, PDF documents, HTML and plain text are shown; anything else gets its icon, name, size,
// type and an "Ouvrir" button. It deletes itself when closed and changes no data.
class AttachmentPreviewWindow final : public QWidget
{
    Q_OBJECT

public:
    enum class PreviewKind { image, pdf, html, text, other };

    // The workspace must outlive the window.
    AttachmentPreviewWindow(const QString &path, Workspace &workspace, QWidget *parent = nullptr);
    ~AttachmentPreviewWindow() override;

    // Makes the window, centres it on the screen and brings it to the front.
    static AttachmentPreviewWindow *open(const QString &path, Workspace &workspace);

    QString path() const { return m_path; }
    PreviewKind previewKind() const { return m_kind; }
    // Which preview a file gets, from its content type.
    static PreviewKind kindFor(const QString &path);

private:
    QWidget *makeImagePreview();
    QWidget *makePdfPreview();
    QWidget *makeHtmlPreview();
    QWidget *makeTextPreview();
    QWidget *makeFileSummary();

    QString m_path;
    Workspace &m_workspace;
    PreviewKind m_kind = PreviewKind::other;
};

} // namespace fiva
