#include "ScriptRunner.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#ifdef Q_OS_UNIX
#include <pwd.h>
#include <unistd.h>
#endif

namespace orvanta {

// ---- OutputDecoder ---------------------------------------------------------------------------------

// The initial byte-order mark is kept so that the text is exactly what the script printed.
OutputDecoder::OutputDecoder() : m_decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom) {}

std::optional<QString> OutputDecoder::decode(QByteArrayView bytes) {
    QString text = m_decoder.decode(bytes);
    // The error count is cumulative until reset, so a bad read must reset it or every later read would
    // look bad too. The reset also discards any partial character held from before.
    if (m_decoder.hasError()) {
        m_decoder.resetState();
        return std::nullopt;
    }
    return text;
}

void OutputDecoder::reset() {
    m_decoder.resetState();
}

// ---- Errors and states -----------------------------------------------------------------------------

QString ScriptRunner::LaunchError::errorDescription() const {
    switch (m_kind) {
    case Kind::scriptNotFound:
        return QStringLiteral("Script not found at ") + m_scriptUrl.path();
    case Kind::alreadyRunning:
        return QStringLiteral("A script is already running");
    }
    return {};
}

QString ScriptRunner::errorDescription(const Error& error) {
    return std::visit([](const auto& e) { return e.errorDescription(); }, error);
}

ScriptRunner::RunState ScriptRunner::RunState::completed(ScriptCatalog script, qint32 exitCode) {
    RunState state(Kind::completed, script);
    state.m_exitCode = exitCode;
    return state;
}

ScriptRunner::RunState ScriptRunner::RunState::failed(ScriptCatalog script, Error error) {
    RunState state(Kind::failed, script);
    state.m_error = std::move(error);
    return state;
}

std::optional<ScriptCatalog> ScriptRunner::RunState::script() const {
    if (m_kind == Kind::idle)
        return std::nullopt;
    return m_script;
}

// ---- ScriptRunner ----------------------------------------------------------------------------------

ScriptRunner::ScriptRunner(QString scriptDirectory, QObject* parent, QString shell)
    : QObject(parent), m_scriptDirectory(std::move(scriptDirectory)), m_shell(std::move(shell)) {}

ScriptRunner::~ScriptRunner() {
    if (!m_process)
        return;
    QProcess* process = m_process;
    process->disconnect(this);
    if (process->state() == QProcess::NotRunning) {
        delete process;
        return;
    }
    // Deleting a QProcess kills its child and waits for it. Instead the child is asked to stop and the
    // process object is let go: it deletes itself once the child has ended (reaping it), or, at quit, is
    // left to the operating system together with the rest of the application. Until then it stays listed,
    // so that it is not mistaken for a leak.
    static auto* const letGo = new QSet<QProcess*>;
    letGo->insert(process);
    process->setParent(nullptr);
    QObject::connect(process, &QObject::destroyed, [process] { letGo->remove(process); });
    QObject::connect(process, &QProcess::finished, process, &QObject::deleteLater);
    process->terminate();
}

QString ScriptRunner::homeFolder() {
    const QString home = qEnvironmentVariable("HOME");
    if (!home.isEmpty())
        return home;
#ifdef Q_OS_UNIX
    if (const passwd* account = getpwuid(getuid()); account && account->pw_dir)
        return QFile::decodeName(account->pw_dir);
#endif
    return QDir::homePath();
}

QString ScriptRunner::userName() {
#ifdef Q_OS_UNIX
    if (const passwd* account = getpwuid(getuid()); account && account->pw_name)
        return QFile::decodeName(account->pw_name);
#endif
    const QString user = qEnvironmentVariable("USER");
    return user.isEmpty() ? qEnvironmentVariable("USERNAME") : user;
}

QProcessEnvironment ScriptRunner::childEnvironment(const QProcessEnvironment& own) {
    QProcessEnvironment environment = own;
    if (!environment.contains(QStringLiteral("HOME")))
        environment.insert(QStringLiteral("HOME"), homeFolder());
    if (!environment.contains(QStringLiteral("USER")))
        environment.insert(QStringLiteral("USER"), userName());
    if (!environment.contains(QStringLiteral("PATH")))
        environment.insert(QStringLiteral("PATH"), defaultSearchPath);
    environment.insert(QStringLiteral("TERM"), QStringLiteral("dumb"));
    return environment;
}

void ScriptRunner::run(ScriptCatalog script, const QStringList& arguments) {
    // A refused start leaves the state showing the refusal while the earlier child lives on, so the child
    // itself is what is checked, not only the state.
    if (isRunning() || m_process) {
        setState(RunState::failed(script, LaunchError::alreadyRunning()));
        return;
    }

    const QString scriptPath = QDir(m_scriptDirectory).filePath(script.fileName());
    const QFileInfo scriptInfo(scriptPath);
    if (!scriptInfo.exists() || scriptInfo.isDir() || !scriptInfo.isExecutable()) {
        setState(RunState::failed(script, LaunchError::scriptNotFound(QUrl::fromLocalFile(scriptPath))));
        return;
    }

    auto* process = new QProcess(this);
    process->setProgram(m_shell);
    process->setArguments(QStringList{scriptPath} + arguments);
    process->setWorkingDirectory(homeFolder());
    process->setProcessChannelMode(QProcess::MergedChannels);
    process->setStandardInputFile(QProcess::nullDevice());
    process->setProcessEnvironment(childEnvironment(QProcessEnvironment::systemEnvironment()));

    connect(process, &QProcess::readyReadStandardOutput, this, [this, process] { onOutput(process); });
    connect(process, &QProcess::finished, this, [this, process, script] { onFinished(process, script); });
    connect(process, &QProcess::errorOccurred, this, [this, process, script](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            onLaunchFailed(process, script);
    });

    m_decoder.reset();
    setState(RunState::running(script));
    m_logBuffer.clear();
    Q_EMIT logBufferChanged();
    m_process = process;
    process->start();
    // The operating system's answer to the launch comes back through a pipe that QProcess reads in a later
    // pass of the event loop. Observers must see a launch that fails as running followed at once by failed,
    // within this call, so wait for that answer: it comes as soon as the child has executed the shell, or
    // has failed to. The bound only guards against a system that never answers.
    process->waitForStarted(5000);
}

void ScriptRunner::cancel() {
    if (m_process && m_process->state() != QProcess::NotRunning)
        m_process->terminate();
}

void ScriptRunner::setState(RunState state) {
    m_state = std::move(state);
    Q_EMIT stateChanged();
}

void ScriptRunner::append(const QString& text) {
    m_logBuffer.append(text);
    Q_EMIT logAppended(text);
    Q_EMIT logBufferChanged();
}

void ScriptRunner::onOutput(QProcess* process) {
    if (process != m_process)
        return;
    const QByteArray bytes = process->readAll();
    if (bytes.isEmpty())
        return;
    if (const std::optional<QString> text = m_decoder.decode(bytes); text && !text->isEmpty())
        append(*text);
}

void ScriptRunner::onFinished(QProcess* process, ScriptCatalog script) {
    if (process != m_process)
        return;
    // QProcess has already delivered what the pipe held at the end; take whatever is still buffered.
    onOutput(process);
    // For a child ended by a signal, QProcess reports the signal's number as the exit code.
    const qint32 status = process->exitCode();
    releaseProcess();
    setState(RunState::completed(script, status));
}

void ScriptRunner::onLaunchFailed(QProcess* process, ScriptCatalog script) {
    if (process != m_process)
        return;
    PlatformError error{QProcess::FailedToStart, process->errorString()};
    releaseProcess();
    setState(RunState::failed(script, std::move(error)));
}

void ScriptRunner::releaseProcess() {
    m_process->disconnect(this);
    // Deleted later: this runs inside the process's own signal.
    m_process->deleteLater();
    m_process = nullptr;
}

} // namespace orvanta
