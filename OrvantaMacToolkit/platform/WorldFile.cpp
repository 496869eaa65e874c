#include "WorldFile.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QTimeZone>

#include <cstring>
#include <limits>

namespace orvanta::platform {

namespace {

// Where each value of a document starts and whether a number was written with a fraction or an exponent.
// QJsonDocument keeps neither, and both matter: lines for the error messages, number kinds because the
// window server distinguishes integers from floating point.
struct ValueSite {
    int line = 1;
    bool floatingPoint = false;
};

QString childPath(const QString& parent, const QString& key) {
    return parent.isEmpty() ? key : parent + QLatin1Char('.') + key;
}

QString indexPath(const QString& parent, qsizetype index) {
    return parent + QLatin1Char('[') + QString::number(index) + QLatin1Char(']');
}

// Walks a document that QJsonDocument has already accepted, so it need not check the syntax itself.
class SiteScanner {
public:
    explicit SiteScanner(const QByteArray& text) : m_p(text.constData()), m_end(m_p + text.size()) {}

    QHash<QString, ValueSite> scan() {
        value(QString());
        return std::move(m_sites);
    }

private:
    void skipSpace() {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\r' || *m_p == '\n')) {
            if (*m_p == '\n')
                ++m_line;
            ++m_p;
        }
    }

    QString string() {
        const char* start = m_p++;
        bool escaped = false;
        while (m_p < m_end && *m_p != '"') {
            if (*m_p == '\\') {
                escaped = true;
                ++m_p;
            }
            ++m_p;
        }
        ++m_p;
        const QByteArray token(start, m_p - start);
        if (!escaped)
            return QString::fromUtf8(token.mid(1, token.size() - 2));
        return QJsonDocument::fromJson('[' + token + ']').array().at(0).toString();
    }

    void value(const QString& path) {
        skipSpace();
        if (m_p >= m_end)
            return;
        ValueSite& site = m_sites[path];
        site.line = m_line;
        switch (*m_p) {
        case '{': {
            ++m_p;
            skipSpace();
            while (m_p < m_end && *m_p != '}') {
                const QString key = string();
                skipSpace();
                ++m_p; // ':'
                value(childPath(path, key));
                skipSpace();
                if (m_p < m_end && *m_p == ',') {
                    ++m_p;
                    skipSpace();
                }
            }
            ++m_p;
            break;
        }
        case '[': {
            ++m_p;
            skipSpace();
            for (qsizetype index = 0; m_p < m_end && *m_p != ']'; ++index) {
                value(indexPath(path, index));
                skipSpace();
                if (m_p < m_end && *m_p == ',') {
                    ++m_p;
                    skipSpace();
                }
            }
            ++m_p;
            break;
        }
        case '"':
            string();
            break;
        default:
            while (m_p < m_end && !strchr(",]} \t\r\n", *m_p)) {
                if (*m_p == '.' || *m_p == 'e' || *m_p == 'E')
                    site.floatingPoint = true;
                ++m_p;
            }
            break;
        }
    }

    const char* m_p;
    const char* m_end;
    int m_line = 1;
    QHash<QString, ValueSite> m_sites;
};

QString jsonTypeName(const QJsonValue& value) {
    switch (value.type()) {
    case QJsonValue::Null:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return QStringLiteral("a Boolean");
    case QJsonValue::Double:
        return QStringLiteral("a number");
    case QJsonValue::String:
        return QStringLiteral("a text");
    case QJsonValue::Array:
        return QStringLiteral("a list");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    case QJsonValue::Undefined:
        break;
    }
    return QStringLiteral("nothing");
}

// Turns the parsed document into a world, stopping at the first fault.
class WorldReader {
public:
    WorldReader(QString fileName, QHash<QString, ValueSite> sites)
        : m_fileName(std::move(fileName)), m_sites(std::move(sites)) {}

    WorldOrError read(const QJsonDocument& document) {
        if (!document.isObject()) {
            fail(QString(), QStringLiteral("the world must be a JSON object"));
            return m_error;
        }
        SimWorld world;
        if (readWorld(document.object(), world))
            return world;
        return m_error;
    }

private:
    bool fail(const QString& path, const QString& what) {
        // The innermost value that has a known site gives the line.
        QString located = path;
        while (!located.isEmpty() && !m_sites.contains(located)) {
            const qsizetype cut = std::max(located.lastIndexOf(QLatin1Char('.')), located.lastIndexOf('['));
            located = cut > 0 ? located.left(cut) : QString();
        }
        const int line = m_sites.value(located).line;
        m_error = QStringLiteral("%1:%2: %3%4")
                      .arg(m_fileName)
                      .arg(line)
                      .arg(path.isEmpty() ? QString() : QStringLiteral("\"%1\": ").arg(path), what);
        return false;
    }

    bool expected(const QString& path, const QString& what, const QJsonValue& found) {
        return fail(path, QStringLiteral("expected %1, found %2").arg(what, jsonTypeName(found)));
    }

    bool isFloatingPoint(const QString& path) const { return m_sites.value(path).floatingPoint; }

    bool readInt(const QString& path, const QJsonValue& value, int& out) {
        if (value.isDouble() && isFloatingPoint(path))
            return fail(path, QStringLiteral("expected an integer, found a floating-point number"));
        if (!value.isDouble())
            return expected(path, QStringLiteral("an integer"), value);
        const qint64 wide = value.toInteger(std::numeric_limits<qint64>::min());
        if (wide < std::numeric_limits<int>::min() || wide > std::numeric_limits<int>::max())
            return fail(path, QStringLiteral("the integer does not fit in 32 bits"));
        out = static_cast<int>(wide);
        return true;
    }

    bool readBool(const QString& path, const QJsonValue& value, bool& out) {
        if (!value.isBool())
            return expected(path, QStringLiteral("true or false"), value);
        out = value.toBool();
        return true;
    }

    bool readText(const QString& path, const QJsonValue& value, QString& out) {
        if (!value.isString())
            return expected(path, QStringLiteral("a text"), value);
        out = value.toString();
        return true;
    }

    bool readPidKey(const QString& path, const QString& key, Pid& out) {
        bool ok = false;
        out = key.toInt(&ok);
        if (!ok)
            return fail(path, QStringLiteral("the key \"%1\" is not a process identifier").arg(key));
        return true;
    }

    bool knownKeys(const QString& path, const QJsonObject& object, const QStringList& keys) {
        for (auto it = object.constBegin(); it != object.constEnd(); ++it)
            if (!keys.contains(it.key()))
                return fail(
                    childPath(path, it.key()),
                    QStringLiteral("unknown key; expected one of: %1").arg(keys.join(QStringLiteral(", "))));
        return true;
    }

    // Any JSON value as the platform would hand it over: numbers keep their kind.
    QVariant variant(const QString& path, const QJsonValue& value) const {
        switch (value.type()) {
        case QJsonValue::Bool:
            return value.toBool();
        case QJsonValue::String:
            return value.toString();
        case QJsonValue::Double: {
            if (isFloatingPoint(path))
                return value.toDouble();
            constexpr qint64 notAnInteger = std::numeric_limits<qint64>::min();
            const qint64 wide = value.toInteger(notAnInteger);
            if (wide == notAnInteger)
                return value.toDouble(); // beyond 64 bits: Qt keeps it as floating point
            if (wide >= std::numeric_limits<int>::min() && wide <= std::numeric_limits<int>::max())
                return static_cast<int>(wide);
            return wide;
        }
        case QJsonValue::Array: {
            QVariantList list;
            const QJsonArray array = value.toArray();
            for (qsizetype i = 0; i < array.size(); ++i)
                list.append(variant(indexPath(path, i), array.at(i)));
            return list;
        }
        case QJsonValue::Object: {
            QVariantMap map;
            const QJsonObject object = value.toObject();
            for (auto it = object.constBegin(); it != object.constEnd(); ++it)
                map.insert(it.key(), variant(childPath(path, it.key()), it.value()));
            return map;
        }
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            break;
        }
        return {};
    }

    // An Accessibility attribute as written: null is a read without a value, [width, height] a size, and any
    // other type a value of that type, which the reader will not accept.
    static AXValue axValue(const QJsonValue& value) {
        switch (value.type()) {
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            return AXValue();
        case QJsonValue::Bool:
            return AXValue(value.toBool());
        case QJsonValue::String:
            return AXValue(value.toString());
        case QJsonValue::Double:
            return AXValue(AXOtherValue{QStringLiteral("number")});
        case QJsonValue::Object:
            return AXValue(AXOtherValue{QStringLiteral("dictionary")});
        case QJsonValue::Array: {
            const QJsonArray array = value.toArray();
            if (array.size() == 2 && array.at(0).isDouble() && array.at(1).isDouble())
                return AXValue(AXSize{array.at(0).toDouble(), array.at(1).toDouble()});
            return AXValue(AXOtherValue{QStringLiteral("array")});
        }
        }
        return AXValue();
    }

    bool readWindow(const QString& path, const QJsonValue& value, SimWindow& window) {
        if (!value.isObject())
            return expected(path, QStringLiteral("a window object"), value);
        const QJsonObject object = value.toObject();
        if (!knownKeys(path, object,
                       {QStringLiteral("title"), QStringLiteral("subrole"), QStringLiteral("size"),
                        QStringLiteral("minimized"), QStringLiteral("pid")}))
            return false;
        const auto attribute = [&](const char* key, std::optional<AXValue>& slot) {
            const auto it = object.constFind(QLatin1String(key));
            if (it != object.constEnd())
                slot = axValue(it.value());
        };
        attribute("title", window.title);
        attribute("subrole", window.subrole);
        attribute("size", window.size);
        attribute("minimized", window.minimized);
        if (const auto pid = object.constFind(QLatin1String("pid")); pid != object.constEnd()) {
            if (pid->isNull()) {
                window.ownerUnknown = true;
            } else {
                int owner = 0;
                if (!readInt(childPath(path, QStringLiteral("pid")), pid.value(), owner))
                    return false;
                window.pid = owner;
            }
        }
        return true;
    }

    bool readApplication(const QString& path, const QJsonValue& value, RunningApplication& app) {
        if (!value.isObject())
            return expected(path, QStringLiteral("an application object"), value);
        const QJsonObject object = value.toObject();
        if (!knownKeys(path, object,
                       {QStringLiteral("bundleIdentifier"), QStringLiteral("pid"), QStringLiteral("name")}))
            return false;
        if (!object.contains(QLatin1String("pid")))
            return fail(path, QStringLiteral("an application needs a \"pid\""));
        if (!readInt(childPath(path, QStringLiteral("pid")), object.value(QLatin1String("pid")), app.pid))
            return false;
        if (object.contains(QLatin1String("bundleIdentifier")) &&
            !readText(childPath(path, QStringLiteral("bundleIdentifier")),
                      object.value(QLatin1String("bundleIdentifier")), app.bundleIdentifier))
            return false;
        if (object.contains(QLatin1String("name")) &&
            !readText(childPath(path, QStringLiteral("name")), object.value(QLatin1String("name")), app.name))
            return false;
        return true;
    }

    bool readAppleScript(const QString& path, const QJsonValue& value, AppleScriptOutcome& outcome) {
        const QString forms = QStringLiteral(
            "one of {\"result\": text or null}, {\"errorNumber\": integer}, {\"error\": {...}}, "
            "{\"noScriptObject\": true}");
        if (!value.isObject() || value.toObject().size() != 1)
            return fail(path, QStringLiteral("expected %1").arg(forms));
        const QJsonObject object = value.toObject();
        const QString key = object.constBegin().key();
        const QJsonValue inner = object.constBegin().value();
        const QString innerPath = childPath(path, key);
        if (key == QLatin1String("result")) {
            if (inner.isNull()) {
                outcome = AppleScriptResult{std::nullopt};
                return true;
            }
            QString text;
            if (!readText(innerPath, inner, text))
                return false;
            outcome = AppleScriptResult{text};
            return true;
        }
        if (key == QLatin1String("errorNumber")) {
            int number = 0;
            if (!readInt(innerPath, inner, number))
                return false;
            outcome = AppleScriptError{{{appleScriptErrorNumberKey, number}}};
            return true;
        }
        if (key == QLatin1String("error")) {
            if (!inner.isObject())
                return expected(innerPath, QStringLiteral("an error dictionary"), inner);
            outcome = AppleScriptError{variant(innerPath, inner).toMap()};
            return true;
        }
        if (key == QLatin1String("noScriptObject")) {
            if (inner != QJsonValue(true))
                return expected(innerPath, QStringLiteral("true"), inner);
            outcome = std::monostate{};
            return true;
        }
        return fail(innerPath, QStringLiteral("unknown key; expected %1").arg(forms));
    }

    bool readWorld(const QJsonObject& root, SimWorld& world) {
        if (!knownKeys(QString(), root,
                       {QStringLiteral("now"), QStringLiteral("accessibilityTrusted"),
                        QStringLiteral("appleEventsStatus"), QStringLiteral("ownPid"),
                        QStringLiteral("runningApplications"), QStringLiteral("windows"),
                        QStringLiteral("windowsError"), QStringLiteral("appleScript"),
                        QStringLiteral("appleScriptDelayMs"), QStringLiteral("windowServer")}))
            return false;

        for (auto it = root.constBegin(); it != root.constEnd(); ++it) {
            const QString& key = it.key();
            const QJsonValue& value = it.value();
            if (key == QLatin1String("now")) {
                QString text;
                if (!readText(key, value, text))
                    return false;
                QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
                if (!time.isValid())
                    return fail(key, QStringLiteral("not an ISO 8601 time: \"%1\"").arg(text));
                if (time.timeSpec() == Qt::LocalTime) // no zone written: the time is UTC
                    time.setTimeZone(QTimeZone::utc());
                world.now = time.toUTC();
            } else if (key == QLatin1String("accessibilityTrusted")) {
                if (!readBool(key, value, world.accessibilityTrusted))
                    return false;
            } else if (key == QLatin1String("appleEventsStatus")) {
                if (!readInt(key, value, world.appleEventsStatus))
                    return false;
            } else if (key == QLatin1String("appleScriptDelayMs")) {
                if (!readInt(key, value, world.appleScriptDelayMs))
                    return false;
                if (world.appleScriptDelayMs < 0)
                    return fail(key, QStringLiteral("a delay cannot be negative"));
            } else if (key == QLatin1String("ownPid")) {
                int pid = 0;
                if (!readInt(key, value, pid))
                    return false;
                world.ownPid = pid;
            } else if (key == QLatin1String("runningApplications")) {
                if (!value.isArray())
                    return expected(key, QStringLiteral("a list of applications"), value);
                const QJsonArray apps = value.toArray();
                for (qsizetype i = 0; i < apps.size(); ++i) {
                    RunningApplication app;
                    if (!readApplication(indexPath(key, i), apps.at(i), app))
                        return false;
                    world.runningApplications.append(app);
                }
            } else if (key == QLatin1String("windows")) {
                if (!value.isObject())
                    return expected(key, QStringLiteral("an object from pid to windows"), value);
                const QJsonObject byPid = value.toObject();
                for (auto entry = byPid.constBegin(); entry != byPid.constEnd(); ++entry) {
                    const QString path = childPath(key, entry.key());
                    Pid pid = 0;
                    if (!readPidKey(path, entry.key(), pid))
                        return false;
                    if (!entry.value().isArray())
                        return expected(path, QStringLiteral("a list of windows"), entry.value());
                    const QJsonArray list = entry.value().toArray();
                    QList<SimWindow>& windows = world.windows[pid];
                    for (qsizetype i = 0; i < list.size(); ++i) {
                        SimWindow window;
                        if (!readWindow(indexPath(path, i), list.at(i), window))
                            return false;
                        windows.append(window);
                    }
                }
            } else if (key == QLatin1String("windowsError")) {
                if (!value.isObject())
                    return expected(key, QStringLiteral("an object from pid to error code"), value);
                const QJsonObject byPid = value.toObject();
                for (auto entry = byPid.constBegin(); entry != byPid.constEnd(); ++entry) {
                    const QString path = childPath(key, entry.key());
                    Pid pid = 0;
                    int code = 0;
                    if (!readPidKey(path, entry.key(), pid) || !readInt(path, entry.value(), code))
                        return false;
                    world.windowsError[pid] = code;
                }
            } else if (key == QLatin1String("appleScript")) {
                AppleScriptOutcome outcome;
                if (!readAppleScript(key, value, outcome))
                    return false;
                world.appleScript = outcome;
            } else if (key == QLatin1String("windowServer")) {
                if (value.isNull())
                    world.windowServer = {SimWindowList::Kind::none, {}};
                else
                    world.windowServer = {SimWindowList::Kind::given, variant(key, value)};
            }
        }
        return true;
    }

    QString m_fileName;
    QHash<QString, ValueSite> m_sites;
    QString m_error;
};

int lineAt(const QByteArray& text, qsizetype offset) {
    return 1 + static_cast<int>(text.left(qBound<qsizetype>(0, offset, text.size())).count('\n'));
}

} // namespace

WorldOrError parseWorld(const QByteArray& json, const QString& fileName) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return QStringLiteral("%1:%2: not valid JSON: %3")
            .arg(fileName)
            .arg(lineAt(json, error.offset))
            .arg(error.errorString());
    return WorldReader(fileName, SiteScanner(json).scan()).read(document);
}

WorldOrError loadWorldFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("%1: cannot read the world file: %2").arg(path, file.errorString());
    return parseWorld(file.readAll(), path);
}

WorldFileWatcher::WorldFileWatcher(QString path, SimulatedDesktop& desktop, QObject* parent)
    : QObject(parent), m_path(std::move(path)), m_desktop(desktop) {
    m_settle.setSingleShot(true);
    m_settle.setInterval(100);
    connect(&m_settle, &QTimer::timeout, this, &WorldFileWatcher::reload);
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, &m_settle, qOverload<>(&QTimer::start));
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_settle, qOverload<>(&QTimer::start));
    watch();
}

void WorldFileWatcher::watch() {
    // The folder too: an editor that saves by renaming a new file over the old one ends the file's watch.
    const QString folder = QFileInfo(m_path).absolutePath();
    if (!m_watcher.directories().contains(folder))
        m_watcher.addPath(folder);
    if (!m_watcher.files().contains(m_path) && QFileInfo::exists(m_path))
        m_watcher.addPath(m_path);
}

void WorldFileWatcher::reload() {
    watch();
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        // Between an editor's delete and its write the file may be missing for a moment; that is no change.
        if (!QFileInfo::exists(m_path))
            return;
        Q_EMIT reloadFailed(
            QStringLiteral("%1: cannot read the world file: %2").arg(m_path, file.errorString()));
        return;
    }
    const QByteArray content = file.readAll();
    if (content == m_installed)
        return;
    WorldOrError result = parseWorld(content, m_path);
    if (const QString* error = std::get_if<QString>(&result)) {
        m_installed = content; // report a bad version once, not on every unrelated change in the folder
        Q_EMIT reloadFailed(*error);
        return;
    }
    m_installed = content;
    m_desktop.setWorld(std::get<SimWorld>(std::move(result)));
    Q_EMIT reloaded();
}

} // namespace orvanta::platform
