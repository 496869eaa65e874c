#pragma once

#include "diagnostics/OutputText.h"
#include "diagnostics/ScriptCatalog.h"

#include <QByteArrayView>
#include <QObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringDecoder>
#include <QStringList>
#include <QUrl>

#include <optional>
#include <variant>

namespace orvanta {

// Turns a child's output, read by read, into text. A multi-byte character split between two reads is kept:
// the incomplete tail of one read waits for the next. A read that is not valid UTF-8 for any other reason
// gives nothing at all, and the next read starts afresh.
class OutputDecoder {
public:
    OutputDecoder();
    // The text of this read, or none when the read is dropped. May be empty (a read holding only the start
    // of a character).
    std::optional<QString> decode(QByteArrayView bytes);
    void reset();

private:
    QStringDecoder m_decoder;
};

// Runs one diagnostic script at a time as a child of "/bin/zsh" and publishes its state and merged output.
// Lives on the main thread; output and the child's end arrive through its event loop, so nothing blocks.
class ScriptRunner : public QObject {
    Q_OBJECT
public:
    class LaunchError {
    public:
        enum class Kind { scriptNotFound, alreadyRunning };

        static LaunchError scriptNotFound(const QUrl& scriptUrl) { return {Kind::scriptNotFound, scriptUrl}; }
        static LaunchError alreadyRunning() { return {Kind::alreadyRunning, {}}; }

        Kind kind() const { return m_kind; }
        QUrl scriptUrl() const { return m_scriptUrl; } // for scriptNotFound
        QString errorDescription() const;

    private:
        LaunchError(Kind kind, QUrl url) : m_kind(kind), m_scriptUrl(std::move(url)) {}
        Kind m_kind;
        QUrl m_scriptUrl;
    };

    // The operating system's refusal to start the child, in its own words.
    struct PlatformError {
        QProcess::ProcessError code = QProcess::FailedToStart;
        QString description;
        QString errorDescription() const { return description; }
    };

    using Error = std::variant<LaunchError, PlatformError>;
    static QString errorDescription(const Error& error);

    class RunState {
    public:
        enum class Kind { idle, running, completed, failed };

        RunState() = default; // idle
        static RunState idle() { return {}; }
        static RunState running(ScriptCatalog script) { return RunState(Kind::running, script); }
        static RunState completed(ScriptCatalog script, qint32 exitCode);
        static RunState failed(ScriptCatalog script, Error error);

        Kind kind() const { return m_kind; }
        // The script of every case but idle.
        std::optional<ScriptCatalog> script() const;
        // The termination status of a completed run: the exit status, or the number of the signal that
        // ended the child; 0 in the other cases.
        qint32 exitCode() const { return m_exitCode; }
        // The reason of a failed run; none in the other cases.
        const std::optional<Error>& error() const { return m_error; }

    private:
        RunState(Kind kind, ScriptCatalog script) : m_kind(kind), m_script(script) {}
        Kind m_kind = Kind::idle;
        ScriptCatalog m_script;
        qint32 m_exitCode = 0;
        std::optional<Error> m_error;
    };

    Q_PROPERTY(orvanta::ScriptRunner::RunState state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString logBuffer READ logBuffer NOTIFY logBufferChanged)
    Q_PROPERTY(bool isRunning READ isRunning NOTIFY stateChanged)

    inline static const QString zshPath = QStringLiteral("/bin/zsh");
    inline static const QString defaultSearchPath =
        QStringLiteral("/usr/local/bin:/opt/homebrew/bin:/usr/bin:/bin:/usr/sbin:/sbin");

    // `shell` is what runs the scripts; only tests give another.
    explicit ScriptRunner(QString scriptDirectory, QObject* parent = nullptr, QString shell = zshPath);
    // Sends a live child SIGTERM, so that it can still write its report, and does not wait for it: the
    // child ends on its own, after the application if need be, and is reaped as long as the event loop runs.
    ~ScriptRunner() override;

    const RunState& state() const { return m_state; }
    // The whole output as one string, made on each call: for observers that read it now and then. A view
    // that follows the output as it grows reads logText instead.
    QString logBuffer() const { return m_logBuffer.toString(); }
    const OutputText& logText() const { return m_logBuffer; }
    bool isRunning() const { return m_state.kind() == RunState::Kind::running; }
    const QString& scriptDirectory() const { return m_scriptDirectory; }
    // True while a child of this runner has been started and its end not yet handled.
    bool hasChild() const { return m_process != nullptr; }

    // Starts `script` with `arguments` after its path. Every outcome is published through `state`.
    void run(ScriptCatalog script, const QStringList& arguments);
    // Sends the child SIGTERM; its end is published as usual. Does nothing without a child.
    void cancel();

    // The environment a script runs in: `own` with HOME, USER and PATH filled in when absent (present with
    // an empty value counts as present), and TERM=dumb.
    static QProcessEnvironment childEnvironment(const QProcessEnvironment& own);
    // The current user's home folder and login name, from the account when the environment lacks them.
    static QString homeFolder();
    static QString userName();

Q_SIGNALS:
    void stateChanged();
    // Emitted on every assignment of logBuffer, including the emptying at a start.
    void logBufferChanged();
    // Emitted with each piece of text appended to logBuffer, right before logBufferChanged.
    void logAppended(const QString& text);

private:
    void setState(RunState state);
    void append(const QString& text);
    void onOutput(QProcess* process);
    void onFinished(QProcess* process, ScriptCatalog script);
    void onLaunchFailed(QProcess* process, ScriptCatalog script);
    void releaseProcess();

    RunState m_state;
    // Kept as UTF-8 with a line index: a week of output is tens of megabytes, and UTF-16 would double it.
    OutputText m_logBuffer;
    const QString m_scriptDirectory;
    const QString m_shell;
    QProcess* m_process = nullptr; // the child and its merged output pipe
    OutputDecoder m_decoder;
};

} // namespace orvanta

Q_DECLARE_METATYPE(orvanta::ScriptRunner::RunState)
