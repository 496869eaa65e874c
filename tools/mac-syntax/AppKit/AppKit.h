// Stand-in for the parts of AppKit the backend uses, declared as the SDK declares them.
#pragma once
#include <CoreGraphics/CoreGraphics.h>
#include <Foundation/Foundation.h>

typedef enum : NSUInteger {
    NSApplicationActivateAllWindows = 1 << 0,
    NSApplicationActivateIgnoringOtherApps API_DEPRECATED_MACOS_14 = 1 << 1,
} NSApplicationActivationOptions;

@interface NSRunningApplication : NSObject
@property(readonly) pid_t processIdentifier;
@property(readonly, nullable, copy) NSString* bundleIdentifier;
@property(readonly, nullable, copy) NSString* localizedName;
+ (NSArray<NSRunningApplication*>* _Nonnull)runningApplicationsWithBundleIdentifier:
    (NSString* _Nonnull)bundleIdentifier;
+ (instancetype _Nullable)runningApplicationWithProcessIdentifier:(pid_t)pid;
- (BOOL)activateWithOptions:(NSApplicationActivationOptions)options;
@end

@interface NSApplication : NSObject
- (void)activateIgnoringOtherApps:(BOOL)ignoreOtherApps API_DEPRECATED_MACOS_14;
- (void)activate API_AVAILABLE_MACOS_14;
- (void)yieldActivationToApplication:(NSRunningApplication* _Nonnull)application API_AVAILABLE_MACOS_14;
@end
extern "C" __kindof NSApplication* _Null_unspecified NSApp;

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* _Nonnull sharedWorkspace;
@property(readonly, strong) NSNotificationCenter* _Nonnull notificationCenter;
- (BOOL)openURL:(NSURL* _Nonnull)url;
@end
extern "C" NSNotificationName _Nonnull const NSWorkspaceDidWakeNotification;

@interface NSImage : NSObject
+ (instancetype _Nullable)imageWithSystemSymbolName:(NSString* _Nonnull)name
                           accessibilityDescription:(NSString* _Nullable)description;
- (void)setTemplate:(BOOL)isTemplate;
@end
@interface NSMenu : NSObject
@end
@interface NSButton : NSObject
@property(copy) NSString* _Nonnull title;
@property(strong, nullable) NSImage* image;
@property(copy, nullable) NSString* toolTip;
@end
@interface NSStatusBarButton : NSButton
@end
@interface NSStatusItem : NSObject
@property(readonly, strong, nullable) NSStatusBarButton* button;
@property(strong, nullable) NSMenu* menu;
@end
@interface NSStatusBar : NSObject
@property(class, readonly, strong) NSStatusBar* _Nonnull systemStatusBar;
- (NSStatusItem* _Nonnull)statusItemWithLength:(CGFloat)length;
- (void)removeStatusItem:(NSStatusItem* _Nonnull)item;
@end
extern "C" const CGFloat NSVariableStatusItemLength;
