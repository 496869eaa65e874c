#pragma once

// The macOS implementation of each port. Included only by the Objective-C++ sources of this folder.

#include "platform/Platform.h"

#include <memory>

namespace orvanta::platform::mac {

std::unique_ptr<Accessibility> makeAccessibility();
std::unique_ptr<AppleScriptHost> makeAppleScriptHost();
std::unique_ptr<WindowServer> makeWindowServer();
std::unique_ptr<AppleEvents> makeAppleEvents();
std::unique_ptr<Workspace> makeWorkspace();

} // namespace orvanta::platform::mac
