#include "WorldWriter.h"

#include "permissions/PermissionsService.h"
#include "session/SessionDetector.h"
#include "session/SessionInfo.h"

#include <QSaveFile>
#include <QSet>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

namespace orvanta::platform {

namespace {

const QStringList scannedAttributes{QStringLiteral("AXTitle"), QStringLiteral("AXSubrole"),
                                    QStringLiteral("AXSize"), QStringLiteral("AXMinimized")};

// "AXTitle" is written "title".
QString attributeKey(const QString& attribute) {
    return attribute.mid(2, 1).toLower() + attribute.mid(3);
}

std::optional<qint64> integerValue(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Long:
    case QMetaType::Short:
    case QMetaType::SChar:
    case QMetaType::Char:
        return value.toLongLong();
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::ULong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        if (value.toULongLong() <= quint64(std::numeric_limits<qint64>::max()))
            return qint64(value.toULongLong());
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

// A window of the client's list, whoever owns it: the pass reads every window there.
SimWindow recordWindow(Accessibility& ax, const AXElement& element, Pid listPid) {
    SimWindow window;
    const std::optional<Pid> owner = ax.elementPid(element);
    if (!owner)
        window.ownerUnknown = true;
    else if (*owner != listPid)
        window.pid = *owner;
    for (const QString& attribute : scannedAttributes) {
        AXAttributeResult read = ax.copyAttributeValue(element, attribute);
        if (read.error != axError::success) {
            if (read.error != axError::noValue)
                window.readErrors.insert(attribute, read.error);
            continue;
        }
        std::optional<AXValue>& slot = attribute == QLatin1String("AXTitle")     ? window.title
                                       : attribute == QLatin1String("AXSubrole") ? window.subrole
                                       : attribute == QLatin1String("AXSize")    ? window.size
                                                                                 : window.minimized;
        slot = std::move(read.value);
    }
    return window;
}

// The client's entries of the window list. An entry that is not a description at all stays as null, so
// that the census still sees a malformed list; it tells nothing about anyone.
SimWindowList recordWindowList(WindowServer& server, const QSet<Pid>& clientPids) {
    const std::optional<QVariant> info =
        server.copyWindowInfo(windowList::excludeDesktopElements, windowList::nullWindow);
    if (!info || info->typeId() != QMetaType::QVariantList)
        return {SimWindowList::Kind::none, {}};
    QVariantList kept;
    for (const QVariant& entry : info->toList()) {
        if (entry.typeId() != QMetaType::QVariantMap) {
            kept.append(QVariant());
            continue;
        }
        const std::optional<qint64> owner = integerValue(entry.toMap().value(windowList::ownerPID));
        if (owner && clientPids.contains(Pid(*owner)) && *owner == Pid(*owner))
            kept.append(entry);
    }
    return {SimWindowList::Kind::given, kept};
}

// JSON text with the number kinds of the reader: integers plain, floating point always with a fraction or
// an exponent, and the kinds JSON has no form for as tagged objects.
class Writer {
public:
    QByteArray take() { return std::move(m_out); }

    void raw(const char* text) { m_out += text; }

    // A text UTF-8 cannot carry (it holds an unpaired surrogate) is written as its UTF-16 code units.
    void text(const QString& value) {
        if (!value.isValidUtf16()) {
            raw(R"({"$utf16": [)");
            for (qsizetype i = 0; i < value.size(); ++i) {
                raw(i ? ", " : "");
                m_out += QByteArray::number(value.at(i).unicode());
            }
            raw("]}");
            return;
        }
        jsonString(value);
    }

    // A JSON string. A key has no tagged form, so an unpaired surrogate in one becomes U+FFFD.
    void jsonString(const QString& value) {
        m_out += '"';
        qsizetype run = 0;
        const auto flush = [&](qsizetype end) { m_out += QStringView(value).mid(run, end - run).toUtf8(); };
        for (qsizetype i = 0; i < value.size(); ++i) {
            const char16_t c = value.at(i).unicode();
            const bool pairedHigh = QChar::isHighSurrogate(c) && i + 1 < value.size() &&
                                    QChar::isLowSurrogate(value.at(i + 1).unicode());
            if (pairedHigh) {
                ++i;
                continue;
            }
            if (c >= 0x20 && c != '"' && c != '\\' && !QChar::isSurrogate(c))
                continue;
            if (QChar::isSurrogate(c)) {
                flush(i);
                run = i + 1;
                m_out += "\xEF\xBF\xBD";
                continue;
            }
            flush(i);
            run = i + 1;
            switch (c) {
            case '"':
                m_out += "\\\"";
                break;
            case '\\':
                m_out += "\\\\";
                break;
            case '\n':
                m_out += "\\n";
                break;
            case '\r':
                m_out += "\\r";
                break;
            case '\t':
                m_out += "\\t";
                break;
            default: // other control characters
                m_out += "\\u" + QByteArray::number(c, 16).rightJustified(4, '0');
            }
        }
        flush(value.size());
        m_out += '"';
    }

    void integer(qint64 value) { m_out += QByteArray::number(value); }

    void floating(double value) {
        if (!std::isfinite(value)) {
            raw(R"({"$double": ")");
            raw(std::isnan(value) ? "NaN" : value > 0 ? "Infinity" : "-Infinity");
            raw("\"}");
            return;
        }
        QByteArray number = QString::number(value, 'g', QLocale::FloatingPointShortest).toLatin1();
        if (!number.contains('.') && !number.contains('e'))
            number += ".0";
        m_out += number;
    }

    void variant(const QVariant& value) {
        switch (value.typeId()) {
        case QMetaType::Bool:
            raw(value.toBool() ? "true" : "false");
            return;
        case QMetaType::Int:
            integer(value.toInt());
            return;
        case QMetaType::LongLong:
        case QMetaType::Long:
        case QMetaType::Short:
        case QMetaType::SChar:
        case QMetaType::Char: {
            const qint64 number = value.toLongLong();
            if (value.typeId() == QMetaType::LongLong &&
                (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max())) {
                integer(number);
                return;
            }
            raw(R"({"$int64": )");
            integer(number);
            raw("}");
            return;
        }
        case QMetaType::ULongLong:
        case QMetaType::ULong:
        case QMetaType::UInt:
        case QMetaType::UShort:
        case QMetaType::UChar: {
            const quint64 number = value.toULongLong();
            const bool plain = number > quint64(std::numeric_limits<qint64>::max());
            raw(plain ? "" : R"({"$uint64": )");
            m_out += QByteArray::number(number);
            raw(plain ? "" : "}");
            return;
        }
        case QMetaType::Double:
        case QMetaType::Float:
            floating(value.toDouble());
            return;
        case QMetaType::QString:
            text(value.toString());
            return;
        case QMetaType::QDateTime:
            if (value.toDateTime().isValid()) {
                raw(R"({"$date": )");
                text(value.toDateTime().toUTC().toString(Qt::ISODateWithMs));
                raw("}");
                return;
            }
            break;
        case QMetaType::QByteArray:
            raw(R"({"$data": ")");
            m_out += value.toByteArray().toBase64();
            raw("\"}");
            return;
        case QMetaType::QVariantList:
        case QMetaType::QStringList: {
            raw("[");
            bool first = true;
            for (const QVariant& element : value.toList()) {
                raw(first ? "" : ", ");
                first = false;
                variant(element);
            }
            raw("]");
            return;
        }
        case QMetaType::QVariantMap:
        case QMetaType::QVariantHash: {
            const QVariantMap map = value.toMap();
            raw("{");
            for (auto it = map.cbegin(); it != map.cend(); ++it) {
                raw(it == map.cbegin() ? "" : ", ");
                jsonString(it.key());
                raw(": ");
                variant(it.value());
            }
            raw("}");
            return;
        }
        default:
            break;
        }
        raw("null"); // no value, or a kind no platform hands over
    }

    void axValue(const AXValue& value) {
        if (const auto* text = std::get_if<QString>(&value)) {
            this->text(*text);
        } else if (const bool* flag = std::get_if<bool>(&value)) {
            raw(*flag ? "true" : "false");
        } else if (const AXSize* size = std::get_if<AXSize>(&value)) {
            raw("[");
            floating(size->width);
            raw(", ");
            floating(size->height);
            raw("]");
        } else if (std::holds_alternative<QList<AXElement>>(value)) {
            raw(R"({"$other": "list of elements"})");
        } else if (const auto* other = std::get_if<AXOtherValue>(&value)) {
            raw(R"({"$other": )");
            this->text(other->typeDescription);
            raw("}");
        } else {
            raw("null");
        }
    }

    void window(const SimWindow& window) {
        const char* separator = "{";
        const auto key = [&](const char* name) {
            raw(separator);
            separator = ", ";
            raw("\"");
            raw(name);
            raw("\": ");
        };
        const std::pair<const char*, const std::optional<AXValue>*> attributes[] = {
            {"title", &window.title},
            {"subrole", &window.subrole},
            {"size", &window.size},
            {"minimized", &window.minimized}};
        for (const auto& [name, slot] : attributes) {
            if (slot->has_value()) {
                key(name);
                axValue(**slot);
            }
        }
        if (window.ownerUnknown) {
            key("pid");
            raw("null");
        } else if (window.pid) {
            key("pid");
            integer(*window.pid);
        }
        const char* errorSeparator = "{";
        for (const QString& attribute : scannedAttributes) {
            const auto error = window.readErrors.constFind(attribute);
            const std::optional<AXValue>& slot = attribute == QLatin1String("AXTitle")     ? window.title
                                                 : attribute == QLatin1String("AXSubrole") ? window.subrole
                                                 : attribute == QLatin1String("AXSize")    ? window.size
                                                                                           : window.minimized;
            if (error == window.readErrors.cend() || *error == axError::success || slot)
                continue;
            if (*errorSeparator == '{')
                key("errors");
            raw(errorSeparator);
            errorSeparator = ", ";
            text(attributeKey(attribute));
            raw(": ");
            integer(*error);
        }
        if (*errorSeparator != '{')
            raw("}");
        raw(*separator == '{' ? "{}" : "}");
    }

    void appleScript(const AppleScriptOutcome& outcome) {
        if (const auto* result = std::get_if<AppleScriptResult>(&outcome)) {
            raw(R"({"result": )");
            if (result->text)
                text(*result->text);
            else
                raw("null");
            raw("}");
        } else if (const auto* error = std::get_if<AppleScriptError>(&outcome)) {
            raw(R"({"error": )");
            variant(error->info);
            raw("}");
        } else {
            raw(R"({"noScriptObject": true})");
        }
    }

private:
    QByteArray m_out;
};

} // namespace

SimWorld recordWorld(const Platform& platform) {
    Workspace& workspace = *platform.workspace;
    Accessibility& ax = *platform.accessibility;
    SimWorld world;
    world.now = workspace.now().toUTC();
    world.accessibilityTrusted = ax.isProcessTrusted();
    world.appleEventsStatus =
        platform.appleEvents->determinePermissionToAutomate(PermissionsService::systemEventsBundleID, false);
    world.ownPid = workspace.processId();
    world.runningApplications = workspace.runningApplications(windowsAppBundleID);

    QSet<Pid> clientPids;
    for (RunningApplication& app : world.runningApplications) {
        if (app.bundleIdentifier.isEmpty()) // found by this identifier, so replayed by it too
            app.bundleIdentifier = windowsAppBundleID;
        clientPids.insert(app.pid);
    }
    for (const RunningApplication& app : std::as_const(world.runningApplications)) {
        if (world.windows.contains(app.pid) || world.windowsError.contains(app.pid))
            continue;
        const AXAttributeResult read =
            ax.copyAttributeValue(ax.applicationElement(app.pid), QStringLiteral("AXWindows"));
        const auto* elements =
            read.error == axError::success ? std::get_if<QList<AXElement>>(&read.value) : nullptr;
        if (!elements) {
            // A successful read without a list is recorded as error 0, which replays as just that.
            world.windowsError.insert(app.pid, read.error);
            continue;
        }
        QList<SimWindow>& windows = world.windows[app.pid];
        for (const AXElement& element : *elements)
            windows.append(recordWindow(ax, element, app.pid));
    }
    // The query goes to System Events only where a pass would send it, so a recording asks nothing new.
    if (world.accessibilityTrusted && !world.runningApplications.isEmpty())
        world.appleScript = platform.appleScript->run(SessionDetector::appleScriptSource());
    world.windowServer = recordWindowList(*platform.windowServer, clientPids);
    return world;
}

QByteArray worldFileText(const SimWorld& world) {
    Writer out;
    const char* separator = "{\n";
    const auto key = [&](const char* name) {
        out.raw(separator);
        separator = ",\n";
        out.raw("  \"");
        out.raw(name);
        out.raw("\": ");
    };
    // A list with one item a line, each written by `item`.
    const auto lines = [&](qsizetype count, const auto& item, const char* indent) {
        if (count == 0) {
            out.raw("[]");
            return;
        }
        out.raw("[\n");
        for (qsizetype i = 0; i < count; ++i) {
            out.raw(indent);
            item(i);
            out.raw(i + 1 < count ? ",\n" : "\n");
        }
        out.raw(indent + 2);
        out.raw("]");
    };

    if (world.now) {
        key("now");
        out.text(world.now->toUTC().toString(Qt::ISODateWithMs));
    }
    key("accessibilityTrusted");
    out.raw(world.accessibilityTrusted ? "true" : "false");
    key("appleEventsStatus");
    out.integer(world.appleEventsStatus);
    if (world.ownPid) {
        key("ownPid");
        out.integer(*world.ownPid);
    }
    key("runningApplications");
    lines(
        world.runningApplications.size(),
        [&](qsizetype i) {
            const RunningApplication& app = world.runningApplications.at(i);
            out.raw(R"({"bundleIdentifier": )");
            out.text(app.bundleIdentifier);
            out.raw(R"(, "pid": )");
            out.integer(app.pid);
            out.raw(R"(, "name": )");
            out.text(app.name);
            out.raw("}");
        },
        "    ");
    key("windows");
    out.raw("{");
    for (auto it = world.windows.cbegin(); it != world.windows.cend(); ++it) {
        out.raw(it == world.windows.cbegin() ? "\n    \"" : ",\n    \"");
        out.integer(it.key());
        out.raw("\": ");
        lines(
            it->size(), [&](qsizetype i) { out.window(it->at(i)); }, "      ");
    }
    out.raw(world.windows.isEmpty() ? "}" : "\n  }");
    key("windowsError");
    out.raw("{");
    for (auto it = world.windowsError.cbegin(); it != world.windowsError.cend(); ++it) {
        out.raw(it == world.windowsError.cbegin() ? "\"" : ", \"");
        out.integer(it.key());
        out.raw("\": ");
        out.integer(*it);
    }
    out.raw("}");
    if (world.appleScript) {
        key("appleScript");
        out.appleScript(*world.appleScript);
    }
    switch (world.windowServer.kind) {
    case SimWindowList::Kind::derived:
        break;
    case SimWindowList::Kind::none:
        key("windowServer");
        out.raw("null");
        break;
    case SimWindowList::Kind::given:
        key("windowServer");
        if (world.windowServer.value.typeId() == QMetaType::QVariantList) {
            const QVariantList entries = world.windowServer.value.toList();
            lines(
                entries.size(), [&](qsizetype i) { out.variant(entries.at(i)); }, "    ");
        } else {
            out.variant(world.windowServer.value);
        }
        break;
    }
    out.raw("\n}\n");
    return out.take();
}

std::optional<QString> saveWorldFile(const QString& path, const SimWorld& world) {
    const auto failed = [&](const QString& why) {
        return QStringLiteral("%1: cannot write the recording: %2").arg(path, why);
    };
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return failed(file.errorString());
    const QByteArray text = worldFileText(world);
    // QSaveFile does not always keep the reason of a failed write (a full disk reads "Unknown error"), but
    // errno still holds it right after the failing call.
    const auto why = [&] {
        const int code = errno;
        return code != 0 ? QString::fromLocal8Bit(std::strerror(code)) : file.errorString();
    };
    errno = 0;
    if (file.write(text) != text.size() || !file.flush()) {
        const QString reason = why();
        file.cancelWriting();
        return failed(reason);
    }
    errno = 0;
    if (!file.commit())
        return failed(why());
    return std::nullopt;
}

} // namespace orvanta::platform
