#include "CFConvert.h"

#include "CFRef.h"

#include <QByteArray>
#include <QDateTime>
#include <QVariantList>
#include <QVariantMap>

#include <vector>

namespace orvanta::platform::mac {

namespace {

QVariant numberToVariant(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &value);
        return value;
    }
    switch (CFNumberGetType(number)) {
    case kCFNumberSInt8Type:
    case kCFNumberSInt16Type:
    case kCFNumberSInt32Type:
    case kCFNumberCharType:
    case kCFNumberShortType:
    case kCFNumberIntType: {
        SInt32 value = 0;
        CFNumberGetValue(number, kCFNumberSInt32Type, &value);
        return int(value);
    }
    default: {
        SInt64 value = 0;
        CFNumberGetValue(number, kCFNumberSInt64Type, &value);
        return qlonglong(value);
    }
    }
}

QVariant arrayToVariant(CFArrayRef array) {
    QVariantList list;
    const CFIndex count = CFArrayGetCount(array);
    list.reserve(count);
    for (CFIndex i = 0; i < count; ++i)
        list.append(toVariant(CFArrayGetValueAtIndex(array, i)));
    return list;
}

QVariant dictionaryToVariant(CFDictionaryRef dictionary) {
    const CFIndex count = CFDictionaryGetCount(dictionary);
    std::vector<const void*> keys(static_cast<size_t>(count));
    std::vector<const void*> values(static_cast<size_t>(count));
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    QVariantMap map;
    for (CFIndex i = 0; i < count; ++i) {
        if (!keys[i] || CFGetTypeID(keys[i]) != CFStringGetTypeID())
            return {};
        map.insert(QString::fromCFString(static_cast<CFStringRef>(keys[i])), toVariant(values[i]));
    }
    return map;
}

} // namespace

QVariant toVariant(CFTypeRef value) {
    if (!value)
        return {};
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID())
        return QString::fromCFString(static_cast<CFStringRef>(value));
    if (type == CFBooleanGetTypeID())
        return bool(CFBooleanGetValue(static_cast<CFBooleanRef>(value)));
    if (type == CFNumberGetTypeID())
        return numberToVariant(static_cast<CFNumberRef>(value));
    if (type == CFArrayGetTypeID())
        return arrayToVariant(static_cast<CFArrayRef>(value));
    if (type == CFDictionaryGetTypeID())
        return dictionaryToVariant(static_cast<CFDictionaryRef>(value));
    if (type == CFDateGetTypeID())
        return QDateTime::fromCFDate(static_cast<CFDateRef>(value));
    if (type == CFDataGetTypeID())
        return QByteArray::fromCFData(static_cast<CFDataRef>(value));
    return {};
}

QString typeName(CFTypeRef value) {
    if (!value)
        return {};
    const auto description = CFRef<CFStringRef>::adopt(CFCopyTypeIDDescription(CFGetTypeID(value)));
    return description ? QString::fromCFString(description.get()) : QString();
}

} // namespace orvanta::platform::mac
