// Stand-in: the deployment target (13.5) and the SDK (14) the release is built with.
#pragma once
#define __MAC_13_0 130000
#define __MAC_13_5 130500
#define __MAC_14_0 140000
#define __MAC_OS_X_VERSION_MIN_REQUIRED __MAC_13_5
#define __MAC_OS_X_VERSION_MAX_ALLOWED __MAC_14_0
#define API_AVAILABLE_MACOS_14 __attribute__((availability(macos, introduced = 14.0)))
#define API_DEPRECATED_MACOS_14 __attribute__((availability(macos, introduced = 10.0, deprecated = 14.0)))
