#pragma once

// Shared by the fuzz programs: invariant checks that stop the program (libFuzzer then keeps the input as a
// crash), and builders of loosely typed values from the fuzzer's bytes.

#include <fuzzer/FuzzedDataProvider.h>

#include <QByteArray>
#include <QDebug>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantHash>
#include <QVariantList>
#include <QVariantMap>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

// With FUZZ_TRACE set in the environment, writes a value to standard error: replaying a saved input then
// shows what it was built into. The value is not even built otherwise.
#define FUZZ_TRACE(label, value)                                                                             \
    do {                                                                                                     \
        if (orvanta::fuzzing::tracing())                                                                     \
            orvanta::fuzzing::writeTrace(label, value);                                                      \
    } while (0)

#define FUZZ_CHECK(condition)                                                                                \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "invariant failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__);          \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (0)

namespace orvanta::fuzzing {

inline bool tracing() {
    static const bool enabled = qEnvironmentVariableIsSet("FUZZ_TRACE");
    return enabled;
}

inline void writeTrace(const char* label, const QVariant& value) {
    QString shown;
    if (value.typeId() == QMetaType::QString) {
        for (const QChar c : value.toString())
            shown += QStringLiteral("%1 ").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    } else {
        QDebug(&shown) << value;
    }
    std::fprintf(stderr, "%s: %s\n", label, qUtf8Printable(shown));
}

template <typename T, std::size_t N> T pick(FuzzedDataProvider& input, const std::array<T, N>& choices) {
    return choices[input.ConsumeIntegralInRange<std::size_t>(0, N - 1)];
}

// A text from bytes: as UTF-8 (replacement characters for bad sequences), or as raw UTF-16 code units, which
// reaches lone surrogates and every other unit Qt can hold.
inline QString textFromBytes(const std::string& bytes, bool utf16) {
    if (!utf16)
        return QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
    QString text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        text.append(QChar(char16_t(quint8(bytes[i]) | (quint8(bytes[i + 1]) << 8))));
    return text;
}

inline QString consumeText(FuzzedDataProvider& input, std::size_t maxLength = 64) {
    const bool utf16 = input.ConsumeBool();
    return textFromBytes(input.ConsumeRandomLengthString(maxLength), utf16);
}

// An integer near the values the code compares against, or any value.
inline qint64 consumeInteger(FuzzedDataProvider& input) {
    static constexpr std::array<qint64, 16> interesting{0,
                                                        1,
                                                        -1,
                                                        3,
                                                        812,
                                                        813,
                                                        4242,
                                                        -1743,
                                                        -10004,
                                                        1400,
                                                        800,
                                                        std::numeric_limits<qint32>::max(),
                                                        std::numeric_limits<qint32>::min(),
                                                        qint64(std::numeric_limits<quint32>::max()) - 1742,
                                                        std::numeric_limits<qint64>::min(),
                                                        std::numeric_limits<qint64>::max()};
    if (input.ConsumeBool())
        return pick(input, interesting);
    return input.ConsumeIntegral<qint64>();
}

inline double consumeDouble(FuzzedDataProvider& input) {
    static constexpr std::array<double, 12> interesting{1400,
                                                        1399.5,
                                                        800,
                                                        799.9999,
                                                        1920,
                                                        1080,
                                                        0,
                                                        -0.0,
                                                        std::numeric_limits<double>::infinity(),
                                                        -std::numeric_limits<double>::infinity(),
                                                        std::numeric_limits<double>::quiet_NaN(),
                                                        1e308};
    if (input.ConsumeBool())
        return pick(input, interesting);
    const quint64 bits = input.ConsumeIntegral<quint64>();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// An integer of one of Qt's integer kinds (Bool included, which is not a number to the code).
inline QVariant consumeIntegerVariant(FuzzedDataProvider& input) {
    const qint64 value = consumeInteger(input);
    switch (input.ConsumeIntegralInRange(0, 11)) {
    case 0:
        return QVariant::fromValue(int(value));
    case 1:
        return QVariant::fromValue(uint(value));
    case 2:
        return QVariant::fromValue(qlonglong(value));
    case 3:
        return QVariant::fromValue(qulonglong(value));
    case 4:
        return QVariant::fromValue(short(value));
    case 5:
        return QVariant::fromValue(ushort(value));
    case 6:
        return QVariant::fromValue(long(value));
    case 7:
        return QVariant::fromValue(ulong(value));
    case 8:
        return QVariant::fromValue(char(value));
    case 9:
        return QVariant::fromValue(qint8(value));
    case 10:
        return QVariant::fromValue(quint8(value));
    default:
        return QVariant::fromValue(value != 0);
    }
}

inline QString consumeKey(FuzzedDataProvider& input) {
    static const std::array<QString, 9> keys{QStringLiteral("kCGWindowOwnerPID"),
                                             QStringLiteral("kCGWindowLayer"),
                                             QStringLiteral("kCGWindowBounds"),
                                             QStringLiteral("Width"),
                                             QStringLiteral("Height"),
                                             QStringLiteral("X"),
                                             QStringLiteral("NSAppleScriptErrorNumber"),
                                             QStringLiteral("NSAppleScriptErrorMessage"),
                                             QString()};
    if (input.ConsumeBool())
        return pick(input, keys);
    return consumeText(input, 24);
}

// Any value: nothing, numbers of every kind, texts, bytes, and lists and dictionaries of more of the same.
inline QVariant consumeVariant(FuzzedDataProvider& input, int depth = 0) {
    const int kind = input.ConsumeIntegralInRange(0, depth >= 4 ? 5 : 9);
    switch (kind) {
    case 0:
        return {};
    case 1:
        return consumeIntegerVariant(input);
    case 2:
        return QVariant(consumeDouble(input));
    case 3:
        return QVariant(float(consumeDouble(input)));
    case 4:
        return QVariant(consumeText(input));
    case 5:
        return QVariant(QByteArray::fromStdString(input.ConsumeRandomLengthString(16)));
    case 6: {
        QVariantList list;
        const int count = input.ConsumeIntegralInRange(0, 6);
        for (int i = 0; i < count && input.remaining_bytes() > 0; ++i)
            list.append(consumeVariant(input, depth + 1));
        return list;
    }
    case 7: {
        QVariantHash hash;
        const int count = input.ConsumeIntegralInRange(0, 4);
        for (int i = 0; i < count && input.remaining_bytes() > 0; ++i)
            hash.insert(consumeKey(input), consumeVariant(input, depth + 1));
        return hash;
    }
    case 8:
        return QStringList{consumeText(input), consumeText(input)};
    default: {
        QVariantMap map;
        const int count = input.ConsumeIntegralInRange(0, 6);
        for (int i = 0; i < count && input.remaining_bytes() > 0; ++i)
            map.insert(consumeKey(input), consumeVariant(input, depth + 1));
        return map;
    }
    }
}

// True for Qt's integer kinds other than Bool.
inline bool isIntegerKind(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return true;
    default:
        return false;
    }
}

} // namespace orvanta::fuzzing
