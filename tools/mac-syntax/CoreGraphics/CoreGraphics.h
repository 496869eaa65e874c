// Stand-in for the parts of CoreGraphics the backend calls, declared as the SDK declares them.
#pragma once
#include <CoreFoundation/CoreFoundation.h>

typedef double CGFloat;
struct CGPoint {
    CGFloat x;
    CGFloat y;
};
struct CGSize {
    CGFloat width;
    CGFloat height;
};
struct CGRect {
    CGPoint origin;
    CGSize size;
};
typedef uint32_t CGWindowID;
typedef uint32_t CGWindowListOption;

extern "C" {
extern const CGSize CGSizeZero;
extern const CGRect CGRectZero;
extern const CFStringRef kCGWindowOwnerPID;
extern const CFStringRef kCGWindowLayer;
extern const CFStringRef kCGWindowBounds;
CFArrayRef CGWindowListCopyWindowInfo(CGWindowListOption option, CGWindowID relativeToWindow);
bool CGRectMakeWithDictionaryRepresentation(CFDictionaryRef dict, CGRect* rect);
}
