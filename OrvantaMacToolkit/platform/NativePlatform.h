#pragma once

#include "Platform.h"

#include <memory>

namespace orvanta::platform {

// The real operating system behind every port, where this build has a backend for it.
class NativePlatform {
public:
    virtual ~NativePlatform() = default;
    virtual Platform platform() = 0;
};

// The native backend, or nullptr on platforms without one (there the simulated desktop stands in).
std::unique_ptr<NativePlatform> createNativePlatform();

} // namespace orvanta::platform
