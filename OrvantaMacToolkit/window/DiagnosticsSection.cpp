#include "window/DiagnosticsSection.h"

#include "diagnostics/ReportCatalog.h"
#include "diagnostics/ScriptRunner.h"
#include "window/InfoButton.h"
#include "window/WindowStyle.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace orvanta::window {

DiagnosticsSection::DiagnosticsSection(std::array<ScriptRunner*, 3> runners, QUrl reportsFolder,
                                       std::function<void(const QUrl&)> openUrl, QWidget* parent)
    : QWidget(parent), m_reportsFolder(std::move(reportsFolder)), m_openUrl(std::move(openUrl)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(makeHeading(QStringLiteral("Diagnostics"), this));
    for (ScriptCatalog script : ScriptCatalog::allCases())
        addCard(script, runners[ScriptCatalog::Case(script)]);
    for (const Card& card : m_cards)
        connect(card.runner, &ScriptRunner::stateChanged, this, &DiagnosticsSection::refresh);
    refresh();
}

void DiagnosticsSection::addCard(ScriptCatalog script, ScriptRunner* runner) {
    auto* row = new QHBoxLayout;
    auto* titleBlock = new QWidget(this);
    titleBlock->setMinimumWidth(200);
    auto* titleLayout = new QHBoxLayout(titleBlock);
    titleLayout->setContentsMargins(0, 0, 0, 0);
    titleLayout->setSpacing(4);
    titleLayout->addWidget(new QLabel(script.title(), titleBlock));
    auto* info = new InfoButton(script.helpArticle().value_or(QUrl()).toString(), script.details(), m_openUrl,
                                titleBlock);
    info->setSubject(script.title());
    titleLayout->addWidget(info);
    titleLayout->addStretch(1);
    row->addWidget(titleBlock);
    row->addStretch(1);

    if (script == ScriptCatalog::networkMonitor) {
        m_picker = new QComboBox(this);
        m_picker->setFixedWidth(110);
        m_picker->setToolTip(monitorDurationHelp);
        m_picker->setAccessibleName(QStringLiteral("Network Monitor duration"));
        m_picker->setAccessibleDescription(monitorDurationHelp);
        for (MonitorDuration duration : MonitorDuration::allCases())
            m_picker->addItem(duration.label());
        m_picker->setCurrentIndex(MonitorDuration::Case(m_duration));
        connect(m_picker, &QComboBox::currentIndexChanged, this, [this](int index) {
            if (index >= 0 && index < MonitorDuration::allCases().size())
                m_duration = MonitorDuration::allCases()[index];
        });
        row->addWidget(m_picker);
    }

    Card& card = m_cards[ScriptCatalog::Case(script)];
    card.script = script;
    card.runner = runner;
    card.run = new QPushButton(QStringLiteral("Run"), this);
    card.run->setToolTip(script.summary());
    // Three buttons read "Run": a screen reader needs to know which.
    card.run->setAccessibleName(QStringLiteral("Run ") + script.title());
    card.run->setAccessibleDescription(script.summary());
    card.openLatest = new QPushButton(QStringLiteral("Open Latest Report"), this);
    card.openLatest->setToolTip(script.openLatestHelp());
    card.openLatest->setAccessibleName(QStringLiteral("Open Latest ") + script.title() +
                                       QStringLiteral(" Report"));
    card.openLatest->setAccessibleDescription(script.openLatestHelp());
    row->addWidget(card.run);
    row->addWidget(card.openLatest);
    connect(card.run, &QPushButton::clicked, this,
            [this, script, runner] { runner->run(script, argumentsFor(script, m_duration)); });
    connect(card.openLatest, &QPushButton::clicked, this, [this, script] { openLatest(script); });
    static_cast<QVBoxLayout*>(layout())->addLayout(row);
}

void DiagnosticsSection::setMonitorDuration(MonitorDuration duration) {
    m_duration = duration;
    if (m_picker)
        m_picker->setCurrentIndex(MonitorDuration::Case(duration));
}

void DiagnosticsSection::refresh() {
    // One listing for the three cards: a crowded Desktop is read once per refresh, not three times.
    const std::array<std::optional<QUrl>, 3> latest = ReportCatalog::latestReports(m_reportsFolder);
    for (const Card& card : m_cards) {
        card.run->setEnabled(!card.runner->isRunning());
        card.openLatest->setEnabled(latest[ScriptCatalog::Case(card.script)].has_value());
    }
    m_picker->setEnabled(!card(ScriptCatalog::networkMonitor).runner->isRunning());
}

void DiagnosticsSection::openLatest(ScriptCatalog script) {
    // The report may have gone since the card was drawn.
    if (const std::optional<QUrl> report = ReportCatalog::latestReport(script, m_reportsFolder)) {
        if (m_openUrl)
            m_openUrl(*report);
    }
}

} // namespace orvanta::window
