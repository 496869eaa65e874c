#include "app/MenuBarContent.h"
#include "app/MenuBarLabel.h"
#include "app/SingleInstance.h"
#include "platform/desktop/TrayMenuBarItem.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QMenu>
#include <QPainter>
#include <QSignalSpy>
#include <QTest>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace orvanta;
using Kind = MenuRow::Kind;

namespace {

SessionInfo named(const QString& title, SessionInfo::Source source = SessionInfo::Source::axNamed) {
    return {title, source};
}

SessionInfo untitled(SessionInfo::Source source = SessionInfo::Source::cgHidden) {
    return {std::nullopt, source};
}

QStringList actionTexts(const QMenu& menu) {
    QStringList texts;
    for (QAction* action : menu.actions())
        texts.append(action->isSeparator() ? QStringLiteral("---") : action->text());
    return texts;
}

} // namespace

class MenuBarTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void labelFollowsTrustThenSessions() {
        const auto mixed = DetectorStatus::withSessions(
            {untitled(SessionInfo::Source::axUnnamed), named(QStringLiteral("Accounting")),
             named(QStringLiteral("Later"), SessionInfo::Source::appleScript)});
        // Missing trust wins over a listed session; trust with a stale permission status is just idle.
        QCOMPARE(MenuBarLabel::content(false, mixed).symbol, MenuBarLabel::warningSymbol);
        QVERIFY(MenuBarLabel::content(false, mixed).text.isEmpty());
        QCOMPARE(MenuBarLabel::content(true, DetectorStatus::needsAXPermission()).symbol,
                 MenuBarLabel::idleSymbol);
        for (const auto& status : {DetectorStatus::needsAEPermission(), DetectorStatus::appNotRunning(),
                                   DetectorStatus::noActiveSession()}) {
            const auto label = MenuBarLabel::content(true, status);
            QCOMPARE(label.symbol, MenuBarLabel::idleSymbol);
            QVERIFY(label.text.isEmpty());
        }
        // Every session counts; the title is the first named one's.
        QCOMPARE(MenuBarLabel::content(true, mixed).text, QStringLiteral("3\u25CF Accounting"));
    }

    void titleIsCutByUserPerceivedCharacters_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expected");
        QTest::newRow("16 kept") << QStringLiteral("ABCDEFGHIJKLMNOP") << QStringLiteral("ABCDEFGHIJKLMNOP");
        QTest::newRow("17 cut") << QStringLiteral("ABCDEFGHIJKLMNOPQ")
                                << QStringLiteral("ABCDEFGHIJKLMNO\u2026");
        // Decomposed "é" (two code points) and a flag (two surrogate pairs) are one character each.
        const QString e = QStringLiteral("e\u0301");
        const QString flag = QStringLiteral("\U0001F1E9\U0001F1EA");
        QTest::newRow("combining 16") << e.repeated(16) << e.repeated(16);
        QTest::newRow("combining 17") << e.repeated(17) << e.repeated(15) + QChar(0x2026);
        QTest::newRow("flags 20") << flag.repeated(20) << flag.repeated(15) + QChar(0x2026);
        QTest::newRow("cjk 17") << QStringLiteral("会").repeated(17)
                                << QStringLiteral("会").repeated(15) + QChar(0x2026);
        // Controls are shown, not acted on: a tab, a line feed, a line separator, a C1 control, DELETE.
        QTest::newRow("controls") << QStringLiteral("A\tB\nC\u2028D\u009B\u007F~")
                                  << QStringLiteral("A\u2409B\u240AC\u2424D\uFFFD\u2421~");
        QTest::newRow("controls 17") << QStringLiteral("\t").repeated(17)
                                     << QStringLiteral("\u2409").repeated(15) + QChar(0x2026);
    }

    void titleIsCutByUserPerceivedCharacters() {
        QFETCH(QString, title);
        QFETCH(QString, expected);
        QCOMPARE(MenuBarLabel::shortenedTitle(title), expected);
        const auto label =
            MenuBarLabel::content(true, DetectorStatus::withSessions({named(title), untitled()}));
        QCOMPARE(label.text, QStringLiteral("2\u25CF ") + expected);
    }

    // The permission rows and the session rows are checked where --detect prints the menu.
    void sessionSectionWithoutSessions() {
        QCOMPARE(MenuBarContent::sessionSection(DetectorStatus::appNotRunning()),
                 (QList<MenuRow>{{Kind::information, QStringLiteral("Windows App not running")}}));
    }

    void menuWidgetsRebuildAndAct() {
        QMenu menu;
        QList<SessionInfo> focused;
        QStringList calls;
        MenuBarContent content(&menu, {[&](const SessionInfo& s) { focused.append(s); },
                                       [&] { calls.append(QStringLiteral("open")); },
                                       [&] { calls.append(QStringLiteral("quit")); }});

        const SessionInfo ampersand = named(QStringLiteral("R&D desk"), SessionInfo::Source::appleScript);
        const SessionInfo controls = named(QStringLiteral("Desk\t1\nsecond line"));
        content.rebuild(
            DetectorStatus::withSessions({untitled(SessionInfo::Source::axUnnamed), ampersand, controls}));
        QCOMPARE(actionTexts(menu),
                 (QStringList{QStringLiteral("Active Sessions (3)"), QStringLiteral("Background session"),
                              QStringLiteral("R&&D desk"), QStringLiteral("Desk\u24091\u240Asecond line"),
                              QStringLiteral("---"), QStringLiteral("Open Toolkit Window"),
                              QStringLiteral("Quit")}));
        // Drawn as one row each, the title whole: no second line, no shortcut column.
        QVERIFY(menu.actions()[3]->shortcut().isEmpty());
        menu.popup(QPoint(0, 0));
        QVERIFY(QTest::qWaitForWindowExposed(&menu));
        QCOMPARE(menu.actionGeometry(menu.actions()[3]).height(),
                 menu.actionGeometry(menu.actions()[2]).height());
        QVERIFY(menu.actionGeometry(menu.actions()[3]).width() >
                menu.fontMetrics().horizontalAdvance(QStringLiteral("Desk 1 second line")));
        menu.hide();
        content.rebuild(DetectorStatus::withSessions({untitled(SessionInfo::Source::axUnnamed), ampersand}));
        const QList<QAction*> actions = menu.actions();
        QVERIFY(!actions[0]->isEnabled());
        QVERIFY(actions[1]->isEnabled() && actions[2]->isEnabled());
        QCOMPARE(actions[5]->shortcut(), QKeySequence(QKeySequence::Quit));
        QVERIFY(actions[4]->shortcut().isEmpty());
        // On macOS an action with a role or a telling text would leave this menu for the hidden app menu.
        for (const QAction* action : actions)
            QCOMPARE(action->menuRole(), QAction::NoRole);

        actions[2]->trigger();
        actions[1]->trigger();
        QCOMPARE(focused, (QList<SessionInfo>{ampersand, untitled(SessionInfo::Source::axUnnamed)}));
        QCOMPARE(focused[0].source, SessionInfo::Source::appleScript);
        actions[4]->trigger();
        actions[5]->trigger();
        QCOMPARE(calls, (QStringList{QStringLiteral("open"), QStringLiteral("quit")}));

        content.rebuild(DetectorStatus::noActiveSession());
        QCOMPARE(actionTexts(menu),
                 (QStringList{QStringLiteral("No active sessions"), QStringLiteral("---"),
                              QStringLiteral("Open Toolkit Window"), QStringLiteral("Quit")}));
        QVERIFY(!menu.actions().first()->isEnabled());
        QCOMPARE(focused.size(), 2);
    }

    void trayIconReadsOnLightAndDarkPanels() {
        using platform::TrayMenuBarItem;
        auto sessions = [](int count) {
            return MenuBarLabel::content(
                true, DetectorStatus::withSessions(QList<SessionInfo>(count, named(QStringLiteral("Desk")))));
        };
        const QList<platform::StatusItemLabel> states{
            MenuBarLabel::content(false, DetectorStatus::noActiveSession()), sessions(2),
            MenuBarLabel::content(true, DetectorStatus::noActiveSession())};
        // The image of a state on a panel of `background`, as the tray shows it: 22 points square.
        auto onPanel = [](const platform::StatusItemLabel& label, const QColor& background) {
            const QPixmap icon = TrayMenuBarItem::renderLabel(label, 22, 1.0);
            QImage panel(icon.size(), QImage::Format_RGB32);
            panel.fill(background);
            QPainter(&panel).drawPixmap(0, 0, icon);
            return panel;
        };
        for (const QColor& background :
             {QColor(Qt::white), QColor(0xEE, 0xEE, 0xEE), QColor(0x2B, 0x2B, 0x2B), QColor(Qt::black)}) {
            QList<QImage> images;
            for (const platform::StatusItemLabel& label : states) {
                const QImage image = onPanel(label, background);
                QCOMPARE(image.size(), QSize(22, 22));
                // Enough of the icon stands apart from the panel to be seen.
                int distinct = 0;
                for (int y = 0; y < image.height(); ++y) {
                    for (int x = 0; x < image.width(); ++x)
                        distinct += qAbs(qGray(image.pixel(x, y)) - qGray(background.rgb())) > 64;
                }
                QVERIFY2(distinct > 60, qPrintable(background.name() + u' ' + label.toolTip));
                images.append(image);
            }
            // Three states, three pictures; the badge tells counts apart up to 9.
            QVERIFY(images[0] != images[1] && images[1] != images[2] && images[0] != images[2]);
            QVERIFY(onPanel(sessions(1), background) != onPanel(sessions(2), background));
            QCOMPARE(onPanel(sessions(10), background), onPanel(sessions(12), background));
        }
        QCOMPARE(TrayMenuBarItem::badgeText(12), QStringLiteral("9+"));
        const QPixmap sharp = TrayMenuBarItem::renderLabel(states[1], 22, 2.0);
        QCOMPARE(sharp.size(), QSize(44, 44));
        QCOMPARE(sharp.devicePixelRatio(), 2.0);
        for (const QString& symbol : {MenuBarLabel::warningSymbol, MenuBarLabel::idleSymbol,
                                      QStringLiteral("info.circle"), QStringLiteral("xmark")})
            QVERIFY2(QFile::exists(TrayMenuBarItem::symbolPath(symbol)), qPrintable(symbol));
    }

    void trayItemCarriesTheLabelAsIconAndToolTip() {
        platform::TrayMenuBarItem item;
        const auto label = MenuBarLabel::content(
            true, DetectorStatus::withSessions({named(QStringLiteral("Accounting Department")), untitled()}));
        item.setLabel(label);
        // The icon cannot hold the text: the tooltip has all of it.
        QCOMPARE(item.toolTip(), QStringLiteral("2\u25CF Accounting Depa\u2026"));
        QVERIFY(!item.icon().isNull());
        QVERIFY(item.icon().availableSizes().contains(QSize(22, 22)));
        QVERIFY(!item.icon().isMask());
        item.setLabel(MenuBarLabel::content(false, DetectorStatus::appNotRunning()));
        QCOMPARE(item.toolTip(), QStringLiteral("Orvanta Mac Toolkit"));
        QVERIFY(!item.icon().isNull());
    }

    void secondLaunchAsksTheFirstToShow() {
        const QString key =
            QStringLiteral("orvanta-test-") + QString::number(QCoreApplication::applicationPid());
        // A copy that crashed left its socket behind, bound but with nobody listening.
        const QByteArray path = QFile::encodeName(QDir::tempPath() + u'/' + key);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
        QCOMPARE(::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(stale);
        QVERIFY(QFileInfo::exists(QFile::decodeName(path)));

        SingleInstance first(key);
        QCOMPARE(first.claim(), SingleInstance::Role::primary);
        QSignalSpy shown(&first, &SingleInstance::showRequested);

        SingleInstance second(key);
        QCOMPARE(second.claim(), SingleInstance::Role::secondary);
        QVERIFY(shown.wait(3000));
        QCOMPARE(shown.count(), 1);
    }
};

QTEST_MAIN(MenuBarTest)

#include "tst_menubar.moc"
