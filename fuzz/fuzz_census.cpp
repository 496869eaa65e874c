// The census over an arbitrary window list: well-formed window descriptions, descriptions with any value
// under any key, and lists, dictionaries and other values where descriptions belong.

#include "FuzzSupport.h"

#include "platform/simulated/SimulatedDesktop.h"
#include "session/SessionDetector.h"

using namespace orvanta;
using namespace orvanta::fuzzing;
using namespace orvanta::platform;

namespace {

// A value under a known key: usually of the kind the window server gives, sometimes anything.
QVariant consumeEntryValue(FuzzedDataProvider& input, int wellFormedKind) {
    if (input.ConsumeIntegralInRange(0, 3) == 0)
        return consumeVariant(input, 1);
    switch (wellFormedKind) {
    case QMetaType::Int:
        return QVariant::fromValue(int(consumeInteger(input)));
    case QMetaType::Double:
        return QVariant(consumeDouble(input));
    default:
        return {};
    }
}

QVariant consumeWindow(FuzzedDataProvider& input) {
    QVariantMap window;
    if (input.ConsumeBool())
        window.insert(windowList::ownerPID, consumeEntryValue(input, QMetaType::Int));
    if (input.ConsumeBool())
        window.insert(windowList::layer, consumeEntryValue(input, QMetaType::Int));
    if (input.ConsumeBool()) {
        if (input.ConsumeIntegralInRange(0, 5) == 0) {
            window.insert(windowList::bounds, consumeVariant(input, 1));
        } else {
            QVariantMap bounds;
            if (input.ConsumeBool())
                bounds.insert(windowList::width, consumeEntryValue(input, QMetaType::Double));
            if (input.ConsumeBool())
                bounds.insert(windowList::height, consumeEntryValue(input, QMetaType::Double));
            window.insert(windowList::bounds, bounds);
        }
    }
    if (input.ConsumeIntegralInRange(0, 3) == 0)
        window.insert(consumeKey(input), consumeVariant(input, 1));
    return window;
}

QVariant consumeWindowList(FuzzedDataProvider& input) {
    if (input.ConsumeIntegralInRange(0, 7) == 0)
        return consumeVariant(input);
    QVariantList list;
    const int count = input.ConsumeIntegralInRange(0, 12);
    for (int i = 0; i < count && input.remaining_bytes() > 0; ++i)
        list.append(input.ConsumeIntegralInRange(0, 15) == 0 ? consumeVariant(input, 1)
                                                             : consumeWindow(input));
    return list;
}

// The census as the rules state it, written without looking at how the detector is written.
std::optional<int> expectedCount(const QSet<Pid>& clients, const std::optional<QVariant>& info) {
    if (!info || info->typeId() != QMetaType::QVariantList)
        return std::nullopt;
    const QVariantList entries = info->toList();
    for (const QVariant& entry : entries)
        if (entry.typeId() != QMetaType::QVariantMap)
            return std::nullopt;
    int count = 0;
    for (const QVariant& entry : entries) {
        const QVariantMap window = entry.toMap();
        const QVariant owner = window.value(windowList::ownerPID);
        if (owner.typeId() != QMetaType::Int || !clients.contains(owner.toInt()))
            continue;
        const QVariant layer = window.value(windowList::layer);
        if (isIntegerKind(layer) && !(layer.toLongLong() == 0 && layer.toULongLong() == 0))
            continue;
        const QVariant bounds = window.value(windowList::bounds);
        if (bounds.typeId() != QMetaType::QVariantMap)
            continue;
        const QVariant width = bounds.toMap().value(windowList::width);
        const QVariant height = bounds.toMap().value(windowList::height);
        const auto floating = [](const QVariant& v) {
            return v.typeId() == QMetaType::Double || v.typeId() == QMetaType::Float;
        };
        if (!floating(width) || !floating(height))
            continue;
        if (width.toDouble() >= 1400 && height.toDouble() >= 800)
            ++count;
    }
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    SimWorld world;
    QSet<Pid> clients;
    const int instances = input.ConsumeIntegralInRange(0, 3);
    for (int i = 0; i < instances; ++i) {
        const Pid pid = input.ConsumeBool() ? 812 + i : input.ConsumeIntegral<Pid>();
        world.runningApplications.append({pid, windowsAppBundleID, windowsAppProcessName});
        clients.insert(pid);
    }
    if (input.ConsumeBool())
        world.runningApplications.append(
            {4242, QStringLiteral("com.example.other"), QStringLiteral("Other")});
    const bool listed = input.ConsumeIntegralInRange(0, 15) != 0;
    world.windowServer.kind = listed ? SimWindowList::Kind::given : SimWindowList::Kind::none;
    if (listed)
        world.windowServer.value = consumeWindowList(input);

    FUZZ_TRACE("clients", QVariant::fromValue(QList<Pid>(clients.cbegin(), clients.cend())));
    FUZZ_TRACE("window list", world.windowServer.value);
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const int count = SessionDetector::countLargeHiddenWindows(desktop.platform(), &collector);
    FUZZ_CHECK(count >= 0);
    FUZZ_CHECK(SessionDetector::countLargeHiddenWindows(desktop.platform()) == count);

    const std::optional<int> expected =
        clients.isEmpty() ? std::optional<int>() : expectedCount(clients, desktop.copyWindowInfo(16, 0));
    FUZZ_TRACE("count", count);
    FUZZ_TRACE("expected", expected ? QVariant(*expected) : QVariant());
    FUZZ_CHECK(count == expected.value_or(0));
    if (expected) {
        FUZZ_CHECK(collector.lines ==
                   QStringList{QStringLiteral("CG tiebreaker: %1 large hidden window(s)").arg(count)});
    } else {
        FUZZ_CHECK(collector.lines.isEmpty());
    }
    return 0;
}
