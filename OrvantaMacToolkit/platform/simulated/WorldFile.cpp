#include "WorldFile.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStringDecoder>
#include <QTimeZone>

#include <charconv>
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

// Deep enough for any world, shallow enough that a file of brackets cannot exhaust the stack.
constexpr int maximumDepth = 200;

const QStringList worldKeys{
    QStringLiteral("now"),
    QStringLiteral("accessibilityTrusted"),
    QStringLiteral("appleEventsStatus"),
    QStringLiteral("ownPid"),
    QStringLiteral("runningApplications"),
    QStringLiteral("windows"),
    QStringLiteral("windowsError"),
    QStringLiteral("appleScript"),
    QStringLiteral("appleScriptDelayMs"),
    QStringLiteral("windowServer"),
};
const QStringList windowKeys{QStringLiteral("title"), QStringLiteral("subrole"),
                             QStringLiteral("size"),  QStringLiteral("minimized"),
                             QStringLiteral("pid"),   QStringLiteral("errors")};
const QStringList attributeKeys{QStringLiteral("title"), QStringLiteral("subrole"), QStringLiteral("size"),
                                QStringLiteral("minimized")};
const QStringList applicationKeys{QStringLiteral("bundleIdentifier"), QStringLiteral("pid"),
                                  QStringLiteral("name")};

QString attributeName(const QString& key) {
    return QStringLiteral("AX") + key.at(0).toUpper() + key.mid(1);
}

bool isNumber(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

// Reads the JSON text front to back and builds the world on the way. Nothing is kept per value but the
// value itself, so time and memory grow with the file's size only; the line and the kind of each number
// (integer or floating point, which the window server tells apart) are known where the value is read.
class WorldParser {
public:
    WorldParser(const QByteArray& text, QString fileName)
        : m_p(text.constData()), m_end(m_p + text.size()), m_fileName(std::move(fileName)) {
        if (m_end - m_p >= 3 && std::memcmp(m_p, "\xEF\xBB\xBF", 3) == 0)
            m_p += 3;
    }

    WorldOrError read() {
        SimWorld world;
        if (!readWorld(world))
            return m_error;
        return world;
    }

private:
    struct Segment {
        QString key;
        qsizetype index = -1; // an element of a list when not negative
    };

    // ---- errors ------------------------------------------------------------------------------------

    QString pathText() const {
        QString path;
        for (const Segment& segment : m_path) {
            if (segment.index >= 0)
                path += QLatin1Char('[') + QString::number(segment.index) + QLatin1Char(']');
            else
                path += (path.isEmpty() ? QString() : QStringLiteral(".")) + segment.key;
        }
        return path;
    }

    bool failAt(int line, const QString& path, const QString& what) {
        m_error = QStringLiteral("%1:%2: %3%4")
                      .arg(m_fileName)
                      .arg(line)
                      .arg(path.isEmpty() ? QString() : QStringLiteral("\"%1\": ").arg(path), what);
        return false;
    }
    bool fail(int line, const QString& what) { return failAt(line, pathText(), what); }
    bool syntaxError(const QString& what) {
        return failAt(m_line, {}, QStringLiteral("not valid JSON: ") + what);
    }

    // What the next value is, for "expected ..., found ..." messages; empty when no value starts here.
    QString foundName() {
        switch (peek()) {
        case '{':
            return QStringLiteral("an object");
        case '[':
            return QStringLiteral("a list");
        case '"':
            return QStringLiteral("a text");
        case 't':
        case 'f':
            return QStringLiteral("a Boolean");
        case 'n':
            return QStringLiteral("null");
        default:
            return isNumberStart() ? QStringLiteral("a number") : QString();
        }
    }

    bool expected(const QString& what) {
        const QString found = foundName();
        if (found.isEmpty())
            return syntaxError(QStringLiteral("expected a value"));
        return fail(m_line, QStringLiteral("expected %1, found %2").arg(what, found));
    }

    // ---- tokens ------------------------------------------------------------------------------------

    void skipSpace() {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\r' || *m_p == '\n')) {
            if (*m_p == '\n')
                ++m_line;
            ++m_p;
        }
    }

    char peek() {
        skipSpace();
        return m_p < m_end ? *m_p : '\0';
    }

    bool isNumberStart() { return peek() == '-' || (peek() >= '0' && peek() <= '9'); }

    bool literal(const char* word) {
        const size_t length = std::strlen(word);
        if (size_t(m_end - m_p) < length || std::memcmp(m_p, word, length) != 0)
            return syntaxError(QStringLiteral("expected a value"));
        m_p += length;
        return true;
    }

    bool decode(const char* begin, const char* end, QString& out) {
        out += m_decoder(QByteArrayView(begin, end - begin));
        if (m_decoder.hasError())
            return syntaxError(QStringLiteral("a text is not valid UTF-8"));
        return true;
    }

    static int hexDigit(char c) {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    }

    // At an opening quote.
    bool string(QString& out) {
        out.clear();
        ++m_p;
        const char* run = m_p;
        while (true) {
            while (m_p < m_end && *m_p != '"' && *m_p != '\\' && static_cast<unsigned char>(*m_p) >= 0x20)
                ++m_p;
            if (m_p >= m_end)
                return syntaxError(QStringLiteral("a text is not closed"));
            if (*m_p == '"') {
                const bool ok = decode(run, m_p, out);
                ++m_p;
                return ok;
            }
            if (*m_p != '\\')
                return syntaxError(QStringLiteral("a control character in a text must be escaped"));
            if (!decode(run, m_p, out))
                return false;
            if (m_end - m_p < 2)
                return syntaxError(QStringLiteral("a text is not closed"));
            const char escape = m_p[1];
            m_p += 2;
            switch (escape) {
            case '"':
            case '\\':
            case '/':
                out += QLatin1Char(escape);
                break;
            case 'b':
                out += QLatin1Char('\b');
                break;
            case 'f':
                out += QLatin1Char('\f');
                break;
            case 'n':
                out += QLatin1Char('\n');
                break;
            case 'r':
                out += QLatin1Char('\r');
                break;
            case 't':
                out += QLatin1Char('\t');
                break;
            case 'u': {
                int code = 0;
                for (int i = 0; i < 4; ++i) {
                    const int digit = m_p + i < m_end ? hexDigit(m_p[i]) : -1;
                    if (digit < 0)
                        return syntaxError(QStringLiteral("\\u needs four hexadecimal digits"));
                    code = code * 16 + digit;
                }
                m_p += 4;
                out += QChar(char16_t(code));
                break;
            }
            default:
                return syntaxError(QStringLiteral("unknown escape \\%1").arg(QLatin1Char(escape)));
            }
            run = m_p;
        }
    }

    // A number with its kind: 32-bit, 64-bit or unsigned 64-bit integer when written without a fraction or
    // an exponent, floating point otherwise.
    bool number(QVariant& out) {
        const int line = m_line;
        const char* start = m_p;
        const auto digits = [&] {
            const char* first = m_p;
            while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
                ++m_p;
            return m_p > first;
        };
        if (m_p < m_end && *m_p == '-')
            ++m_p;
        const char* integerStart = m_p;
        if (!digits() || (*integerStart == '0' && m_p - integerStart > 1))
            return syntaxError(QStringLiteral("malformed number"));
        bool floating = false;
        if (m_p < m_end && *m_p == '.') {
            ++m_p;
            floating = true;
            if (!digits())
                return syntaxError(QStringLiteral("malformed number"));
        }
        if (m_p < m_end && (*m_p == 'e' || *m_p == 'E')) {
            ++m_p;
            floating = true;
            if (m_p < m_end && (*m_p == '+' || *m_p == '-'))
                ++m_p;
            if (!digits())
                return syntaxError(QStringLiteral("malformed number"));
        }
        if (floating) {
            // Qt reads the token in the C conventions whatever the user's locale (Apple's C++ library has no
            // floating-point from_chars); out of range is "not ok".
            const QByteArrayView token(start, m_p - start);
            bool ok = false;
            double value = token.toDouble(&ok);
            if (!ok) {
                // Too small to hold is zero; too large is an error rather than a silent infinity.
                if (!token.contains("e-") && !token.contains("E-"))
                    return fail(line, QStringLiteral("the number is beyond the floating-point range"));
                value = *start == '-' ? -0.0 : 0.0;
            }
            out = value;
            return true;
        }
        qint64 value = 0;
        if (std::from_chars(start, m_p, value).ec == std::errc()) {
            if (value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max())
                out = int(value);
            else
                out = value;
            return true;
        }
        quint64 unsignedValue = 0;
        if (*start != '-' && std::from_chars(start, m_p, unsignedValue).ec == std::errc()) {
            out = unsignedValue;
            return true;
        }
        return fail(line, QStringLiteral("the integer does not fit in 64 bits"));
    }

    // ---- structure ---------------------------------------------------------------------------------

    // At '{': calls member(key, line of the key) for each member, which reads the value.
    template <typename Member> bool object(Member member) {
        ++m_p;
        m_path.push_back({});
        if (peek() == '}') {
            ++m_p;
            m_path.pop_back();
            return true;
        }
        QString key;
        while (true) {
            if (peek() != '"')
                return syntaxError(QStringLiteral("expected a key in quotes"));
            const int line = m_line;
            if (!string(key))
                return false;
            if (peek() != ':')
                return syntaxError(QStringLiteral("expected ':' after a key"));
            ++m_p;
            m_path.back().key = key;
            if (!member(key, line))
                return false;
            const char next = peek();
            if (next != ',' && next != '}')
                return syntaxError(QStringLiteral("expected ',' or '}'"));
            ++m_p;
            if (next == '}')
                break;
        }
        m_path.pop_back();
        return true;
    }

    // At '[': calls element() for each element, which reads it.
    template <typename Element> bool array(Element element) {
        ++m_p;
        m_path.push_back({QString(), 0});
        if (peek() == ']') {
            ++m_p;
            m_path.pop_back();
            return true;
        }
        while (true) {
            if (!element())
                return false;
            const char next = peek();
            if (next != ',' && next != ']')
                return syntaxError(QStringLiteral("expected ',' or ']'"));
            ++m_p;
            if (next == ']')
                break;
            ++m_path.back().index;
        }
        m_path.pop_back();
        return true;
    }

    bool deeper(int depth) {
        return depth < maximumDepth ||
               fail(m_line, QStringLiteral("nested more than %1 levels deep").arg(maximumDepth));
    }

    // A value written as an object with one key beginning with "$": a kind of value JSON has no form for.
    bool tagged(const QString& tag, const QVariant& inner, int line, QVariant& out) {
        const auto integral = [&] {
            return inner.typeId() == QMetaType::Int || inner.typeId() == QMetaType::LongLong ||
                   inner.typeId() == QMetaType::ULongLong;
        };
        if (tag == QLatin1String("$int64")) {
            if (!integral() || inner.typeId() == QMetaType::ULongLong)
                return fail(line, QStringLiteral("\"$int64\" takes a signed 64-bit integer"));
            out = inner.toLongLong();
        } else if (tag == QLatin1String("$uint64")) {
            if (!integral() || (inner.typeId() != QMetaType::ULongLong && inner.toLongLong() < 0))
                return fail(line, QStringLiteral("\"$uint64\" takes an unsigned 64-bit integer"));
            out = inner.toULongLong();
        } else if (tag == QLatin1String("$double")) {
            static const QMap<QString, double> special{
                {QStringLiteral("NaN"), std::numeric_limits<double>::quiet_NaN()},
                {QStringLiteral("Infinity"), std::numeric_limits<double>::infinity()},
                {QStringLiteral("-Infinity"), -std::numeric_limits<double>::infinity()}};
            if (isNumber(inner))
                out = inner.toDouble();
            else if (inner.typeId() == QMetaType::QString && special.contains(inner.toString()))
                out = special.value(inner.toString());
            else
                return fail(line, QStringLiteral("\"$double\" takes a number, \"NaN\", \"Infinity\" or "
                                                 "\"-Infinity\""));
        } else if (tag == QLatin1String("$date")) {
            QDateTime time = QDateTime::fromString(inner.toString(), Qt::ISODateWithMs);
            if (inner.typeId() != QMetaType::QString || !time.isValid())
                return fail(line, QStringLiteral("\"$date\" takes an ISO 8601 time"));
            if (time.timeSpec() == Qt::LocalTime) // as for "now": no zone written means UTC
                time.setTimeZone(QTimeZone::utc());
            out = time;
        } else if (tag == QLatin1String("$data")) {
            const auto data = QByteArray::fromBase64Encoding(inner.toString().toLatin1(),
                                                             QByteArray::AbortOnBase64DecodingErrors);
            if (inner.typeId() != QMetaType::QString || !data)
                return fail(line, QStringLiteral("\"$data\" takes Base64 text"));
            out = *data;
        } else {
            return fail(line, QStringLiteral("unknown tag \"%1\"; expected $int64, $uint64, $double, $date "
                                             "or $data")
                                  .arg(tag));
        }
        return true;
    }

    // Any JSON value as the platform would hand it over: numbers keep their kind, null is no value.
    bool anyValue(QVariant& out, int depth) {
        switch (peek()) {
        case '{': {
            if (!deeper(depth))
                return false;
            const int line = m_line;
            QVariantMap map;
            const bool ok = object([&](const QString& key, int keyLine) {
                if (map.contains(key))
                    return fail(keyLine, QStringLiteral("duplicate key"));
                QVariant value;
                if (!anyValue(value, depth + 1))
                    return false;
                map.insert(key, value);
                return true;
            });
            if (!ok)
                return false;
            if (map.size() == 1 && map.firstKey().startsWith(QLatin1Char('$')))
                return tagged(map.firstKey(), map.first(), line, out);
            out = std::move(map);
            return true;
        }
        case '[': {
            if (!deeper(depth))
                return false;
            QVariantList list;
            if (!array([&] {
                    QVariant value;
                    if (!anyValue(value, depth + 1))
                        return false;
                    list.append(std::move(value));
                    return true;
                }))
                return false;
            out = std::move(list);
            return true;
        }
        case '"': {
            QString text;
            if (!string(text))
                return false;
            out = std::move(text);
            return true;
        }
        case 't':
            out = true;
            return literal("true");
        case 'f':
            out = false;
            return literal("false");
        case 'n':
            out = QVariant();
            return literal("null");
        default:
            if (isNumberStart())
                return number(out);
            return syntaxError(QStringLiteral("expected a value"));
        }
    }

    bool readInt(int& out) {
        if (!isNumberStart())
            return expected(QStringLiteral("an integer"));
        const int line = m_line;
        QVariant value;
        if (!number(value))
            return false;
        if (value.typeId() == QMetaType::Double)
            return fail(line, QStringLiteral("expected an integer, found a floating-point number"));
        if (value.typeId() != QMetaType::Int)
            return fail(line, QStringLiteral("the integer does not fit in 32 bits"));
        out = value.toInt();
        return true;
    }

    bool readBool(bool& out) {
        if (peek() == 't') {
            out = true;
            return literal("true");
        }
        if (peek() == 'f') {
            out = false;
            return literal("false");
        }
        return expected(QStringLiteral("true or false"));
    }

    bool readText(QString& out) {
        if (peek() != '"')
            return expected(QStringLiteral("a text"));
        return string(out);
    }

    bool readPidKey(const QString& key, int line, Pid& out) {
        bool ok = false;
        out = key.toInt(&ok);
        if (!ok)
            return fail(line, QStringLiteral("the key \"%1\" is not a process identifier").arg(key));
        return true;
    }

    bool unknownKey(int line, const QStringList& keys) {
        return fail(line,
                    QStringLiteral("unknown key; expected one of: %1").arg(keys.join(QStringLiteral(", "))));
    }

    // Each key once per object.
    bool firstTime(QSet<QString>& seen, const QString& key, int line) {
        if (seen.contains(key))
            return fail(line, QStringLiteral("duplicate key"));
        seen.insert(key);
        return true;
    }

    // An Accessibility attribute as written: null is a read without a value, [width, height] a size, and
    // {"$other": description} or any other type a value of a type the scan does not read.
    bool axValue(AXValue& out) {
        switch (peek()) {
        case 'n':
            out = std::monostate{};
            return literal("null");
        case 't':
        case 'f': {
            bool value = false;
            if (!readBool(value))
                return false;
            out = value;
            return true;
        }
        case '"': {
            QString text;
            if (!string(text))
                return false;
            out = std::move(text);
            return true;
        }
        case '[': {
            QVariant list;
            if (!anyValue(list, 1))
                return false;
            const QVariantList values = list.toList();
            if (values.size() == 2 && isNumber(values.at(0)) && isNumber(values.at(1)))
                out = AXSize{values.at(0).toDouble(), values.at(1).toDouble()};
            else
                out = AXOtherValue{QStringLiteral("array")};
            return true;
        }
        case '{': {
            const int line = m_line;
            QString description;
            QSet<QString> seen;
            bool other = false;
            if (!object([&](const QString& key, int keyLine) {
                    if (!firstTime(seen, key, keyLine))
                        return false;
                    if (key == QLatin1String("$other")) {
                        other = true;
                        return readText(description);
                    }
                    QVariant ignored;
                    return anyValue(ignored, 1);
                }))
                return false;
            if (other && seen.size() != 1)
                return fail(line, QStringLiteral("\"$other\" stands alone"));
            out = AXOtherValue{other ? description : QStringLiteral("dictionary")};
            return true;
        }
        default: {
            QVariant number;
            if (!isNumberStart())
                return syntaxError(QStringLiteral("expected a value"));
            if (!this->number(number))
                return false;
            out = AXOtherValue{QStringLiteral("number")};
            return true;
        }
        }
    }

    bool readWindow(SimWindow& window) {
        if (peek() != '{')
            return expected(QStringLiteral("a window object"));
        const int line = m_line;
        QSet<QString> seen;
        if (!object([&](const QString& key, int keyLine) {
                if (!firstTime(seen, key, keyLine))
                    return false;
                if (key == QLatin1String("title") || key == QLatin1String("subrole") ||
                    key == QLatin1String("size") || key == QLatin1String("minimized")) {
                    AXValue value;
                    if (!axValue(value))
                        return false;
                    (key == QLatin1String("title")     ? window.title
                     : key == QLatin1String("subrole") ? window.subrole
                     : key == QLatin1String("size")    ? window.size
                                                       : window.minimized) = std::move(value);
                    return true;
                }
                if (key == QLatin1String("pid")) {
                    if (peek() == 'n') {
                        window.ownerUnknown = true;
                        return literal("null");
                    }
                    int owner = 0;
                    if (!readInt(owner))
                        return false;
                    window.pid = owner;
                    return true;
                }
                if (key == QLatin1String("errors")) {
                    if (peek() != '{')
                        return expected(QStringLiteral("an object from attribute to error code"));
                    QSet<QString> attributes;
                    return object([&](const QString& attribute, int attributeLine) {
                        if (!attributeKeys.contains(attribute))
                            return unknownKey(attributeLine, attributeKeys);
                        if (!firstTime(attributes, attribute, attributeLine))
                            return false;
                        const int codeLine = m_line;
                        int code = 0;
                        if (!readInt(code))
                            return false;
                        if (code == 0)
                            return fail(codeLine, QStringLiteral("an error code is not 0"));
                        window.readErrors.insert(attributeName(attribute), code);
                        return true;
                    });
                }
                return unknownKey(keyLine, windowKeys);
            }))
            return false;
        for (const QString& attribute : attributeKeys)
            if (seen.contains(attribute) && window.readErrors.contains(attributeName(attribute)))
                return fail(line, QStringLiteral("\"%1\" has both a value and an error").arg(attribute));
        return true;
    }

    bool readApplication(RunningApplication& app) {
        if (peek() != '{')
            return expected(QStringLiteral("an application object"));
        const int line = m_line;
        QSet<QString> seen;
        if (!object([&](const QString& key, int keyLine) {
                if (!firstTime(seen, key, keyLine))
                    return false;
                if (key == QLatin1String("pid"))
                    return readInt(app.pid);
                if (key == QLatin1String("bundleIdentifier"))
                    return readText(app.bundleIdentifier);
                if (key == QLatin1String("name"))
                    return readText(app.name);
                return unknownKey(keyLine, applicationKeys);
            }))
            return false;
        if (!seen.contains(QStringLiteral("pid")))
            return fail(line, QStringLiteral("an application needs a \"pid\""));
        return true;
    }

    bool readAppleScript(AppleScriptOutcome& outcome) {
        const QString forms = QStringLiteral(
            "one of {\"result\": text or null}, {\"errorNumber\": integer}, {\"error\": {...}}, "
            "{\"noScriptObject\": true}");
        const QString path = pathText();
        const int line = m_line;
        if (peek() != '{')
            return failAt(line, path, QStringLiteral("expected %1").arg(forms));
        int members = 0;
        if (!object([&](const QString& key, int keyLine) {
                if (++members > 1)
                    return failAt(line, path, QStringLiteral("expected %1").arg(forms));
                if (key == QLatin1String("result")) {
                    if (peek() == 'n') {
                        outcome = AppleScriptResult{std::nullopt};
                        return literal("null");
                    }
                    QString text;
                    if (!readText(text))
                        return false;
                    outcome = AppleScriptResult{text};
                    return true;
                }
                if (key == QLatin1String("errorNumber")) {
                    int number = 0;
                    if (!readInt(number))
                        return false;
                    outcome = AppleScriptError{{{appleScriptErrorNumberKey, number}}};
                    return true;
                }
                if (key == QLatin1String("error")) {
                    if (peek() != '{')
                        return expected(QStringLiteral("an error dictionary"));
                    QVariant info;
                    if (!anyValue(info, 1))
                        return false;
                    if (info.typeId() != QMetaType::QVariantMap)
                        return fail(keyLine,
                                    QStringLiteral("expected an error dictionary, found a tagged value"));
                    outcome = AppleScriptError{info.toMap()};
                    return true;
                }
                if (key == QLatin1String("noScriptObject")) {
                    if (peek() != 't')
                        return expected(QStringLiteral("true"));
                    outcome = std::monostate{};
                    return literal("true");
                }
                return fail(keyLine, QStringLiteral("unknown key; expected %1").arg(forms));
            }))
            return false;
        if (members != 1)
            return failAt(line, path, QStringLiteral("expected %1").arg(forms));
        return true;
    }

    bool readMember(const QString& key, int keyLine, SimWorld& world) {
        if (key == QLatin1String("now")) {
            const int line = m_line;
            QString text;
            if (!readText(text))
                return false;
            QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
            if (!time.isValid())
                return fail(line, QStringLiteral("not an ISO 8601 time: \"%1\"").arg(text));
            if (time.timeSpec() == Qt::LocalTime) // no zone written: the time is UTC
                time.setTimeZone(QTimeZone::utc());
            world.now = time.toUTC();
            return true;
        }
        if (key == QLatin1String("accessibilityTrusted"))
            return readBool(world.accessibilityTrusted);
        if (key == QLatin1String("appleEventsStatus"))
            return readInt(world.appleEventsStatus);
        if (key == QLatin1String("appleScriptDelayMs")) {
            const int line = m_line;
            if (!readInt(world.appleScriptDelayMs))
                return false;
            return world.appleScriptDelayMs >= 0 || fail(line, QStringLiteral("a delay cannot be negative"));
        }
        if (key == QLatin1String("ownPid")) {
            int pid = 0;
            if (!readInt(pid))
                return false;
            world.ownPid = pid;
            return true;
        }
        if (key == QLatin1String("runningApplications")) {
            if (peek() != '[')
                return expected(QStringLiteral("a list of applications"));
            return array([&] {
                RunningApplication app;
                if (!readApplication(app))
                    return false;
                world.runningApplications.append(app);
                return true;
            });
        }
        if (key == QLatin1String("windows")) {
            if (peek() != '{')
                return expected(QStringLiteral("an object from pid to windows"));
            return object([&](const QString& pidKey, int pidLine) {
                Pid pid = 0;
                if (!readPidKey(pidKey, pidLine, pid))
                    return false;
                if (world.windows.contains(pid))
                    return fail(pidLine, QStringLiteral("duplicate process identifier"));
                if (peek() != '[')
                    return expected(QStringLiteral("a list of windows"));
                QList<SimWindow>& windows = world.windows[pid];
                return array([&] {
                    SimWindow window;
                    if (!readWindow(window))
                        return false;
                    windows.append(std::move(window));
                    return true;
                });
            });
        }
        if (key == QLatin1String("windowsError")) {
            if (peek() != '{')
                return expected(QStringLiteral("an object from pid to error code"));
            return object([&](const QString& pidKey, int pidLine) {
                Pid pid = 0;
                int code = 0;
                if (!readPidKey(pidKey, pidLine, pid) || !readInt(code))
                    return false;
                if (world.windowsError.contains(pid))
                    return fail(pidLine, QStringLiteral("duplicate process identifier"));
                world.windowsError.insert(pid, code);
                return true;
            });
        }
        if (key == QLatin1String("appleScript")) {
            AppleScriptOutcome outcome;
            if (!readAppleScript(outcome))
                return false;
            world.appleScript = outcome;
            return true;
        }
        if (key == QLatin1String("windowServer")) {
            if (peek() == 'n') {
                world.windowServer = {SimWindowList::Kind::none, {}};
                return literal("null");
            }
            QVariant value;
            if (!anyValue(value, 1))
                return false;
            world.windowServer = {SimWindowList::Kind::given, std::move(value)};
            return true;
        }
        return unknownKey(keyLine, worldKeys);
    }

    bool readWorld(SimWorld& world) {
        if (peek() != '{') {
            if (foundName().isEmpty())
                return syntaxError(m_p >= m_end ? QStringLiteral("the file is empty")
                                                : QStringLiteral("expected a value"));
            return fail(m_line, QStringLiteral("the world must be a JSON object"));
        }
        QSet<QString> seen;
        if (!object([&](const QString& key, int keyLine) {
                return firstTime(seen, key, keyLine) && readMember(key, keyLine, world);
            }))
            return false;
        skipSpace();
        if (m_p < m_end)
            return syntaxError(QStringLiteral("text after the world object"));
        return true;
    }

    const char* m_p;
    const char* m_end;
    int m_line = 1;
    QString m_fileName;
    QString m_error;
    std::vector<Segment> m_path;
    QStringDecoder m_decoder{QStringDecoder::Utf8, QStringDecoder::Flag::Stateless};
};

QString cannotRead(const QString& path, const QString& why) {
    return QStringLiteral("%1: cannot read the world file: %2").arg(path, why);
}

} // namespace

WorldOrError parseWorld(const QByteArray& json, const QString& fileName) {
    return WorldParser(json, fileName).read();
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
