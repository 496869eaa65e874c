#pragma once

// Included only by the Objective-C++ sources of this folder.

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace orvanta::platform::mac {

// Owns one Core Foundation reference: released exactly once, when the holder goes or is reset.
// `adopt` takes a reference from a Create or Copy function; `retain` keeps one obtained under the
// Get rule alive beyond its container.
template <typename T> class CFRef {
public:
    CFRef() = default;
    static CFRef adopt(T ref) { return CFRef(ref); }
    static CFRef retain(T ref) {
        if (ref)
            CFRetain(ref);
        return CFRef(ref);
    }

    ~CFRef() { reset(); }
    CFRef(const CFRef& other) : m_ref(other.m_ref) {
        if (m_ref)
            CFRetain(m_ref);
    }
    CFRef& operator=(const CFRef& other) {
        CFRef copy(other);
        swap(copy);
        return *this;
    }
    CFRef(CFRef&& other) noexcept : m_ref(std::exchange(other.m_ref, nullptr)) {}
    CFRef& operator=(CFRef&& other) noexcept {
        CFRef moved(std::move(other));
        swap(moved);
        return *this;
    }

    T get() const { return m_ref; }
    explicit operator bool() const { return m_ref != nullptr; }

    // For out-parameters of Copy functions: releases what is held and hands out the empty slot.
    T* put() {
        reset();
        return &m_ref;
    }

    void reset() {
        if (m_ref)
            CFRelease(m_ref);
        m_ref = nullptr;
    }
    void swap(CFRef& other) noexcept { std::swap(m_ref, other.m_ref); }

private:
    explicit CFRef(T ref) : m_ref(ref) {}
    T m_ref = nullptr;
};

} // namespace orvanta::platform::mac
