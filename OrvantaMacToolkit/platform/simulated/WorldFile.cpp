#include "WorldFile.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>
#include <QTimeZone>

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <vector>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace orvanta::platform {

namespace {

// Deep enough for any world, shallow enough that a file of brackets is refused early.
constexpr size_t maximumDepth = 200;

// Kinds of value, as a set. An integer that fits in 32 bits is `isInt`; every integer is also `isNumber`.
// clang-format off
enum Kind : unsigned { isNull = 1, isBool = 2, isInt = 4, isNumber = 8, isText = 16, isList = 32, isObject = 64 };
// clang-format on
constexpr unsigned isAny = 127;

unsigned kindOf(const QVariant& value) {
    static const QHash<int, unsigned> kinds{
        {QMetaType::UnknownType, isNull},   {QMetaType::Bool, isBool},
        {QMetaType::Int, isInt | isNumber}, {QMetaType::QString, isText},
        {QMetaType::QVariantList, isList},  {QMetaType::QVariantMap, isObject}};
    return kinds.value(value.typeId(), isNumber);
}

QString kindName(const QVariant& value) {
    static const char* const names[] = {"null",   "a Boolean", "a number", "a number",
                                        "a text", "a list",    "an object"};
    return QString::fromLatin1(names[std::countr_zero(kindOf(value))]);
}

// Where a value stands in a world. The world, its lists of applications and windows, each application and
// window, a window's errors and the System Events answer are read member by member; any other value is read
// whole, as it is written, then checked against what its place takes and put into the world.
// clang-format off
enum class Slot {
    world, now, trusted, appleEventsStatus, ownPid, applications, windows, windowsError, appleScript, delay,
    windowServer, application, bundleIdentifier, applicationPid, name, windowList, window, title, subrole, size,
    minimized, owner, errors, errorCode, windowsErrorCode, result, errorNumber, errorInfo, noScriptObject, any
};
// clang-format on

bool memberwise(Slot slot) {
    return slot == Slot::world || slot == Slot::applications || slot == Slot::application ||
           slot == Slot::windows || slot == Slot::windowList || slot == Slot::window ||
           slot == Slot::errors || slot == Slot::windowsError || slot == Slot::appleScript;
}
bool attributeSlot(Slot slot) {
    return slot >= Slot::title && slot <= Slot::minimized;
}

// "title" is read as "AXTitle".
QString axName(const std::string& key) {
    return QStringLiteral("AX") + QChar::fromLatin1(key[0]).toUpper() + QLatin1String(key.c_str() + 1);
}

const QString appleScriptForms =
    QStringLiteral("expected one of {\"result\": text or null}, {\"errorNumber\": "
                   "integer}, {\"error\": {...}}, {\"noScriptObject\": true}");

// A number written with a fraction or an exponent, in the C conventions whatever the user's locale; none
// when too large to hold. Too small to hold is zero, keeping its sign.
std::optional<double> floatingPoint(QByteArrayView token) {
    bool ok = false;
    const double value = token.toDouble(&ok);
    if (ok)
        return value;
    if (!token.contains("e-") && !token.contains("E-"))
        return std::nullopt;
    return token.front() == '-' ? -0.0 : 0.0;
}

// A value JSON has no form for, written as an object with one key beginning with "$"; or what is wrong.
std::variant<QVariant, QString> tagged(const QString& tag, const QVariant& inner) {
    const bool signedInteger = inner.typeId() == QMetaType::Int || inner.typeId() == QMetaType::LongLong;
    const bool text = inner.typeId() == QMetaType::QString;
    const QString string = inner.toString();
    if (tag == QLatin1String("$int64") && signedInteger)
        return QVariant(inner.toLongLong());
    if (tag == QLatin1String("$uint64") &&
        (inner.typeId() == QMetaType::ULongLong || inner.toLongLong() >= 0) &&
        (signedInteger || inner.typeId() == QMetaType::ULongLong))
        return QVariant(inner.toULongLong());
    if (tag == QLatin1String("$double") && (kindOf(inner) & isNumber))
        return QVariant(inner.toDouble());
    if (tag == QLatin1String("$double") && text &&
        (string == QLatin1String("NaN") || string == QLatin1String("Infinity") ||
         string == QLatin1String("-Infinity")))
        return QVariant(string == QLatin1String("NaN") ? std::numeric_limits<double>::quiet_NaN()
                                                       : (string.startsWith(u'-') ? -1 : 1) * qInf());
    QDateTime time = QDateTime::fromString(string, Qt::ISODateWithMs);
    if (tag == QLatin1String("$date") && text && time.isValid()) {
        if (time.timeSpec() == Qt::LocalTime) // no zone written: the time is UTC
            time.setTimeZone(QTimeZone::utc());
        return QVariant(time);
    }
    const auto data =
        QByteArray::fromBase64Encoding(string.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (tag == QLatin1String("$data") && text && data)
        return QVariant(*data);
    // A text with unpaired surrogates, which UTF-8 cannot carry, as its UTF-16 code units.
    const QVariantList units = inner.toList();
    if (tag == QLatin1String("$utf16") && inner.typeId() == QMetaType::QVariantList &&
        std::all_of(units.cbegin(), units.cend(), [](const QVariant& unit) {
            return unit.typeId() == QMetaType::Int && unit.toInt() >= 0 && unit.toInt() <= 0xFFFF;
        })) {
        QString text;
        for (const QVariant& unit : units)
            text += QChar(char16_t(unit.toInt()));
        return QVariant(text);
    }
    const auto takes = [&](const char* what) {
        return QStringLiteral("\"%1\" takes %2").arg(tag, QLatin1String(what));
    };
    if (tag == QLatin1String("$int64") || tag == QLatin1String("$uint64"))
        return takes(tag == QLatin1String("$int64") ? "a signed 64-bit integer"
                                                    : "an unsigned 64-bit integer");
    if (tag == QLatin1String("$double"))
        return takes("a number, \"NaN\", \"Infinity\" or \"-Infinity\"");
    if (tag == QLatin1String("$date") || tag == QLatin1String("$data"))
        return takes(tag == QLatin1String("$date") ? "an ISO 8601 time" : "Base64 text");
    if (tag == QLatin1String("$utf16"))
        return takes("a list of UTF-16 code units");
    return QStringLiteral("unknown tag \"%1\"; expected $int64, $uint64, $double, $date, $data or $utf16")
        .arg(tag);
}

// A window attribute as the scan would read it, or what is wrong: null is a read without a value,
// [width, height] a size, and any other number, list or object a value of a type the scan does not read,
// {"$other": its type's name}.
std::variant<AXValue, QString> attribute(const QVariant& value) {
    const QVariantList items = value.typeId() == QMetaType::QVariantList ? value.toList() : QVariantList();
    const QVariantMap map = value.typeId() == QMetaType::QVariantMap ? value.toMap() : QVariantMap();
    const QVariant other = map.value(QStringLiteral("$other"));
    switch (kindOf(value)) {
    case isNull:
        return AXValue();
    case isBool:
        return AXValue(value.toBool());
    case isText:
        return AXValue(value.toString());
    case isList:
        if (items.size() == 2 && (kindOf(items.at(0)) & isNumber) && (kindOf(items.at(1)) & isNumber))
            return AXValue(AXSize{items.at(0).toDouble(), items.at(1).toDouble()});
        return AXValue(AXOtherValue{QStringLiteral("array")});
    case isObject:
        if (!map.contains(QStringLiteral("$other")))
            return AXValue(AXOtherValue{QStringLiteral("dictionary")});
        if (map.size() != 1)
            return QStringLiteral("\"$other\" stands alone");
        if (other.typeId() != QMetaType::QString)
            return QStringLiteral("expected a text, found ") + kindName(other);
        return AXValue(AXOtherValue{other.toString()});
    default:
        return AXValue(AXOtherValue{QStringLiteral("number")});
    }
}

// Builds the world from the JSON library's events as they come. Nothing is kept per value but the value, so
// time and memory grow with the file's size only.
struct WorldReader {
    struct Frame {
        Slot slot;
        bool list;
        const char* start;
        qsizetype index = -1; // of the element being read
        std::string key;      // of the member being read
        Slot member = Slot::any;
        quint64 seen = 0; // members read, by their slot
        Pid pid = 0;      // the key, read as a process identifier
        QVariantMap map;  // a container read as written
        QVariantList items;
    };

    WorldReader(const QByteArray& json, QString name)
        : begin(json.constData()), end(begin + json.size()), fileName(std::move(name)) {}
    WorldOrError read();

    // The JSON library's events, each once it has read the whole token.
    bool Null() { return deliver(next(), QVariant(), at()); }
    bool Bool(bool value) { return deliver(next(), value, at()); }
    // Integers: 32-bit when they fit, else signed 64-bit, else unsigned 64-bit.
    bool Int(int value) { return deliver(next(), value, at()); }
    bool Uint(unsigned value) { return Int64(value); }
    bool Int64(int64_t value) {
        const bool small =
            value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
        return deliver(next(), small ? QVariant(int(value)) : QVariant(qint64(value)), at());
    }
    bool Uint64(uint64_t value) {
        return value <= quint64(std::numeric_limits<qint64>::max()) ? Int64(int64_t(value))
                                                                    : deliver(next(), quint64(value), at());
    }
    bool Double(double);
    bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; } // only when asked for
    bool String(const char* utf8, rapidjson::SizeType length, bool) {
        return deliver(next(), text(utf8, length), at());
    }
    bool StartObject() { return open(false); }
    bool StartArray() { return open(true); }
    bool Key(const char* utf8, rapidjson::SizeType length, bool);
    bool EndObject(rapidjson::SizeType) { return close(); }
    bool EndArray(rapidjson::SizeType) { return close(); }

    // Checked by the library. A leading U+FEFF is part of a title, not a byte-order mark.
    QString text(const char* utf8, qsizetype length) { return decoder(QByteArrayView(utf8, length)); }
    QString text(const std::string& utf8) { return text(utf8.data(), qsizetype(utf8.size())); }
    const char* at() const { return begin + stream->Tell(); }
    Frame& top() { return frames[depth - 1]; }
    SimWindow& window() { return windows->last(); }

    bool fail(const char* at, const QString& what, size_t pathFrames = maximumDepth + 1);
    bool expected(Slot slot, const char* at, const QString& found);
    Slot next();
    bool open(bool list);
    bool close();
    bool deliver(Slot slot, QVariant value, const char* at);

    const char* begin;
    const char* end;
    QString fileName;
    QString error;
    const rapidjson::MemoryStream* stream = nullptr;
    std::vector<Frame> frames; // kept for reuse beyond the depth being read
    size_t depth = 0;
    SimWorld world;
    QList<SimWindow>* windows = nullptr; // of the process being read
    QStringDecoder decoder{QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom};
};

// What each place takes and how a value there goes into the world; what is wrong comes back.
using Setter = QString (*)(WorldReader&, const QVariant&);
struct Place {
    Slot parent;
    const char* key;
    unsigned takes;
    const char* expects; // for "expected ..., found ..."
    Setter set;
};
// A window attribute, by the key it is read under.
QString setAttribute(WorldReader& r, const QVariant& value) {
    const std::variant<AXValue, QString> read = attribute(value);
    if (const QString* wrong = std::get_if<QString>(&read))
        return *wrong;
    SimWindow& window = r.window();
    const std::string& key = r.top().key;
    (key == "title"     ? window.title
     : key == "subrole" ? window.subrole
     : key == "size"    ? window.size
                        : window.minimized) = std::get<AXValue>(read);
    return {};
}
// clang-format off
#define SET(...) [](WorldReader& r, const QVariant& v) { __VA_ARGS__; return QString(); }
const Place places[] = {
    {Slot::any, nullptr, isObject, nullptr, nullptr},
    {Slot::world, "now", isText, "a text", [](WorldReader& r, const QVariant& v) {
         QDateTime time = QDateTime::fromString(v.toString(), Qt::ISODateWithMs);
         if (time.timeSpec() == Qt::LocalTime) // no zone written: the time is UTC
             time.setTimeZone(QTimeZone::utc());
         r.world.now = time.toUTC();
         return time.isValid() ? QString() : QStringLiteral("not an ISO 8601 time: \"%1\"").arg(v.toString()); }},
    {Slot::world, "accessibilityTrusted", isBool, "true or false", SET(r.world.accessibilityTrusted = v.toBool())},
    {Slot::world, "appleEventsStatus", isInt, "an integer", SET(r.world.appleEventsStatus = v.toInt())},
    {Slot::world, "ownPid", isInt, "an integer", SET(r.world.ownPid = v.toInt())},
    {Slot::world, "runningApplications", isList, "a list of applications", nullptr},
    {Slot::world, "windows", isObject, "an object from pid to windows", nullptr},
    {Slot::world, "windowsError", isObject, "an object from pid to error code", nullptr},
    {Slot::world, "appleScript", isObject, nullptr, nullptr},
    {Slot::world, "appleScriptDelayMs", isInt, "an integer", [](WorldReader& r, const QVariant& v) {
         r.world.appleScriptDelayMs = v.toInt();
         return v.toInt() < 0 ? QStringLiteral("a delay cannot be negative") : QString(); }},
    {Slot::world, "windowServer", isAny, nullptr, SET(r.world.windowServer = {
         v.isNull() ? SimWindowList::Kind::none : SimWindowList::Kind::given, v})},
    {Slot::applications, nullptr, isObject, "an application object", nullptr},
    {Slot::application, "bundleIdentifier", isText, "a text",
     SET(r.world.runningApplications.last().bundleIdentifier = v.toString())},
    {Slot::application, "pid", isInt, "an integer", SET(r.world.runningApplications.last().pid = v.toInt())},
    {Slot::application, "name", isText, "a text", SET(r.world.runningApplications.last().name = v.toString())},
    {Slot::windows, nullptr, isList, "a list of windows", nullptr},
    {Slot::windowList, nullptr, isObject, "a window object", nullptr},
    {Slot::window, "title", isAny, nullptr, setAttribute},
    {Slot::window, "subrole", isAny, nullptr, setAttribute},
    {Slot::window, "size", isAny, nullptr, setAttribute},
    {Slot::window, "minimized", isAny, nullptr, setAttribute},
    {Slot::window, "pid", isInt | isNull, "an integer", SET(
         r.window().ownerUnknown = v.isNull();
         r.window().pid = v.isNull() ? std::nullopt : std::optional<Pid>(v.toInt()))},
    {Slot::window, "errors", isObject, "an object from attribute to error code", nullptr},
    {Slot::errors, nullptr, isInt, "an integer", [](WorldReader& r, const QVariant& v) {
         r.window().readErrors.insert(axName(r.top().key), v.toInt());
         return v.toInt() ? QString() : QStringLiteral("an error code is not 0"); }},
    {Slot::windowsError, nullptr, isInt, "an integer", SET(r.world.windowsError.insert(r.top().pid, v.toInt()))},
    {Slot::appleScript, "result", isText | isNull, "a text", SET(r.world.appleScript = AppleScriptResult{
         v.isNull() ? std::nullopt : std::optional(v.toString())})},
    {Slot::appleScript, "errorNumber", isInt, "an integer",
     SET(r.world.appleScript = AppleScriptError{{{appleScriptErrorNumberKey, v.toInt()}}})},
    {Slot::appleScript, "error", isObject, "an error dictionary", SET(r.world.appleScript = AppleScriptError{v.toMap()})},
    {Slot::appleScript, "noScriptObject", isBool, "true", [](WorldReader& r, const QVariant& v) {
         r.world.appleScript = std::monostate{};
         return v.toBool() ? QString() : QStringLiteral("expected true, found a Boolean"); }},
    {Slot::any, nullptr, isAny, nullptr, nullptr},
};
// clang-format on
#undef SET
static_assert(std::size(places) == size_t(Slot::any) + 1, "one place for each slot, in the slots' order");

const Place& place(Slot slot) {
    return places[int(slot)];
}
// A place for a text, where a text UTF-8 cannot carry may come as {"$utf16": [...]}.
bool textOnly(Slot slot) {
    return (place(slot).takes & isText) && place(slot).takes != isAny;
}

WorldOrError WorldReader::read() {
    // A byte-order mark may open the file; elsewhere U+FEFF is text.
    if (QByteArrayView(begin, end - begin).startsWith("\xEF\xBB\xBF"))
        begin += 3;
    rapidjson::MemoryStream text(begin, size_t(end - begin));
    stream = &text;
    // The library takes a NUL for the end of the text.
    if (const void* nul = std::memchr(begin, 0, size_t(end - begin)))
        return fail(static_cast<const char*>(nul), QStringLiteral("not valid JSON: a NUL character"), 0),
               error;
    // Recursive, which is fast: the reader stops at its depth limit long before the stack would.
    rapidjson::Reader reader;
    const rapidjson::ParseResult result = reader.Parse<rapidjson::kParseValidateEncodingFlag>(text, *this);
    if (result.Code() == rapidjson::kParseErrorNumberTooBig) {
        // Refused before it is handed over: read as any other number beyond its range.
        for (text.src_ = begin + result.Offset();
             text.src_ < end && std::strchr("+-.0123456789eE", *text.src_);)
            ++text.src_;
        // The library refuses an exponent beyond floating point even where the number is in range (0e999).
        if (Double(0))
            fail(text.src_,
                 QStringLiteral("not valid JSON: an exponent beyond 308 (write the number without it)"));
    } else if (result.IsError() && result.Code() != rapidjson::kParseErrorTermination) {
        const QString what = result.Code() == rapidjson::kParseErrorStringInvalidEncoding
                                 ? QStringLiteral("a text is not valid UTF-8")
                             : result.Code() == rapidjson::kParseErrorDocumentEmpty
                                 ? QStringLiteral("the file is empty")
                                 : QString::fromLatin1(rapidjson::GetParseError_En(result.Code()));
        fail(begin + result.Offset(), QStringLiteral("not valid JSON: ") + what, 0);
    }
    if (result.IsError())
        return error;
    return std::move(world);
}

bool WorldReader::fail(const char* at, const QString& what, size_t pathFrames) {
    QString path;
    for (size_t i = 0; i < std::min(pathFrames, depth); ++i) {
        if (frames[i].list)
            path += QLatin1Char('[') + QString::number(frames[i].index) + QLatin1Char(']');
        else
            path += (path.isEmpty() ? QString() : QStringLiteral(".")) + text(frames[i].key);
    }
    error = QStringLiteral("%1:%2: %3%4")
                .arg(fileName)
                .arg(1 + std::count(begin, at, '\n'))
                .arg(path.isEmpty() ? QString() : QStringLiteral("\"%1\": ").arg(path), what);
    return false;
}

bool WorldReader::expected(Slot slot, const char* at, const QString& found) {
    if (slot == Slot::world)
        return fail(at, QStringLiteral("the world must be a JSON object"));
    if (slot == Slot::appleScript)
        return fail(at, appleScriptForms);
    return fail(at, QStringLiteral("expected %1, found %2").arg(QLatin1String(place(slot).expects), found));
}

// The place of the value that starts now; a list moves on to its next element.
Slot WorldReader::next() {
    if (!depth)
        return Slot::world;
    Frame& frame = top();
    frame.index += frame.list;
    static const QHash<Slot, Slot> elements{{Slot::applications, Slot::application},
                                            {Slot::windows, Slot::windowList},
                                            {Slot::windowList, Slot::window},
                                            {Slot::errors, Slot::errorCode},
                                            {Slot::windowsError, Slot::windowsErrorCode}};
    if (!memberwise(frame.slot))
        return Slot::any;
    return elements.value(frame.slot, frame.member);
}

bool WorldReader::Key(const char* utf8, rapidjson::SizeType length, bool) {
    Frame& frame = top();
    frame.key.assign(utf8, length);
    const char* here = at();
    if (!memberwise(frame.slot)) {
        const QString key = text(frame.key);
        // An object where a text is expected holds a text UTF-8 cannot carry, and nothing else.
        if (textOnly(frame.slot) && key != QLatin1String("$utf16"))
            return fail(frame.start, QStringLiteral("expected a text, found an object"), depth - 1);
        return !frame.map.contains(key) || fail(here, QStringLiteral("duplicate key"));
    }
    if (frame.slot == Slot::windows || frame.slot == Slot::windowsError) {
        bool ok = false;
        frame.pid = text(frame.key).toInt(&ok);
        if (!ok)
            return fail(here,
                        QStringLiteral("the key \"%1\" is not a process identifier").arg(text(frame.key)));
        const bool known = frame.slot == Slot::windows ? world.windows.contains(frame.pid)
                                                       : world.windowsError.contains(frame.pid);
        return !known || fail(here, QStringLiteral("duplicate process identifier"));
    }
    // A window's errors are named after its attributes.
    const auto member = [&](int i) {
        return frame.slot == Slot::errors ? attributeSlot(Slot(i)) : places[i].parent == frame.slot;
    };
    for (int i = 0; i < int(Slot::any); ++i) {
        if (!member(i) || frame.key != places[i].key)
            continue;
        if (frame.seen & (quint64(1) << i))
            return fail(here, QStringLiteral("duplicate key"));
        if (frame.slot == Slot::appleScript && frame.seen)
            return fail(frame.start, appleScriptForms, depth - 1);
        frame.seen |= quint64(1) << i;
        frame.member = Slot(i);
        return true;
    }
    if (frame.slot == Slot::appleScript)
        return fail(here, QStringLiteral("unknown key; ") + appleScriptForms);
    QStringList keys;
    for (int i = 0; i < int(Slot::any); ++i)
        if (member(i))
            keys << QLatin1String(places[i].key);
    return fail(here, QStringLiteral("unknown key; expected one of: ") + keys.join(QStringLiteral(", ")));
}

// Floating point, or an integer beyond 64 bits, which the library reads as floating point. Read again from
// its text, which ends where the library stands.
bool WorldReader::Double(double) {
    const Slot slot = next();
    const char* last = at();
    const char* token = last;
    bool floating = false;
    while (token > begin && std::strchr("+-.0123456789eE", token[-1]))
        floating |= std::strchr(".eE", *--token) != nullptr;
    const std::optional<double> value = floating ? floatingPoint(QByteArrayView(token, last)) : std::nullopt;
    if (value)
        return deliver(slot, *value, last);
    // Beyond its range: an error where numbers are read.
    if (!(place(slot).takes & isInt) && place(slot).takes != isAny)
        return expected(slot, last, QStringLiteral("a number"));
    return fail(last, floating ? QStringLiteral("the number is beyond the floating-point range")
                               : QStringLiteral("the integer does not fit in 64 bits"));
}

bool WorldReader::open(bool list) {
    const Slot slot = next();
    const char* here = at();
    if (depth >= maximumDepth)
        return fail(here, QStringLiteral("nested more than %1 levels deep").arg(maximumDepth));
    const unsigned takes = place(slot).takes;
    if (slot != Slot::any && !(list ? takes & isList : (takes & isObject) || textOnly(slot)))
        return expected(slot, here, list ? QStringLiteral("a list") : QStringLiteral("an object"));
    if (slot == Slot::windowList)
        windows = &world.windows[top().pid];
    else if (slot == Slot::window)
        windows->append(SimWindow());
    else if (slot == Slot::application)
        world.runningApplications.append(RunningApplication());
    if (depth == frames.size())
        frames.emplace_back();
    Frame& frame = frames[depth++];
    frame.slot = slot;
    frame.list = list;
    frame.start = here;
    frame.index = -1;
    frame.seen = 0;
    return true;
}

bool WorldReader::close() {
    Frame& frame = top();
    const Slot slot = frame.slot;
    if (memberwise(slot)) {
        const auto has = [&](Slot member) { return frame.seen & (quint64(1) << int(member)); };
        if (slot == Slot::application && !has(Slot::applicationPid))
            return fail(frame.start, QStringLiteral("an application needs a \"pid\""), depth - 1);
        if (slot == Slot::appleScript && !frame.seen)
            return fail(frame.start, appleScriptForms, depth - 1);
        for (Slot attribute : {Slot::title, Slot::subrole, Slot::size, Slot::minimized})
            if (slot == Slot::window && has(attribute) && !window().readErrors.isEmpty() &&
                window().readErrors.contains(axName(place(attribute).key)))
                return fail(frame.start,
                            QStringLiteral("\"%1\" has both a value and an error").arg(place(attribute).key),
                            depth - 1);
        --depth;
        return true;
    }
    --depth;
    // A tag stands for a kind of value, except in an attribute, where only a text is written so. The frame
    // hands its container over rather than clearing it, which would copy a shared one.
    const QString tag = frame.map.size() == 1 ? frame.map.firstKey() : QString();
    if (!tag.startsWith(QLatin1Char('$')) || (attributeSlot(slot) && tag != QLatin1String("$utf16")))
        return deliver(slot,
                       frame.list ? QVariant(std::exchange(frame.items, {}))
                                  : QVariant(std::exchange(frame.map, {})),
                       frame.start);
    const std::variant<QVariant, QString> value = tagged(tag, std::exchange(frame.map, {}).first());
    if (const QString* wrong = std::get_if<QString>(&value))
        return fail(frame.start, *wrong);
    if (slot == Slot::errorInfo)
        return fail(frame.start, QStringLiteral("expected an error dictionary, found a tagged value"));
    return deliver(slot, std::get<QVariant>(value), frame.start);
}

// A whole value at its place: kept as written in the value being read around it, or checked and put into the
// world.
bool WorldReader::deliver(Slot slot, QVariant value, const char* at) {
    if (depth && !memberwise(top().slot)) {
        Frame& frame = top();
        if (frame.list)
            frame.items.append(std::move(value));
        else
            frame.map.insert(text(frame.key), std::move(value));
        return true;
    }
    const Place& where = place(slot);
    const unsigned kind = kindOf(value);
    if (where.takes != isAny && (where.takes & isInt) && kind == isNumber)
        return fail(at, value.typeId() == QMetaType::Double
                            ? QStringLiteral("expected an integer, found a floating-point number")
                            : QStringLiteral("the integer does not fit in 32 bits"));
    if (!(where.takes & kind))
        return expected(slot, at, kindName(value));
    const QString wrong = where.set(*this, value);
    return wrong.isEmpty() || fail(at, wrong);
}

QString cannotRead(const QString& path, const QString& why) {
    return QStringLiteral("%1: cannot read the world file: %2").arg(path, why);
}

} // namespace

WorldOrError parseWorld(const QByteArray& json, const QString& fileName) {
    return WorldReader(json, fileName).read();
}

std::variant<QByteArray, QString> readWorldFile(const QString& path) {
    QFile file;
#ifdef Q_OS_UNIX
    // Opened without waiting (a named pipe would block until a writer came) and checked on the open file,
    // so what is read is what was checked.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return cannotRead(path, QString::fromLocal8Bit(std::strerror(errno)));
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(fd);
        return cannotRead(path, S_ISDIR(status.st_mode) ? QStringLiteral("it is a folder")
                                                        : QStringLiteral("it is not a regular file"));
    }
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return cannotRead(path, file.errorString());
    }
#else
    const QFileInfo info(path);
    if (info.exists() && !info.isFile())
        return cannotRead(path, info.isDir() ? QStringLiteral("it is a folder")
                                             : QStringLiteral("it is not a regular file"));
    file.setFileName(path);
    if (!file.open(QIODevice::ReadOnly))
        return cannotRead(path, file.errorString());
#endif
    const auto tooLarge = [&] {
        return cannotRead(path, QStringLiteral("it is larger than %1 MiB").arg(maximumWorldFileSize >> 20));
    };
    if (file.size() > maximumWorldFileSize)
        return tooLarge();
    // The file may grow between the check and the read: read one byte beyond the limit to notice.
    QByteArray content = file.read(maximumWorldFileSize + 1);
    if (file.error() != QFileDevice::NoError)
        return cannotRead(path, file.errorString());
    if (content.size() > maximumWorldFileSize)
        return tooLarge();
    return content;
}

WorldOrError loadWorldFile(const QString& path) {
    std::variant<QByteArray, QString> content = readWorldFile(path);
    if (const QString* error = std::get_if<QString>(&content))
        return *error;
    return parseWorld(std::get<QByteArray>(content), path);
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
    // Re-armed on every reload: after a rename-over save the old watch may still follow the old version,
    // kept alive by a backup link, and would miss every later write. The read comes after this.
    if (m_watcher.files().contains(m_path))
        m_watcher.removePath(m_path);
    if (QFileInfo::exists(m_path))
        m_watcher.addPath(m_path);
}

void WorldFileWatcher::reload() {
    watch();
    std::variant<QByteArray, QString> read = readWorldFile(m_path);
    if (const QString* error = std::get_if<QString>(&read)) {
        // Between an editor's delete and its write the file may be missing for a moment; that is no change.
        if (!QFileInfo::exists(m_path))
            return;
        Q_EMIT reloadFailed(*error);
        return;
    }
    const QByteArray content = std::get<QByteArray>(std::move(read));
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
