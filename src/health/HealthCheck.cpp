#include "health/HealthCheck.h"

#include "model/Parallel.h"

#include <QFile>

#include <sys/stat.h>

#include <atomic>
#include <cerrno>

namespace fiva {

namespace {

QString quoted(const QString &text)
{
    return QStringLiteral("« ") + text + QStringLiteral(" »");
}

} // namespace

QString Problem::description() const
{
    switch (kind) {
    case ProblemKind::pathMissing:
        return QStringLiteral("Rien n’existe à l’emplacement ") + quoted(subject) + u'.';
    case ProblemKind::notAFile:
        return quoted(subject) + QStringLiteral(" est un dossier, pas un fichier.");
    case ProblemKind::notAFolder:
        return quoted(subject) + QStringLiteral(" n’est pas un dossier.");
    case ProblemKind::pathUnreachable:
        return QStringLiteral("Impossible d’examiner ") + quoted(subject) +
               QStringLiteral(" (accès refusé ou support indisponible).");
    case ProblemKind::attachmentMissing:
        return QStringLiteral("La copie de la pièce jointe ") + quoted(attachmentName) +
               QStringLiteral(" est introuvable : ") + subject + u'.';
    case ProblemKind::webBroken:
        return web ? web->description() : QStringLiteral("La dernière vérification de la page a échoué.");
    }
    return {};
}

PathInfo inspectPath(const QString &path)
{
    // A NUL would cut the name short and make stat() answer for another path.
    if (path.isEmpty() || path.contains(QChar(0)))
        return {};
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) {
        // ENOENT and ENOTDIR mean nothing is there; anything else means we could not look.
        return {errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG ? PathState::missing
                                                                             : PathState::unreachable,
                0};
    }
    return {S_ISDIR(st.st_mode) ? PathState::folder : PathState::file, static_cast<qint64>(st.st_size)};
}

RecordHealth checkRecord(const LinkItem &item, const WebResults &web)
{
    RecordHealth health{item.id, {}, {}};
    if (item.kind == LinkKind::url) {
        const auto found = web.constFind(item.id);
        if (found != web.cend() && found->address == item.path && found->isBroken())
            health.problems.append({ProblemKind::webBroken, item.path, {}, {}, *found});
    } else {
        const PathInfo info = inspectPath(item.path);
        std::optional<ProblemKind> kind;
        switch (info.state) {
        case PathState::missing:
            kind = ProblemKind::pathMissing;
            break;
        case PathState::unreachable:
            kind = ProblemKind::pathUnreachable;
            break;
        case PathState::file:
            if (item.kind == LinkKind::directory)
                kind = ProblemKind::notAFolder;
            break;
        case PathState::folder:
            if (item.kind == LinkKind::file)
                kind = ProblemKind::notAFile;
            break;
        }
        if (kind)
            health.problems.append({*kind, item.path, {}, {}, {}});
    }
    for (const Attachment &attachment : item.attachments) {
        const PathInfo info = inspectPath(attachment.filePath);
        if (info.state == PathState::file)
            health.attachmentSizes.insert(attachment.id, info.size);
        else
            health.problems.append({ProblemKind::attachmentMissing,
                                    attachment.filePath,
                                    attachment.id,
                                    attachment.fileName,
                                    {}});
    }
    return health;
}

std::optional<QList<RecordHealth>> checkRecords(const QList<LinkItem> &items, const WebResults &web,
                                                std::stop_token stop,
                                                const std::function<void(qsizetype)> &progress)
{
    const std::size_t count = static_cast<std::size_t>(items.size());
    QList<RecordHealth> results(items.size());
    // Stats of missing files cost a few microseconds each; splitting pays off only for thousands.
    const std::size_t runs = runCount(count, 4096);
    std::atomic<qsizetype> done = 0;
    std::atomic<bool> stopped = false;
    constexpr std::size_t slice = 512;
    RecordHealth *out = results.data(); // detached once, before the runs share it
    forEachRun(runs, [&](std::size_t run) {
        const std::size_t begin = count * run / runs;
        const std::size_t end = count * (run + 1) / runs;
        for (std::size_t i = begin; i < end; i += slice) {
            if (stop.stop_requested() || stopped.load(std::memory_order_relaxed)) {
                stopped = true;
                return;
            }
            const std::size_t sliceEnd = std::min(end, i + slice);
            for (std::size_t j = i; j < sliceEnd; ++j)
                out[j] = checkRecord(items[qsizetype(j)], web);
            const qsizetype total = done += qsizetype(sliceEnd - i);
            if (run == 0 && progress)
                progress(total);
        }
    });
    if (stopped || stop.stop_requested())
        return std::nullopt;
    if (progress)
        progress(items.size());
    return results;
}

} // namespace fiva
