#pragma once

#include "diagnostics/ScriptCatalog.h"

#include <QUrl>
#include <QWidget>

#include <array>
#include <functional>

class QComboBox;
class QPushButton;

namespace orvanta {
class ScriptRunner;
}

namespace orvanta::window {

// The Diagnostics section: one card per script with its title and information icon, "Run" and "Open
// Latest Report", and on the Network Monitor's card the duration picker.
class DiagnosticsSection : public QWidget {
    Q_OBJECT
public:
    struct Card {
        ScriptCatalog script;
        ScriptRunner* runner = nullptr;
        QPushButton* run = nullptr;
        QPushButton* openLatest = nullptr;
    };

    // `runners` in catalog order; `reportsFolder` is where "Open Latest Report" looks; `openUrl` opens a
    // report or a help article.
    DiagnosticsSection(std::array<ScriptRunner*, 3> runners, QUrl reportsFolder,
                       std::function<void(const QUrl&)> openUrl, QWidget* parent = nullptr);

    MonitorDuration monitorDuration() const { return m_duration; }
    void setMonitorDuration(MonitorDuration duration);

    // Sets every control from the runners' states and the reports now in the folder.
    void refresh();

    const Card& card(ScriptCatalog script) const { return m_cards[ScriptCatalog::Case(script)]; }
    QComboBox* durationPicker() const { return m_picker; }

private:
    void addCard(ScriptCatalog script, ScriptRunner* runner);
    void openLatest(ScriptCatalog script);

    std::array<Card, 3> m_cards;
    QComboBox* m_picker = nullptr;
    MonitorDuration m_duration = defaultMonitorDuration;
    QUrl m_reportsFolder;
    std::function<void(const QUrl&)> m_openUrl;
};

} // namespace orvanta::window
