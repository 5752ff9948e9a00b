#pragma once

#include <QString>
#include <QWidget>

#include <optional>

class QPdfDocument;
class QPdfView;

namespace fiva {

// A window showing one PDF document scaled to fit. Each request gets a window of its own, which
// lives until the user closes it.
class PdfWindow final : public QWidget
{
    Q_OBJECT

public:
    // Without a file the viewer stays empty; the window is shown all the same.
    PdfWindow(const QString &title, const std::optional<QString> &pdfFile, QWidget *parent = nullptr);

    QPdfDocument *document() const { return m_document; }
    QPdfView *view() const { return m_view; }
    const std::optional<QString> &file() const { return m_file; }

private:
    QPdfDocument *m_document = nullptr;
    QPdfView *m_view = nullptr;
    std::optional<QString> m_file;
};

} // namespace fiva
