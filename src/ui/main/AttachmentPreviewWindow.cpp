#include "ui/main/AttachmentPreviewWindow.h"

#include "platform/Workspace.h"

#include <QFile>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QLabel>
#include <QLocale>
#include <QMimeDatabase>
#include <QPainter>
#include <QPdfDocument>
#include <QPdfView>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace fiva {

namespace {

// Text larger than this is shown only up to here: a preview must not stall on a log of gigabytes.
constexpr qint64 textPreviewLimit = 8 * 1024 * 1024;

// Paints the image scaled to fit, keeping its proportions, as the window is resized.
class ImageView final : public QWidget
{
public:
    ImageView(QImage image, QWidget *parent) : QWidget(parent), m_image(std::move(image))
    {
        setObjectName(QStringLiteral("imagePreview"));
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        QSize size = m_image.size();
        if (size.width() > width() || size.height() > height())
            size.scale(this->size(), Qt::KeepAspectRatio);
        const QRect target(QPoint((width() - size.width()) / 2, (height() - size.height()) / 2), size);
        painter.drawImage(target, m_image);
    }

private:
    QImage m_image;
};

QString readTextPrefix(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.read(textPreviewLimit));
}

} // namespace

AttachmentPreviewWindow::PreviewKind AttachmentPreviewWindow::kindFor(const QString &path)
{
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path);
    if (type.inherits(QStringLiteral("application/pdf")))
        return PreviewKind::pdf;
    if (type.name().startsWith(QLatin1String("image/")) && !QImageReader::imageFormat(path).isEmpty())
        return PreviewKind::image;
    if (type.inherits(QStringLiteral("text/html")))
        return PreviewKind::html;
    if (type.inherits(QStringLiteral("text/plain")))
        return PreviewKind::text;
    return PreviewKind::other;
}

AttachmentPreviewWindow::AttachmentPreviewWindow(const QString &path, Workspace &workspace, QWidget *parent)
    : QWidget(parent,
              Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint | Qt::WindowMaximizeButtonHint),
      m_path(path), m_workspace(workspace), m_kind(kindFor(path))
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QFileInfo(path).fileName());
    resize(900, 700);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    QWidget *content = nullptr;
    switch (m_kind) {
    case PreviewKind::image:
        content = makeImagePreview();
        break;
    case PreviewKind::pdf:
        content = makePdfPreview();
        break;
    case PreviewKind::html:
        content = makeHtmlPreview();
        break;
    case PreviewKind::text:
        content = makeTextPreview();
        break;
    case PreviewKind::other:
        break;
    }
    // A file whose content turned out unreadable gets the summary instead of an empty pane.
    if (!content) {
        m_kind = PreviewKind::other;
        content = makeFileSummary();
    }
    layout->addWidget(content);
}

AttachmentPreviewWindow::~AttachmentPreviewWindow() = default;

AttachmentPreviewWindow *AttachmentPreviewWindow::open(const QString &path, Workspace &workspace)
{
    auto *window = new AttachmentPreviewWindow(path, workspace);
    if (QScreen *screen = QGuiApplication::primaryScreen()) {
        QRect frame = window->frameGeometry();
        frame.moveCenter(screen->availableGeometry().center());
        window->move(frame.topLeft());
    }
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}

QWidget *AttachmentPreviewWindow::makeImagePreview()
{
    QImageReader reader(m_path);
    reader.setAutoTransform(true);
    QImage image = reader.read();
    if (image.isNull())
        return nullptr;
    return new ImageView(std::move(image), this);
}

QWidget *AttachmentPreviewWindow::makePdfPreview()
{
    auto *document = new QPdfDocument(this);
    if (document->load(m_path) != QPdfDocument::Error::None || document->pageCount() == 0) {
        delete document;
        return nullptr;
    }
    auto *view = new QPdfView(this);
    view->setObjectName(QStringLiteral("pdfPreview"));
    view->setDocument(document);
    view->setPageMode(QPdfView::PageMode::MultiPage);
    view->setZoomMode(QPdfView::ZoomMode::FitToWidth);
    return view;
}

QWidget *AttachmentPreviewWindow::makeHtmlPreview()
{
    auto *view = new QTextBrowser(this);
    view->setObjectName(QStringLiteral("htmlPreview"));
    // Links are not followed inside the preview; it shows the file, it is not a browser.
    view->setOpenLinks(false);
    view->setHtml(readTextPrefix(m_path));
    return view;
}

QWidget *AttachmentPreviewWindow::makeTextPreview()
{
    auto *view = new QPlainTextEdit(this);
    view->setObjectName(QStringLiteral("textPreview"));
    view->setReadOnly(true);
    view->setPlainText(readTextPrefix(m_path));
    return view;
}

QWidget *AttachmentPreviewWindow::makeFileSummary()
{
    const QFileInfo info(m_path);
    auto *summary = new QWidget(this);
    summary->setObjectName(QStringLiteral("fileSummary"));
    auto *column = new QVBoxLayout(summary);
    column->addStretch(1);

    auto *icon = new QLabel(summary);
    icon->setPixmap(QFileIconProvider().icon(info).pixmap(128, 128));
    column->addWidget(icon, 0, Qt::AlignHCenter);
    auto *name = new QLabel(info.fileName(), summary);
    QFont nameFont = name->font();
    nameFont.setBold(true);
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.4);
    name->setFont(nameFont);
    column->addWidget(name, 0, Qt::AlignHCenter);
    auto *size = new QLabel(QLocale().formattedDataSize(info.size()), summary);
    size->setObjectName(QStringLiteral("fileSize"));
    column->addWidget(size, 0, Qt::AlignHCenter);
    auto *type = new QLabel(QMimeDatabase().mimeTypeForFile(info).comment(), summary);
    type->setObjectName(QStringLiteral("fileType"));
    column->addWidget(type, 0, Qt::AlignHCenter);
    auto *openButton = new QPushButton(QStringLiteral("Ouvrir"), summary);
    openButton->setObjectName(QStringLiteral("openFile"));
    column->addWidget(openButton, 0, Qt::AlignHCenter);
    column->addStretch(1);
    connect(openButton, &QPushButton::clicked, this, [this] { m_workspace.openPath(m_path); });
    return summary;
}

} // namespace fiva
