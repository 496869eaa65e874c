#include "window/ReportsSection.h"

#include "window/WindowStyle.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QStackedLayout>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>
#include <memory>

namespace orvanta::window {

namespace {

const QString timestampPattern = QStringLiteral("yyyy-MM-dd HH:mm:ss");

// -1, 0 or 1 for one comparator, before its direction is applied.
int compare(const ReportEntry& a, const ReportEntry& b, ReportSortComparator::Key key) {
    if (key == ReportSortComparator::Key::modificationDate) {
        if (a.modificationDate == b.modificationDate)
            return 0;
        return a.modificationDate < b.modificationDate ? -1 : 1;
    }
    // Plain comparison of the text's code units: the order must not depend on the user's locale.
    const int order = QString::compare(a.scriptTitle(), b.scriptTitle(), Qt::CaseSensitive);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

bool sameRows(const QList<ReportEntry>& a, const QList<ReportEntry>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const ReportEntry& x, const ReportEntry& y) {
        return x.url == y.url && x.script == y.script && x.modificationDate == y.modificationDate;
    });
}

} // namespace

ReportSortOrder initialReportSortOrder() {
    return {{ReportSortComparator::Key::modificationDate, true}};
}

QList<ReportEntry> sortedReports(QList<ReportEntry> entries, const ReportSortOrder& order) {
    std::stable_sort(entries.begin(), entries.end(), [&order](const ReportEntry& a, const ReportEntry& b) {
        for (const ReportSortComparator& comparator : order) {
            int result = compare(a, b, comparator.key);
            if (comparator.reverse)
                result = -result;
            if (result != 0)
                return result < 0;
        }
        return false;
    });
    return entries;
}

ReportSortOrder reportSortOrderAfterClick(const ReportSortOrder& order, int column) {
    ReportSortComparator::Key key;
    if (column == ReportsModel::timestampColumn)
        key = ReportSortComparator::Key::modificationDate;
    else if (column == ReportsModel::typeColumn)
        key = ReportSortComparator::Key::scriptTitle;
    else
        return order;

    if (!order.isEmpty() && order.first().key == key) {
        ReportSortOrder reversed = order;
        reversed.first().reverse = !reversed.first().reverse;
        return reversed;
    }
    ReportSortOrder result{{key, false}};
    for (const ReportSortComparator& comparator : order) {
        if (comparator.key != key)
            result.append(comparator);
    }
    return result;
}

QString formattedReportTimestamp(const QDateTime& date) {
    return QLocale::system().toString(date.toLocalTime(), timestampPattern);
}

void ReportsModel::setReports(QList<ReportEntry> reports) {
    beginResetModel();
    m_reports = std::move(reports);
    endResetModel();
}

int ReportsModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_reports.size());
}

int ReportsModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : columnCount_;
}

QVariant ReportsModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_reports.size())
        return {};
    const ReportEntry& entry = m_reports[index.row()];
    switch (index.column()) {
    case timestampColumn:
        if (role == Qt::DisplayRole)
            return formattedReportTimestamp(entry.modificationDate);
        if (role == Qt::FontRole)
            return QFontDatabase::systemFont(QFontDatabase::FixedFont);
        if (role == Qt::ForegroundRole)
            return secondaryTextColor(QPalette());
        break;
    case typeColumn:
        if (role == Qt::DisplayRole)
            return entry.scriptTitle();
        break;
    default:
        break;
    }
    if (role == Qt::ToolTipRole && index.column() != actionsColumn)
        return entry.id();
    return {};
}

QVariant ReportsModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case timestampColumn:
        return QStringLiteral("Timestamp");
    case typeColumn:
        return QStringLiteral("Report Type");
    case actionsColumn:
        return QStringLiteral("Actions");
    default:
        return {};
    }
}

ReportsSection::ReportsSection(Actions actions, QWidget* parent)
    : QWidget(parent), m_actions(std::move(actions)), m_model(new ReportsModel(this)),
      m_table(new QTableView), m_placeholder(new InsetPanel(PanelBackground::control)),
      m_stack(new QStackedLayout) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(makeHeading(QStringLiteral("Recent Reports"), this));

    auto* placeholderLayout = new QVBoxLayout(m_placeholder);
    placeholderLayout->setContentsMargins(8, 8, 8, 8);
    auto* placeholderLabel = new QLabel(placeholderText, m_placeholder);
    QPalette palette = placeholderLabel->palette();
    palette.setColor(QPalette::WindowText, secondaryTextColor(palette));
    placeholderLabel->setPalette(palette);
    placeholderLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    placeholderLayout->addWidget(placeholderLabel, 0, Qt::AlignTop | Qt::AlignLeft);
    placeholderLayout->addStretch(1);

    m_table->setModel(m_model);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->horizontalHeader()->setSectionsClickable(true);
    m_table->horizontalHeader()->setHighlightSections(false);
    // Desktop tables title their columns at the leading edge, like the cells below.
    m_table->horizontalHeader()->setDefaultAlignment(Qt::AlignLeading | Qt::AlignVCenter);
    m_table->setAccessibleName(QStringLiteral("Recent Reports"));
    // Every row holds the two buttons, so every row is as high as they need, whatever is loaded or sorted.
    {
        const std::unique_ptr<QWidget> sample(makeRowButtons({}));
        m_table->verticalHeader()->setMinimumSectionSize(0);
        m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
        m_table->verticalHeader()->setDefaultSectionSize(
            std::max(sample->sizeHint().height(), m_table->fontMetrics().height()) + 2);
    }
    m_table->setShowGrid(false);
    m_table->setAlternatingRowColors(true);
    connect(m_table->horizontalHeader(), &QHeaderView::sectionClicked, this, &ReportsSection::headerClicked);

    m_stack->addWidget(m_placeholder);
    m_stack->addWidget(m_table);
    layout->addLayout(m_stack, 1);
    showReports({});
}

bool ReportsSection::showsPlaceholder() const {
    return m_stack->currentWidget() == m_placeholder;
}

void ReportsSection::setReports(const QList<ReportEntry>& reports) {
    QList<ReportEntry> sorted = sortedReports(reports, m_order);
    // The list is reloaded every few seconds; rebuilding an unchanged table would drop the user's selection
    // and replace the row buttons, losing a click that spans the reload.
    if (sameRows(sorted, m_model->reports()))
        return;
    showReports(std::move(sorted));
}

void ReportsSection::headerClicked(int column) {
    const ReportSortOrder order = reportSortOrderAfterClick(m_order, column);
    if (order == m_order) {
        // The header has already moved its arrow to the clicked column; put it back.
        applySortIndicator();
        return;
    }
    m_order = order;
    showReports(sortedReports(m_model->reports(), m_order));
}

void ReportsSection::showReports(QList<ReportEntry> reports) {
    m_model->setReports(std::move(reports));
    applySortIndicator();
    installRowButtons();
    m_stack->setCurrentWidget(m_model->reports().isEmpty() ? m_placeholder : static_cast<QWidget*>(m_table));
    m_table->resizeColumnToContents(ReportsModel::timestampColumn);
    m_table->resizeColumnToContents(ReportsModel::typeColumn);
}

void ReportsSection::applySortIndicator() {
    QHeaderView* header = m_table->horizontalHeader();
    const ReportSortComparator& first = m_order.first();
    header->setSortIndicatorShown(true);
    header->setSortIndicator(first.key == ReportSortComparator::Key::modificationDate
                                 ? ReportsModel::timestampColumn
                                 : ReportsModel::typeColumn,
                             first.reverse ? Qt::DescendingOrder : Qt::AscendingOrder);
}

QWidget* ReportsSection::makeRowButtons(const ReportEntry& entry) {
    auto* cell = new QWidget;
    auto* cellLayout = new QHBoxLayout(cell);
    cellLayout->setContentsMargins(2, 0, 2, 0);
    cellLayout->setSpacing(6);
    cellLayout->addStretch(1);

    const QString name = entry.url.fileName();
    auto* open = new QPushButton(QStringLiteral("Open"), cell);
    open->setObjectName(QStringLiteral("openReport"));
    // Every row has the same two buttons: their accessible names say which report they act on.
    open->setAccessibleName(QStringLiteral("Open ") + name);
    open->setAccessibleDescription(QStringLiteral("Open this report in its default application."));
    auto* trash = new QPushButton(cell);
    trash->setObjectName(QStringLiteral("trashReport"));
    trash->setIcon(
        QIcon(renderSvg(QStringLiteral(":/icons/xmark.svg"), 12, devicePixelRatioF(), QColor(Qt::red))));
    trash->setToolTip(QStringLiteral("Move this report to the Trash."));
    trash->setAccessibleName(QStringLiteral("Move ") + name + QStringLiteral(" to the Trash"));
    trash->setAccessibleDescription(trash->toolTip());
    for (QPushButton* button : {open, trash}) {
        QFont font = button->font();
        font.setPointSizeF(font.pointSizeF() * 0.9);
        button->setFont(font);
        cellLayout->addWidget(button);
    }
    // An icon button is drawn taller than a text button; the pair sits on one line.
    trash->setFixedHeight(open->sizeHint().height());
    connect(open, &QPushButton::clicked, this, [this, entry] {
        if (m_actions.open)
            m_actions.open(entry);
    });
    // Queued: the trash action reloads the table, which deletes this button.
    connect(
        trash, &QPushButton::clicked, this,
        [this, entry] {
            if (m_actions.trash)
                m_actions.trash(entry);
        },
        Qt::QueuedConnection);
    return cell;
}

void ReportsSection::installRowButtons() {
    for (int row = 0; row < m_model->rowCount(); ++row)
        m_table->setIndexWidget(m_model->index(row, ReportsModel::actionsColumn),
                                makeRowButtons(m_model->reports()[row]));
}

} // namespace orvanta::window
