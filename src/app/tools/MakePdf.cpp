// Turns one of the HTML documents in resources/ into the PDF shipped beside it, at build time:
// fiva-make-pdf INPUT.html OUTPUT.pdf TITLE
#include <QFile>
#include <QGuiApplication>
#include <QMarginsF>
#include <QPageLayout>
#include <QPageSize>
#include <QPdfWriter>
#include <QTextDocument>

#include <cstdio>

int main(int argc, char *argv[])
{
    QGuiApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4) {
        std::fprintf(stderr, "usage: fiva-make-pdf INPUT.html OUTPUT.pdf TITLE\n");
        return 2;
    }
    QFile input(arguments.at(1));
    if (!input.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "fiva-make-pdf: cannot read %s\n", qPrintable(arguments.at(1)));
        return 1;
    }
    const QString html = QString::fromUtf8(input.readAll());

    QPdfWriter writer(arguments.at(2));
    writer.setTitle(arguments.at(3));
    writer.setCreator(QStringLiteral("Fiva"));
    writer.setResolution(300);
    writer.setPageLayout(QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait,
                                     QMarginsF(20, 20, 20, 20), QPageLayout::Millimeter));

    QTextDocument document;
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPointSizeF(10.5);
    document.setDefaultFont(font);
    document.setHtml(html);
    document.setMetaInformation(QTextDocument::DocumentTitle, arguments.at(3));
    document.print(&writer);

    // QPdfWriter reports nothing; an empty or missing file means the write failed.
    QFile output(arguments.at(2));
    if (!output.exists() || output.size() == 0) {
        std::fprintf(stderr, "fiva-make-pdf: cannot write %s\n", qPrintable(arguments.at(2)));
        return 1;
    }
    return 0;
}
