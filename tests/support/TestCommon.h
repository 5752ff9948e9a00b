#pragma once

#include "model/LinkItem.h"
#include "model/NotesMarkup.h"
#include "model/Timestamp.h"
#include "platform/Workspace.h"

#include <QAbstractItemModel>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QUuid>

#include <unistd.h>

#include <cstdio>
#include <optional>
#include <ostream>
#include <utility>

#include "support/QtPrinting.h"

// What the store, screen and application tests share: readable failure output, captured console
// lines, a recording desktop, and small file and record helpers.
namespace fiva {

namespace test {

using namespace Qt::StringLiterals;

// Redirects file descriptor 1 so that what the store prints can be compared line by line.
class StdoutCapture final
{
public:
    StdoutCapture() : m_file(std::tmpfile()), m_saved(::dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        ::dup2(::fileno(m_file), STDOUT_FILENO);
    }
    ~StdoutCapture() { finish(); }
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    QString finish()
    {
        if (!m_file)
            return m_text;
        std::fflush(stdout);
        ::dup2(m_saved, STDOUT_FILENO);
        ::close(m_saved);
        std::rewind(m_file);
        QByteArray bytes;
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, m_file)) > 0;)
            bytes.append(buffer, qsizetype(n));
        m_text = QString::fromUtf8(bytes);
        std::fclose(m_file);
        m_file = nullptr;
        return m_text;
    }

private:
    std::FILE *m_file;
    int m_saved;
    QString m_text;
};

// What `action` prints; called without looking at the result, it just keeps the test's output clean.
template <typename F> QString printedBy(F &&action)
{
    StdoutCapture capture;
    action();
    return capture.finish();
}

// Records what the store asked of the desktop.
class RecordingWorkspace final : public Workspace
{
public:
    bool openUrl(const QUrl &url) override { return note(u"openUrl "_s + url.toString()); }
    bool openPath(const QString &path) override { return note(u"openPath "_s + path); }
    bool showFolder(const QString &folder) override { return note(u"showFolder "_s + folder); }
    bool revealItem(const QString &path) override { return note(u"revealItem "_s + path); }
    std::vector<QString> calls;

private:
    bool note(const QString &call)
    {
        calls.push_back(call);
        return true;
    }
};

inline QByteArray readBytes(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline void writeBytes(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(bytes) != bytes.size())
        qFatal("test fixture: cannot write %s", qPrintable(path));
}

inline QByteArray sha256Of(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

// What every row of a list model holds in `role`, as "first|second|…".
inline QString rowTexts(const QAbstractItemModel &model, int role)
{
    QStringList texts;
    for (int row = 0; row < model.rowCount(); ++row)
        texts << model.index(row, 0).data(role).toString();
    return texts.join(u'|');
}

// The wrapping the edit form puts around every note.
inline QString editFormNotes(const QString &text)
{
    return notesHead.toString() + text + notesTail.toString();
}

// A record with every field the record list filters or sorts by at hand.
struct ItemFields
{
    QString title;
    QString path = u"https://example.org"_s;
    std::optional<QString> notes = std::nullopt;
    QString category = u"Sans catégorie"_s;
    double createdAt = 0;
    bool isFavorite = false;
};

inline LinkItem makeItem(const ItemFields &s)
{
    return {QUuid::createUuid(),    s.title,      s.path, s.category, s.notes,
            Timestamp{s.createdAt}, s.isFavorite, {}};
}

// A record of the store tests: a web link named after its title, from 2023.
inline LinkItem makeItem(const QString &title, const QString &category, QList<Attachment> attachments = {})
{
    LinkItem item = makeItem({title, u"https://example.org/"_s + title, std::nullopt, category, 700000000.0});
    item.attachments = std::move(attachments);
    return item;
}

// 2025-01-01 00:00:00 UTC.
inline constexpr Timestamp newYear2025{757382400.0};

} // namespace test
} // namespace fiva
