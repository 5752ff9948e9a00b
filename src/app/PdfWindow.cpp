#include "app/PdfWindow.h"

#include <QPdfDocument>
#include <QPdfView>
#include <QVBoxLayout>

namespace fiva {

PdfWindow::PdfWindow(const QString &title, const std::optional<QString> &pdfFile, QWidget *parent)
    : QWidget(parent, Qt::Window), m_file(pdfFile)
{
    setWindowTitle(title);
    setAttribute(Qt::WA_DeleteOnClose);

    m_document = new QPdfDocument(this);
    m_view = new QPdfView(this);
    m_view->setObjectName(QStringLiteral("pdfView"));
    m_view->setPageMode(QPdfView::PageMode::MultiPage);
    m_view->setZoomMode(QPdfView::ZoomMode::FitInView);
    m_view->setDocument(m_document);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);
    resize(600, 800);

    if (m_file)
        m_document->load(*m_file);
}

} // namespace fiva
