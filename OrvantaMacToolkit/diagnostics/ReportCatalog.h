#pragma once

#include "diagnostics/ScriptCatalog.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUrl>

#include <array>
#include <optional>

namespace orvanta {

namespace platform {
class Workspace;
}

// One HTML report a diagnostic script left on the Desktop.
struct ReportEntry {
    QUrl url;
    std::optional<ScriptCatalog> script; // none when no report prefix begins the name
    QDateTime modificationDate;          // the distant past when it could not be read

    QString id() const { return url.path(); }
    // The script's title, or "Unknown".
    QString scriptTitle() const;
};

// How many reports the toolkit window lists.
inline constexpr int recentReportLimit = 20;

// Finds the scripts' reports in a folder. Holds no state: every call lists the folder afresh. The folder is
// always a parameter, so tests and simulations can point it anywhere but the real Desktop.
class ReportCatalog {
public:
    ReportCatalog() = delete;

    // The home folder's "Desktop", by its fixed path rather than any system lookup.
    static QUrl reportsFolder();
    // Earlier than any real file date: what an unreadable date counts as.
    static QDateTime distantPast();

    // The script whose report prefix begins `fileName`, testing the scripts in catalog order.
    static std::optional<ScriptCatalog> reportScript(const QString& fileName);
    // Whether `fileName` names a report of any script: a prefix and the extension "html", both
    // case-sensitive.
    static bool isReportName(const QString& fileName);
    static QDateTime reportModificationDate(const QUrl& fileUrl);

    // The newest report of `script` directly in `folder`; of equal dates, the one listed first.
    static std::optional<QUrl> latestReport(ScriptCatalog script, const QUrl& folder);
    // latestReport of every script, in catalog order, from one listing of the folder.
    static std::array<std::optional<QUrl>, 3> latestReports(const QUrl& folder);
    // Up to `limit` reports of all scripts directly in `folder`, newest first; equal dates keep the order
    // of the listing, unreadable dates come last.
    static QList<QUrl> recentReportURLs(const QUrl& folder, qsizetype limit);
    static ReportEntry makeReportEntry(const QUrl& fileUrl);
    // The entries of recentReportURLs(folder, recentReportLimit), newest first.
    static QList<ReportEntry> recentReports(const QUrl& folder);

    // Hands the report to its default application; the outcome is not checked.
    static void open(const QUrl& report, platform::Workspace& workspace);
    // Moves the report to the Trash; a failure is ignored. Callers reload their list either way.
    static void moveToTrash(const QUrl& report, platform::Workspace& workspace);
};

} // namespace orvanta
