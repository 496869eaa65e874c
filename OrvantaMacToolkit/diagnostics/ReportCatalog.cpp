#include "ReportCatalog.h"

#include "platform/Platform.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

#include <algorithm>

namespace orvanta {

namespace {

// The names of the folder's immediate entries that pass `keep`, in listing order, hidden ones skipped; of
// any kind, so a folder named like a report counts as one. None when the folder cannot be listed. Names
// are tested before anything else is read, so a crowded folder costs little more than its listing.
template <typename Keep> std::optional<QStringList> listFolder(const QUrl& folder, Keep keep) {
    const QString path = folder.toLocalFile();
    if (!QFileInfo(path).isDir())
        return std::nullopt;
    QStringList names;
    QDirIterator entries(path, QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
    while (entries.hasNext()) {
        entries.next();
        const QString name = entries.fileName();
        // Hidden means more than a leading dot on some systems, so ask for the few names that pass.
        if (keep(name) && !entries.fileInfo().isHidden())
            names.append(name);
    }
    return names;
}

bool hasHtmlExtension(const QString& fileName) {
    return fileName.endsWith(QLatin1String(".html"));
}

QUrl entryUrl(const QUrl& folder, const QString& name) {
    return QUrl::fromLocalFile(QDir(folder.toLocalFile()).filePath(name));
}

} // namespace

QString ReportEntry::scriptTitle() const {
    return script ? script->title() : QStringLiteral("Unknown");
}

QUrl ReportCatalog::reportsFolder() {
    return QUrl::fromLocalFile(QDir::homePath() + QStringLiteral("/Desktop"));
}

QDateTime ReportCatalog::distantPast() {
    return QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC);
}

std::optional<ScriptCatalog> ReportCatalog::reportScript(const QString& fileName) {
    for (ScriptCatalog script : ScriptCatalog::allCases()) {
        if (fileName.startsWith(script.reportPrefix()))
            return script;
    }
    return std::nullopt;
}

bool ReportCatalog::isReportName(const QString& fileName) {
    return hasHtmlExtension(fileName) && reportScript(fileName).has_value();
}

QDateTime ReportCatalog::reportModificationDate(const QUrl& fileUrl) {
    const QDateTime date = QFileInfo(fileUrl.toLocalFile()).fileTime(QFileDevice::FileModificationTime);
    return date.isValid() ? date : distantPast();
}

std::optional<QUrl> ReportCatalog::latestReport(ScriptCatalog script, const QUrl& folder) {
    return latestReports(folder)[ScriptCatalog::Case(script)];
}

std::array<std::optional<QUrl>, 3> ReportCatalog::latestReports(const QUrl& folder) {
    std::array<std::optional<QUrl>, 3> choices;
    const std::optional<QStringList> names = listFolder(folder, isReportName);
    if (!names)
        return choices;
    std::array<QDateTime, 3> choiceDates;
    for (const QString& name : *names) {
        const int index = ScriptCatalog::Case(*reportScript(name));
        const QUrl url = entryUrl(folder, name);
        const QDateTime date = reportModificationDate(url);
        if (!choices[index] || date > choiceDates[index]) {
            choices[index] = url;
            choiceDates[index] = date;
        }
    }
    return choices;
}

QList<QUrl> ReportCatalog::recentReportURLs(const QUrl& folder, qsizetype limit) {
    if (limit <= 0)
        return {};
    const std::optional<QStringList> names = listFolder(folder, isReportName);
    if (!names)
        return {};
    struct Dated {
        QUrl url;
        QDateTime date;
    };
    QList<Dated> reports;
    for (const QString& name : *names) {
        const QUrl url = entryUrl(folder, name);
        reports.append({url, reportModificationDate(url)});
    }
    std::stable_sort(reports.begin(), reports.end(),
                     [](const Dated& a, const Dated& b) { return a.date > b.date; });
    QList<QUrl> urls;
    const qsizetype count = std::min(limit, reports.size());
    urls.reserve(count);
    for (qsizetype i = 0; i < count; ++i)
        urls.append(reports[i].url);
    return urls;
}

ReportEntry ReportCatalog::makeReportEntry(const QUrl& fileUrl) {
    return {fileUrl, reportScript(fileUrl.fileName()), reportModificationDate(fileUrl)};
}

QList<ReportEntry> ReportCatalog::recentReports(const QUrl& folder) {
    QList<ReportEntry> entries;
    for (const QUrl& url : recentReportURLs(folder, recentReportLimit))
        entries.append(makeReportEntry(url));
    return entries;
}

void ReportCatalog::open(const QUrl& report, platform::Workspace& workspace) {
    workspace.openUrl(report);
}

void ReportCatalog::moveToTrash(const QUrl& report, platform::Workspace& workspace) {
    workspace.moveToTrash(report.toLocalFile());
}

} // namespace orvanta
