#pragma once

// Included only by the Objective-C++ sources of this folder.

#include <CoreFoundation/CoreFoundation.h>

#include <QString>
#include <QVariant>

namespace orvanta::platform::mac {

// A Core Foundation property-list value as a QVariant, keeping the kind of every number:
// floating point becomes Double, an integer stored in 32 bits or fewer Int, any other integer LongLong.
// Text is QString, Boolean bool, arrays QVariantList, dictionaries whose keys are all text QVariantMap,
// dates QDateTime, data QByteArray. Anything else (including a dictionary with other keys) is an invalid
// QVariant, which no reader mistakes for one of the kinds above. `value` is borrowed, never released.
QVariant toVariant(CFTypeRef value);

// The name of a value's Core Foundation type, such as "CFNumber", for values the caller does not read.
QString typeName(CFTypeRef value);

} // namespace orvanta::platform::mac
