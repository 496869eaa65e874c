// The menu-bar item as an AppKit status item, which, unlike a tray icon, can show text in the menu bar.
// Main thread only, like all of AppKit's views.

#include "platform/MenuBarItem.h"

#import <AppKit/AppKit.h>

#include <QGuiApplication>
#include <QMenu>
#include <QPointer>

namespace orvanta::platform {

namespace {

class MacStatusItem final : public MenuBarItem {
public:
    MacStatusItem() = default;

    ~MacStatusItem() override {
        if (m_item)
            [[NSStatusBar systemStatusBar] removeStatusItem:m_item];
    }

    void setLabel(const StatusItemLabel& label) override {
        m_label = label;
        applyLabel();
    }

    void setMenu(QMenu* menu) override {
        QObject::disconnect(m_menuGone);
        m_menu = menu;
        // The status item keeps the native menu alive; once the QMenu is gone its items lead nowhere.
        if (menu)
            m_menuGone = QObject::connect(menu, &QObject::destroyed, this, [this] {
                if (m_item)
                    m_item.menu = nil;
            });
        applyMenu();
    }

    void show() override {
        if (m_item)
            return;
        // The status bar does not retain the item: this object's strong reference keeps it in the bar.
        m_item = [[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength];
        applyLabel();
        applyMenu();
    }

private:
    void applyLabel() {
        if (!m_item)
            return;
        NSStatusBarButton* button = m_item.button;
        if (!button)
            return;
        NSImage* image = nil;
        if (m_label.text.isEmpty() && !m_label.symbol.isEmpty()) {
            image = [NSImage imageWithSystemSymbolName:m_label.symbol.toNSString()
                              accessibilityDescription:m_label.toolTip.toNSString()];
            // A template image takes the menu bar's colour in light and dark appearance. (No dot syntax:
            // the property's name is a C++ keyword.)
            [image setTemplate:YES];
        }
        button.image = image;
        if (image)
            button.title = @"";
        else if (!m_label.text.isEmpty())
            button.title = m_label.text.toNSString();
        else
            button.title =
                m_label.toolTip.isEmpty() ? m_label.symbol.toNSString() : m_label.toolTip.toNSString();
    }

    void applyMenu() {
        if (!m_item)
            return;
        // Qt keeps the native menu in step with the QMenu's actions as the caller rebuilds them in place.
        m_item.menu = m_menu ? m_menu->toNSMenu() : nil;
    }

    StatusItemLabel m_label;
    QPointer<QMenu> m_menu;
    QMetaObject::Connection m_menuGone;
    NSStatusItem* m_item = nil;
};

} // namespace

std::unique_ptr<MenuBarItem> createMenuBarItem() {
    // Only Qt's Cocoa plugin runs an NSApplication; under "offscreen" or "minimal" there is no status bar,
    // and the application must fall back to showing its window.
    if (QGuiApplication::platformName() != QLatin1String("cocoa"))
        return nullptr;
    return std::make_unique<MacStatusItem>();
}

} // namespace orvanta::platform
