#include "NativePlatform.h"

namespace orvanta::platform {

// Only macOS has the frameworks the ports stand for.
std::unique_ptr<NativePlatform> createNativePlatform() {
    return nullptr;
}

} // namespace orvanta::platform
