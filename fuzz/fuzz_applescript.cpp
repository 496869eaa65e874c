// The System Events query over whatever the script host answers: no script object, a result with arbitrary
// text or none, or an error dictionary of arbitrary contents.

#include "FuzzSupport.h"

#include "platform/simulated/SimulatedDesktop.h"
#include "session/SessionDetector.h"
#include "support/TextRules.h"

using namespace orvanta;
using namespace orvanta::fuzzing;
using namespace orvanta::platform;

namespace {

// The error code: an integer of any kind whose value an int holds; 0 otherwise.
qlonglong expectedCode(const QVariantMap& info) {
    const auto found = info.constFind(appleScriptErrorNumberKey);
    if (found == info.constEnd() || !isIntegerKind(*found))
        return 0;
    const bool isUnsigned = found->typeId() == QMetaType::ULongLong || found->typeId() == QMetaType::ULong ||
                            found->typeId() == QMetaType::UInt || found->typeId() == QMetaType::UShort ||
                            found->typeId() == QMetaType::UChar;
    if (isUnsigned)
        return found->toULongLong() > quint64(std::numeric_limits<qlonglong>::max())
                   ? 0
                   : qlonglong(found->toULongLong());
    return found->toLongLong();
}

void checkError(const QVariantMap& info, const SessionDetector::AppleScriptQueryResult& result,
                const DebugCollector& collector) {
    const qlonglong code = expectedCode(info);
    const bool denied =
        code == SessionDetector::appleEventNotPermitted || code == SessionDetector::appleEventPrivilegeError;
    FUZZ_TRACE("log", collector.lines);
    FUZZ_CHECK(result.titles.isEmpty());
    FUZZ_CHECK(result.permissionDenied == denied);
    FUZZ_CHECK(collector.lines.size() == 1);
    FUZZ_CHECK(collector.lines.first() ==
               QStringLiteral("AS detect: error code=%1 permissionDenied=%2")
                   .arg(code)
                   .arg(denied ? QStringLiteral("true") : QStringLiteral("false")));
}

void checkResult(const std::optional<QString>& text, const SessionDetector::AppleScriptQueryResult& result,
                 const DebugCollector& collector) {
    FUZZ_CHECK(!result.permissionDenied);
    QStringList raw;
    for (const QString& piece : text.value_or(QString()).split(QLatin1Char('\n')))
        if (const QString name = piece.trimmed(); !name.isEmpty())
            raw << name;
    QStringList kept;
    for (const QString& name : raw)
        if (!SessionDetector::isExcludedTitle(name))
            kept << name;
    FUZZ_CHECK(result.titles == kept);
    for (const QString& title : result.titles)
        FUZZ_CHECK(!title.isEmpty() && text::trimmed(title) == title && !title.contains(QLatin1Char('\n')));
    FUZZ_CHECK(collector.lines ==
               QStringList{QStringLiteral("AS detect: raw=%1 filtered=%2").arg(raw.size()).arg(kept.size())});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    SimWorld world;
    const int shape = input.ConsumeIntegralInRange(0, 7);
    QVariantMap info;
    std::optional<QString> text;
    if (shape == 0) {
        world.appleScript = AppleScriptOutcome{};
    } else if (shape <= 3) {
        // A dictionary with an error number of any kind, or any dictionary at all.
        if (shape == 1)
            info.insert(appleScriptErrorNumberKey, consumeIntegerVariant(input));
        else if (shape == 2)
            info.insert(appleScriptErrorNumberKey, consumeVariant(input));
        const int extra = input.ConsumeIntegralInRange(0, 4);
        for (int i = 0; i < extra && input.remaining_bytes() > 0; ++i)
            info.insert(consumeKey(input), consumeVariant(input));
        world.appleScript = AppleScriptError{info};
    } else {
        const bool utf16 = input.ConsumeBool();
        if (shape != 4)
            text = textFromBytes(input.ConsumeRemainingBytesAsString(), utf16);
        world.appleScript = AppleScriptResult{text};
    }

    FUZZ_TRACE("error dictionary", info);
    FUZZ_TRACE("text", text ? QVariant(*text) : QVariant());
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const SessionDetector::AppleScriptQueryResult result =
        SessionDetector::queryAppleScriptWindows(desktop.platform(), &collector);
    FUZZ_CHECK(desktop.lastAppleScriptSource() == SessionDetector::appleScriptSource());

    if (shape == 0) {
        FUZZ_CHECK(result.titles.isEmpty() && !result.permissionDenied && collector.lines.isEmpty());
    } else if (shape <= 3) {
        checkError(info, result, collector);
    } else {
        checkResult(text, result, collector);
    }
    // The collector changes nothing but the log.
    const SessionDetector::AppleScriptQueryResult quiet =
        SessionDetector::queryAppleScriptWindows(desktop.platform());
    FUZZ_CHECK(quiet.titles == result.titles && quiet.permissionDenied == result.permissionDenied);
    return 0;
}
