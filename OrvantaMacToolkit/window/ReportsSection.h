#pragma once

#include "diagnostics/ReportCatalog.h"

#include <QAbstractTableModel>
#include <QList>
#include <QWidget>

#include <functional>

class QStackedLayout;
class QTableView;

namespace orvanta::window {

// One key of the table's order; the first of the list is the primary key.
struct ReportSortComparator {
    enum class Key { modificationDate, scriptTitle };
    Key key = Key::modificationDate;
    bool reverse = false;

    bool operator==(const ReportSortComparator&) const = default;
};
using ReportSortOrder = QList<ReportSortComparator>;

// Newest first, the order a freshly opened window lists reports in.
ReportSortOrder initialReportSortOrder();
// Stable: entries equal under every comparator keep their order.
QList<ReportEntry> sortedReports(QList<ReportEntry> entries, const ReportSortOrder& order);
// The order after a click on a column header; the "Actions" column (and any other) leaves it as it was.
ReportSortOrder reportSortOrderAfterClick(const ReportSortOrder& order, int column);
// "yyyy-MM-dd HH:mm:ss" in the user's locale and time zone.
QString formattedReportTimestamp(const QDateTime& date);

class ReportsModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { timestampColumn, typeColumn, actionsColumn, columnCount_ };

    using QAbstractTableModel::QAbstractTableModel;

    void setReports(QList<ReportEntry> reports);
    const QList<ReportEntry>& reports() const { return m_reports; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QList<ReportEntry> m_reports;
};

// The Recent Reports section: a sortable table of the newest reports with "Open" and Trash buttons per row,
// or the "No reports yet." box when there are none.
class ReportsSection : public QWidget {
    Q_OBJECT
public:
    struct Actions {
        std::function<void(const ReportEntry&)> open;
        std::function<void(const ReportEntry&)> trash; // the window reloads the list afterwards
    };

    static inline const QString placeholderText = QStringLiteral("No reports yet.");

    explicit ReportsSection(Actions actions, QWidget* parent = nullptr);

    // Replaces the list, sorted by the current order.
    void setReports(const QList<ReportEntry>& reports);
    const QList<ReportEntry>& reports() const { return m_model->reports(); }
    const ReportSortOrder& sortOrder() const { return m_order; }

    QTableView* table() const { return m_table; }
    QWidget* placeholder() const { return m_placeholder; }
    bool showsPlaceholder() const;

private:
    void headerClicked(int column);
    void showReports(QList<ReportEntry> reports);
    void installRowButtons();
    QWidget* makeRowButtons(const ReportEntry& entry);
    void applySortIndicator();

    Actions m_actions;
    ReportSortOrder m_order = initialReportSortOrder();
    ReportsModel* m_model;
    QTableView* m_table;
    QWidget* m_placeholder;
    QStackedLayout* m_stack;
};

} // namespace orvanta::window
