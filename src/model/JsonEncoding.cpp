#include "model/JsonCodec.h"

#include "model/JsonWriter.h"
#include "model/Parallel.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace fiva::json {

namespace {

// Why an encode fails: the place and the problem, turned into the failure description.
struct EncodeFailure
{
    QString description;
};

[[noreturn]] void unwritableDate(const QString &place)
{
    throw EncodeFailure{place + QStringLiteral(": cannot write a date that is not a finite number")};
}

// Counts what a JsonWriter would write, through the same calls, so that sizes cannot drift
// from the bytes.
class SizeCounter final
{
public:
    void raw(char) { ++m_size; }
    void raw(std::string_view text) { m_size += qint64(text.size()); }
    void string(QStringView text) { m_size += JsonWriter::stringSize(text); }
    void uuid(const QUuid &) { m_size += JsonWriter::uuidSize; }
    bool number(double value)
    {
        const qsizetype size = JsonWriter::numberSize(value);
        if (size < 0)
            return false;
        m_size += size;
        return true;
    }
    void boolean(bool value) { m_size += value ? 4 : 5; }

    qint64 size() const { return m_size; }

private:
    qint64 m_size = 0;
};

template <class Writer>
void writeItem(Writer &w, const LinkItem &item, const QString &placePrefix, qsizetype index)
{
    w.raw(R"({"id":)");
    w.uuid(item.id);
    w.raw(R"(,"title":)");
    w.string(item.title);
    w.raw(R"(,"path":)");
    w.string(item.path);
    w.raw(R"(,"category":)");
    w.string(item.category);
    if (item.notes) {
        w.raw(R"(,"notes":)");
        w.string(*item.notes);
    }
    w.raw(R"(,"createdAt":)");
    if (!w.number(item.createdAt.seconds))
        unwritableDate(placePrefix + u'[' + QString::number(index) + QStringLiteral("].createdAt"));
    w.raw(R"(,"isFavorite":)");
    w.boolean(item.isFavorite);
    w.raw(R"(,"attachments":[)");
    bool first = true;
    for (const Attachment &a : item.attachments) {
        if (!first)
            w.raw(',');
        first = false;
        w.raw(R"({"id":)");
        w.uuid(a.id);
        w.raw(R"(,"fileName":)");
        w.string(a.fileName);
        w.raw(R"(,"filePath":)");
        w.string(a.filePath);
        w.raw('}');
    }
    w.raw(R"(],"kind":")");
    switch (item.kind) {
    case LinkKind::url:
        w.raw("url");
        break;
    case LinkKind::file:
        w.raw("file");
        break;
    case LinkKind::directory:
        w.raw("directory");
        break;
    }
    w.raw(R"("})");
}

// Records are encoded on several threads when there are enough of them to pay for starting one.
constexpr std::size_t recordsPerThreadAtLeast = 2048;
// What each thread gathers before handing it to the output.
constexpr qsizetype chunkSize = qsizetype(1) << 20;

// An output that is one byte array of the exact size.
class MemoryOutput final : public DocumentOutput
{
public:
    std::optional<QString> reserve(qint64 size) override
    {
        m_bytes.resize(qsizetype(size));
        // Taken once here: the writes come from several threads and must not touch the array itself.
        m_data = m_bytes.data();
        return std::nullopt;
    }
    std::optional<QString> write(qint64 offset, QByteArrayView bytes) override
    {
        std::memcpy(m_data + offset, bytes.data(), std::size_t(bytes.size()));
        return std::nullopt;
    }
    QByteArray take() { return std::move(m_bytes); }

private:
    QByteArray m_bytes;
    char *m_data = nullptr;
};

} // namespace

// The records are sized first, each run of them on its own thread, so that the document's exact
// size is known before anything is written and each run knows where its bytes go; then each run
// encodes its records again, straight to the output, a chunk at a time.
std::optional<QString> encode(const SavedData &data, DocumentOutput &output)
{
    const QString items = QStringLiteral("items");
    const qsizetype count = data.items.size();
    const std::size_t runs = runCount(std::size_t(count), recordsPerThreadAtLeast);
    struct Run
    {
        qsizetype first = 0;
        qsizetype end = 0;
        qint64 offset = 0;
        qint64 size = 0;
        std::optional<QString> error;
    };
    std::vector<Run> plan(runs);
    for (std::size_t k = 0; k < runs; ++k) {
        plan[k].first = qsizetype(std::size_t(count) * k / runs);
        plan[k].end = qsizetype(std::size_t(count) * (k + 1) / runs);
    }
    forEachRun(runs, [&](std::size_t k) {
        Run &run = plan[k];
        SizeCounter counter;
        try {
            for (qsizetype i = run.first; i < run.end; ++i) {
                if (i > 0)
                    counter.raw(',');
                writeItem(counter, data.items[i], items, i);
            }
        } catch (const EncodeFailure &failure) {
            run.error = failure.description;
        }
        run.size = counter.size();
    });
    for (const Run &run : plan)
        if (run.error)
            return run.error;

    JsonWriter tail(256);
    tail.raw(R"(],"categories":[)");
    for (qsizetype i = 0; i < data.categories.size(); ++i) {
        if (i > 0)
            tail.raw(',');
        tail.string(data.categories[i]);
    }
    tail.raw(']');
    if (data.lastBackupDate) {
        tail.raw(R"(,"lastBackupDate":)");
        if (!tail.number(data.lastBackupDate->seconds))
            return QStringLiteral("lastBackupDate: cannot write a date that is not a finite number");
    }
    tail.raw('}');
    const QByteArray tailBytes = tail.take();
    const QByteArrayView head(R"({"items":[)");

    qint64 offset = head.size();
    for (Run &run : plan) {
        run.offset = offset;
        offset += run.size;
    }
    if (auto error = output.reserve(offset + tailBytes.size()))
        return error;
    if (auto error = output.write(0, head))
        return error;

    forEachRun(runs, [&](std::size_t k) {
        Run &run = plan[k];
        qint64 at = run.offset;
        JsonWriter w(chunkSize, [&](QByteArrayView bytes) {
            if (!run.error && at + bytes.size() <= run.offset + run.size)
                run.error = output.write(at, bytes);
            at += bytes.size();
        });
        for (qsizetype i = run.first; i < run.end && !run.error; ++i) {
            if (i > 0)
                w.raw(',');
            writeItem(w, data.items[i], items, i);
        }
        w.finish();
        if (!run.error && at != run.offset + run.size)
            run.error = QStringLiteral("records changed size while being written");
    });
    for (const Run &run : plan)
        if (run.error)
            return run.error;
    return output.write(offset, tailBytes);
}

Result<QByteArray> encode(const SavedData &data)
{
    MemoryOutput output;
    if (auto error = encode(data, output))
        return Result<QByteArray>::failure(*error);
    return output.take();
}

Result<QByteArray> encode(const QList<BackupLog> &history)
{
    try {
        JsonWriter w(history.size() * 160 + 16);
        w.raw('[');
        for (qsizetype i = 0; i < history.size(); ++i) {
            const BackupLog &log = history[i];
            if (i > 0)
                w.raw(',');
            w.raw(R"({"id":)");
            w.uuid(log.id);
            w.raw(R"(,"date":)");
            if (!w.number(log.date.seconds))
                unwritableDate(u'[' + QString::number(i) + QStringLiteral("].date"));
            w.raw(R"(,"filePath":)");
            w.string(log.filePath);
            w.raw(R"(,"fileSize":)");
            w.integer(log.fileSize);
            w.raw('}');
        }
        w.raw(']');
        return w.take();
    } catch (const EncodeFailure &failure) {
        return Result<QByteArray>::failure(failure.description);
    }
}

} // namespace fiva::json
