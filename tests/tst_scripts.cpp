// Runs the three diagnostic scripts for real, on loopback only: a TLS server made here with openssl, a DNS
// responder on a UDP port, a closed port for a failing target, HOME in a temporary folder. Every target is
// given through the ORVANTA_* environment, so nothing leaves this machine.
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace {

const QString scriptsDir = QStringLiteral(ORVANTA_SOURCE_DIR "/resources/scripts");
const QString searchPath = QStringLiteral("/usr/local/bin:/opt/homebrew/bin:/usr/bin:/bin:/usr/sbin:/sbin");

// A port on 127.0.0.1 that nothing listens on (bound, read, released).
int freePort(int type) {
    const int fd = ::socket(AF_INET, type, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    ::close(fd);
    return ntohs(a.sin_port);
}

// Answers every DNS query on a loopback UDP port with an empty NOERROR reply.
class DnsResponder {
public:
    DnsResponder() {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        ::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a);
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~DnsResponder() {
        stop_ = true;
        thread_.join();
        ::close(fd_);
    }
    int port() const { return port_; }

private:
    void serve() {
        while (!stop_) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 100) <= 0)
                continue;
            unsigned char buf[512];
            sockaddr_in from{};
            socklen_t len = sizeof from;
            const ssize_t n = ::recvfrom(fd_, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &len);
            if (n < 12)
                continue;
            size_t end = 12; // header, then the question's labels, its terminating zero, type and class
            while (end < size_t(n) && buf[end] != 0)
                end += buf[end] + 1;
            end += 5;
            if (end > size_t(n))
                continue;
            buf[2] = 0x81; // response, recursion desired
            buf[3] = 0x80; // recursion available, NOERROR
            for (int i = 6; i < 12; ++i)
                buf[i] = 0; // no answer, authority or additional records
            ::sendto(fd_, buf, end, 0, reinterpret_cast<sockaddr*>(&from), len);
        }
    }
    int fd_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

struct Run {
    int exitCode = -1;
    QString output;
    QString lastLine() const {
        const QStringList lines = output.split(u'\n', Qt::SkipEmptyParts);
        return lines.isEmpty() ? QString() : lines.last();
    }
};

} // namespace

class ScriptsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void badArgumentsGiveUsageAndStatus2();
    void reachPassesAgainstTrustedLocalServer();
    void reachFailsOnClosedPortAndEscapesHostileValues();
    void monitorStoppedByTerminationWritesOutageReport();
    void monitorEndsAfterItsDuration();
    void traceRouteReportsPathsAndEscapesNames();
    void traceRouteMarksLatencyJumpAndSilence();

private:
    QProcessEnvironment baseEnvironment(const QString& home) const;
    QProcess* start(const QString& script, const QStringList& args, const QProcessEnvironment& env);
    Run run(const QString& script, const QStringList& args, const QProcessEnvironment& env,
            int timeoutMs = 30000);
    QString checkReport(const Run& run, const QString& home, const QString& prefix);

    QTemporaryDir work_;
    QProcess tlsServer_;
    int tlsPort_ = 0;
    int closedPort_ = 0;
    QString caFile_;
};

void ScriptsTest::initTestCase() {
    if (!QFile::exists(QStringLiteral("/bin/zsh")))
        QSKIP("/bin/zsh is not installed");
    if (QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty())
        QSKIP("openssl is needed for the local TLS server");
    QVERIFY(work_.isValid());
    for (const char* name :
         {"orvanta-mac-client-reach.zsh", "orvanta-mac-network-monitor.zsh", "orvanta-mac-traceroute.zsh"}) {
        const QFileInfo info(scriptsDir + u'/' + QLatin1String(name));
        QVERIFY2(info.isFile() && info.isExecutable(), qPrintable(info.filePath()));
    }

    // A certificate authority and a server certificate for localhost and 127.0.0.1, valid for 90 days.
    const QString d = work_.path();
    auto openssl = [&](const QStringList& args) {
        QProcess p;
        p.setWorkingDirectory(d);
        p.start(QStringLiteral("openssl"), args);
        QVERIFY(p.waitForFinished(30000));
        QVERIFY2(p.exitCode() == 0, p.readAllStandardError().constData());
    };
    QFile ext(d + QStringLiteral("/ext"));
    QVERIFY(ext.open(QIODevice::WriteOnly));
    ext.write("subjectAltName=DNS:localhost,IP:127.0.0.1\n");
    ext.close();
    openssl({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out", "ca.pem", "-days",
             "90", "-subj", "/CN=Orvanta Test CA"});
    openssl({"req", "-newkey", "rsa:2048", "-nodes", "-keyout", "leaf.key", "-out", "leaf.csr", "-subj",
             "/CN=localhost/O=Test & <Co>"});
    openssl({"x509", "-req", "-in", "leaf.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial",
             "-out", "leaf.pem", "-days", "90", "-extfile", "ext"});
    caFile_ = d + QStringLiteral("/ca.pem");

    tlsPort_ = freePort(SOCK_STREAM);
    closedPort_ = freePort(SOCK_STREAM);
    tlsServer_.setWorkingDirectory(d);
    tlsServer_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    tlsServer_.setStandardOutputFile(QProcess::nullDevice());
    tlsServer_.start(QStringLiteral("openssl"),
                     {"s_server", "-accept", QStringLiteral("127.0.0.1:%1").arg(tlsPort_), "-cert",
                      "leaf.pem", "-key", "leaf.key", "-www", "-quiet"});
    QVERIFY(tlsServer_.waitForStarted());
    // Ready once a connection is accepted.
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a{};
            a.sin_family = AF_INET;
            a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            a.sin_port = htons(tlsPort_);
            const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
            ::close(fd);
            return ok;
        }(),
        10000);
}

void ScriptsTest::cleanupTestCase() {
    if (tlsServer_.state() != QProcess::NotRunning) {
        tlsServer_.kill();
        tlsServer_.waitForFinished();
    }
}

QProcessEnvironment ScriptsTest::baseEnvironment(const QString& home) const {
    // What the toolkit gives a script, with every target on loopback.
    QProcessEnvironment env;
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("USER"), QStringLiteral("tester"));
    env.insert(QStringLiteral("PATH"), searchPath);
    env.insert(QStringLiteral("TERM"), QStringLiteral("dumb"));
    env.insert(QStringLiteral("ORVANTA_FRONTEND"), QStringLiteral("localhost:%1").arg(tlsPort_));
    env.insert(QStringLiteral("ORVANTA_ENDPOINTS"),
               QStringLiteral("localhost:%1 127.0.0.1:%1").arg(tlsPort_));
    env.insert(QStringLiteral("ORVANTA_DNS_RESOLVERS"), QStringLiteral("127.0.0.1#%1").arg(closedPort_));
    env.insert(QStringLiteral("ORVANTA_GATEWAY"), QStringLiteral("127.0.0.1"));
    env.insert(QStringLiteral("ORVANTA_CLIENT_PROCESS"), QStringLiteral("orvanta-no-such-client"));
    env.insert(QStringLiteral("ORVANTA_CA_FILE"), caFile_);
    env.insert(QStringLiteral("ORVANTA_TIMEOUT"), QStringLiteral("3"));
    env.insert(QStringLiteral("ORVANTA_TRACE_WAIT"), QStringLiteral("1"));
    env.insert(QStringLiteral("ORVANTA_TRACE_MAX_HOPS"), QStringLiteral("4"));
    return env;
}

QProcess* ScriptsTest::start(const QString& script, const QStringList& args, const QProcessEnvironment& env) {
    auto* p = new QProcess(this);
    p->setProgram(QStringLiteral("/bin/zsh"));
    p->setArguments(QStringList{scriptsDir + u'/' + script} + args);
    p->setWorkingDirectory(env.value(QStringLiteral("HOME")));
    p->setProcessEnvironment(env);
    p->setProcessChannelMode(QProcess::MergedChannels);
    p->start();
    return p;
}

Run ScriptsTest::run(const QString& script, const QStringList& args, const QProcessEnvironment& env,
                     int timeoutMs) {
    QProcess* p = start(script, args, env);
    Run r;
    if (!p->waitForFinished(timeoutMs)) {
        p->kill();
        p->waitForFinished();
    }
    r.output = QString::fromUtf8(p->readAll());
    r.exitCode = p->exitStatus() == QProcess::NormalExit ? p->exitCode() : -1;
    delete p;
    return r;
}

// The last line names the report: on the Desktop, named PREFIX + YYYYMMDD-HHMMSS + .html, complete (no hidden
// temporary file left), well-formed, with no script and nothing loaded from elsewhere. Returns its text.
QString ScriptsTest::checkReport(const Run& run, const QString& home, const QString& prefix) {
    const QString path = run.lastLine();
    const QFileInfo info(path);
    if (info.absolutePath() != QDir(home).filePath(QStringLiteral("Desktop")))
        return QStringLiteral("wrong place: ") + path + u'\n' + run.output;
    const QRegularExpression name(u'^' + prefix + QStringLiteral("\\d{8}-\\d{6}(-\\d+)?\\.html$"));
    if (!name.match(info.fileName()).hasMatch())
        return QStringLiteral("wrong name: ") + info.fileName();
    const QStringList hidden =
        QDir(info.absolutePath()).entryList(QDir::Hidden | QDir::Files | QDir::NoDotAndDotDot);
    for (const QString& f : hidden)
        if (f.startsWith(u'.'))
            return QStringLiteral("temporary file left: ") + f;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("missing report: ") + path;
    const QString text = QString::fromUtf8(file.readAll());
    QXmlStreamReader xml(text);
    while (!xml.atEnd())
        xml.readNext();
    if (xml.hasError())
        return QStringLiteral("not well-formed: %1 at line %2").arg(xml.errorString()).arg(xml.lineNumber());
    if (text.contains(QStringLiteral("<script"), Qt::CaseInsensitive))
        return QStringLiteral("contains a script element");
    if (text.contains(QRegularExpression(QStringLiteral("(src|href)\\s*=\\s*\"?(https?:)?//"))))
        return QStringLiteral("loads something from elsewhere");
    return QStringLiteral("OK:") + text;
}

#define REPORT_OK(text)                                                                                      \
    do {                                                                                                     \
        if (!(text).startsWith(QStringLiteral("OK:")))                                                       \
            QFAIL(qPrintable(text));                                                                         \
    } while (0)

void ScriptsTest::badArgumentsGiveUsageAndStatus2() {
    QTemporaryDir home;
    const QProcessEnvironment env = baseEnvironment(home.path());
    const QList<QPair<QString, QStringList>> cases = {
        {"orvanta-mac-client-reach.zsh", {"--bogus"}},
        {"orvanta-mac-traceroute.zsh", {"extra"}},
        {"orvanta-mac-network-monitor.zsh", {"--duration"}},
        {"orvanta-mac-network-monitor.zsh", {"--duration", "0"}},
        {"orvanta-mac-network-monitor.zsh", {"--duration", "15m"}},
        {"orvanta-mac-network-monitor.zsh", {"--forever"}},
    };
    for (const auto& [script, args] : cases) {
        const Run r = run(script, args, env);
        QVERIFY2(r.exitCode == 2, qPrintable(script + u' ' + args.join(u' ') + u'\n' + r.output));
        QVERIFY2(r.output.contains(QStringLiteral("usage: ") + script), qPrintable(r.output));
    }
    QVERIFY(!QDir(home.filePath(QStringLiteral("Desktop"))).exists() ||
            QDir(home.filePath(QStringLiteral("Desktop"))).isEmpty());
}

void ScriptsTest::reachPassesAgainstTrustedLocalServer() {
    QTemporaryDir home;
    QProcessEnvironment env = baseEnvironment(home.path());
    env.insert(QStringLiteral("ORVANTA_CONNECTOR_PROCESS"),
               QStringLiteral("tst_scripts")); // this test stands in
    env.insert(QStringLiteral("ORVANTA_RELAY"), QStringLiteral("127.0.0.1:%1").arg(tlsPort_));
    const Run r = run(QStringLiteral("orvanta-mac-client-reach.zsh"), {}, env);
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    const QString report = checkReport(r, home.path(), QStringLiteral("OrvantaMacClientReach_"));
    REPORT_OK(report);
    QVERIFY(report.contains(QStringLiteral("verdict ok")));
    QVERIFY(report.contains(QStringLiteral("TLSv1.")));
    QVERIFY(report.contains(QStringLiteral("O=Test &amp; &lt;Co&gt;"))); // a certificate field, escaped
    QVERIFY(report.contains(
        QStringLiteral("<meta name=\"orvanta-relay\" content=\"127.0.0.1:%1\" />").arg(tlsPort_)));
    QVERIFY2(r.output.contains(QStringLiteral("is covered by")) ||
                 r.output.contains(QStringLiteral("names the host")),
             qPrintable(r.output));
}

void ScriptsTest::reachFailsOnClosedPortAndEscapesHostileValues() {
    QTemporaryDir home;
    QProcessEnvironment env = baseEnvironment(home.path());
    env.insert(QStringLiteral("ORVANTA_ENDPOINTS"),
               QStringLiteral("127.0.0.1:%1 <script>alert('x')</script>&\"").arg(closedPort_));
    env.insert(QStringLiteral("ORVANTA_CONNECTOR_PROCESS"), QStringLiteral("<img src=x>"));
    env.insert(QStringLiteral("https_proxy"), QStringLiteral("http://agent:s3cret@<b>proxy</b>:8080"));
    env.remove(QStringLiteral("ORVANTA_CA_FILE"));
    const Run r = run(QStringLiteral("orvanta-mac-client-reach.zsh"), {}, env);
    QVERIFY2(r.exitCode == 1, qPrintable(r.output));
    QVERIFY(r.output.contains(QStringLiteral("port %1 failed").arg(closedPort_)));
    const QString report = checkReport(r, home.path(), QStringLiteral("OrvantaMacClientReach_"));
    REPORT_OK(report);
    QVERIFY(report.contains(QStringLiteral("verdict fail")));
    QVERIFY(report.contains(QStringLiteral("&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;&amp;&quot;")));
    QVERIFY(report.contains(QStringLiteral("&lt;img src=x&gt;")));
    QVERIFY(report.contains(QStringLiteral("&lt;b&gt;proxy&lt;/b&gt;")));
    QVERIFY(!report.contains(QStringLiteral("s3cret"))); // proxy passwords stay out of reports
    QVERIFY(!report.contains(QStringLiteral("<img")));
}

void ScriptsTest::monitorStoppedByTerminationWritesOutageReport() {
    DnsResponder dns;
    QTemporaryDir home;
    QProcessEnvironment env = baseEnvironment(home.path());
    env.insert(QStringLiteral("ORVANTA_DNS_RESOLVERS"), QStringLiteral("127.0.0.1#%1").arg(dns.port()));
    env.insert(QStringLiteral("ORVANTA_FRONTEND"), QStringLiteral("127.0.0.1:%1").arg(tlsPort_));
    env.insert(QStringLiteral("ORVANTA_RELAY"), QStringLiteral("127.0.0.1:%1").arg(closedPort_));
    env.insert(QStringLiteral("ORVANTA_PROBE_INTERVAL"), QStringLiteral("0.2"));
    env.insert(QStringLiteral("ORVANTA_PROBE_TIMEOUT"), QStringLiteral("0.5"));
    env.insert(QStringLiteral("ORVANTA_MINUTE_SECONDS"), QStringLiteral("1"));
    QProcess* p = start(QStringLiteral("orvanta-mac-network-monitor.zsh"), {"--indefinite"}, env);
    QString out;
    QTRY_VERIFY_WITH_TIMEOUT((out += QString::fromUtf8(p->readAll())).contains(QStringLiteral("minute 2:")),
                             20000);
    QVERIFY2(out.contains(QStringLiteral("DOWN  Relay 127.0.0.1")), qPrintable(out));
    p->terminate();
    QVERIFY(p->waitForFinished(10000));
    out += QString::fromUtf8(p->readAll());
    Run r{p->exitStatus() == QProcess::NormalExit ? p->exitCode() : -1, out};
    delete p;
    QVERIFY2(r.exitCode == 1, qPrintable(out)); // an outage was seen
    QVERIFY(out.contains(QStringLiteral("stopped by a termination request")));
    const QString report = checkReport(r, home.path(), QStringLiteral("OrvantaNetMonitor_"));
    REPORT_OK(report);
    // The relay's outage is listed and blamed on the service; the resolver, gateway and front end answered.
    const QRegularExpression outageRow(
        QStringLiteral("<tr><td><span class=\"b fail\">FAIL</span></td><td>[0-9:]+</td>"
                       "<td>[0-9:]+</td><td>[^<]*</td><td>Relay 127.0.0.1</td>"
                       "<td>the Orvanta service \\(relay\\)</td></tr>"));
    QVERIFY2(outageRow.match(report).hasMatch(), qPrintable(report));
    for (const QString& target : {QStringLiteral("DNS 127.0.0.1#%1").arg(dns.port()),
                                  QStringLiteral("Gateway 127.0.0.1"), QStringLiteral("Front end 127.0.0.1")})
        QVERIFY2(report.contains(QStringLiteral("<span class=\"b ok\">OK</span></td><td>") + target),
                 qPrintable(target));
    QVERIFY(report.contains(QStringLiteral("<svg")));
    QVERIFY(report.contains(QStringLiteral("fill=\"#c62828\""))); // lost probes drawn on the timeline
}

void ScriptsTest::monitorEndsAfterItsDuration() {
    DnsResponder dns;
    QTemporaryDir home;
    QProcessEnvironment env = baseEnvironment(home.path());
    env.insert(QStringLiteral("ORVANTA_DNS_RESOLVERS"), QStringLiteral("127.0.0.1#%1").arg(dns.port()));
    env.insert(QStringLiteral("ORVANTA_PROBE_INTERVAL"), QStringLiteral("0.25"));
    env.insert(QStringLiteral("ORVANTA_MINUTE_SECONDS"), QStringLiteral("0.5"));
    const Run r = run(QStringLiteral("orvanta-mac-network-monitor.zsh"), {"--duration", "2"}, env);
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    QVERIFY(r.output.contains(QStringLiteral("the chosen duration ended")));
    QVERIFY(r.output.contains(QStringLiteral("minute 1:")));
    const QString report = checkReport(r, home.path(), QStringLiteral("OrvantaNetMonitor_"));
    REPORT_OK(report);
    QVERIFY(report.contains(QStringLiteral("verdict ok")));
    QVERIFY(report.contains(QStringLiteral("No outages")));
}

void ScriptsTest::traceRouteReportsPathsAndEscapesNames() {
    QTemporaryDir home;
    QProcessEnvironment env = baseEnvironment(home.path());
    // A relay recorded by an earlier report is traced when no session is open now.
    QDir(home.path()).mkpath(QStringLiteral("Desktop"));
    QFile earlier(home.filePath(QStringLiteral("Desktop/OrvantaNetMonitor_20250101-000000.html")));
    QVERIFY(earlier.open(QIODevice::WriteOnly));
    earlier.write("<!DOCTYPE html><html><head><meta name=\"orvanta-relay\" content=\"127.0.0.2:3389\" "
                  "/></head></html>\n");
    earlier.close();
    env.insert(QStringLiteral("ORVANTA_FRONTEND"), QStringLiteral("127.0.0.1:443"));
    const Run ok = run(QStringLiteral("orvanta-mac-traceroute.zsh"), {}, env);
    QVERIFY2(ok.exitCode == 0, qPrintable(ok.output));
    QVERIFY(ok.output.contains(QStringLiteral("Relay (last known): tracing 127.0.0.2")));
    const QString report = checkReport(ok, home.path(), QStringLiteral("OrvantaTraceRoute_"));
    REPORT_OK(report);
    if (!ok.output.contains(QStringLiteral("neither traceroute nor tracepath"))) {
        QVERIFY2(ok.output.contains(QStringLiteral("hop  1")), qPrintable(ok.output));
        QVERIFY(report.contains(QStringLiteral("<svg")));
        QVERIFY(report.contains(QStringLiteral("verdict ok")));
    }

    env.insert(QStringLiteral("ORVANTA_FRONTEND"), QStringLiteral("<script>x</script>"));
    const Run bad = run(QStringLiteral("orvanta-mac-traceroute.zsh"), {}, env);
    QVERIFY2(bad.exitCode == 1, qPrintable(bad.output));
    const QString badReport = checkReport(bad, home.path(), QStringLiteral("OrvantaTraceRoute_"));
    REPORT_OK(badReport);
    QVERIFY(badReport.contains(QStringLiteral("&lt;script&gt;x&lt;/script&gt;")));
}

void ScriptsTest::traceRouteMarksLatencyJumpAndSilence() {
    // A traceroute stand-in first on PATH prints a path whose third hop adds 47 ms and after which nothing
    // replies.
    QTemporaryDir home;
    QTemporaryDir bin;
    QFile fake(bin.filePath(QStringLiteral("traceroute")));
    QVERIFY(fake.open(QIODevice::WriteOnly));
    fake.write("#!/bin/sh\n"
               "echo 'traceroute to x (127.0.0.9), 30 hops max, 60 byte packets'\n"
               "echo ' 1  router.lan (192.168.1.1)  1.201 ms  1.105 ms'\n"
               "echo ' 2  * *'\n"
               "echo ' 3  <b>isp</b>.example.net (203.0.113.5)  48.9 ms *'\n"
               "for h in 4 5 6 7 8 9 10; do echo \" $h  * *\"; done\n");
    fake.close();
    fake.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QProcessEnvironment env = baseEnvironment(home.path());
    env.insert(QStringLiteral("PATH"), bin.path() + u':' + searchPath);
    env.insert(QStringLiteral("ORVANTA_FRONTEND"), QStringLiteral("127.0.0.9"));
    const Run r = run(QStringLiteral("orvanta-mac-traceroute.zsh"), {}, env);
    QVERIFY2(r.exitCode == 1, qPrintable(r.output)); // the gateway did not answer
    QVERIFY2(r.output.contains(QStringLiteral("ended after 5 silent hops")) ||
                 QString(r.output).remove(u'\n').contains(QStringLiteral("replies stop after hop 3")),
             qPrintable(r.output));
    QVERIFY(!r.output.contains(QStringLiteral("hop  9")));
    const QString report = checkReport(r, home.path(), QStringLiteral("OrvantaTraceRoute_"));
    REPORT_OK(report);
    QVERIFY(
        report.contains(QStringLiteral("<td>&lt;b&gt;isp&lt;/b&gt;.example.net</td><td>203.0.113.5</td>")));
    QVERIFY(report.contains(QStringLiteral("latency jumps here (+48 ms); replies stop after this hop")));
    QVERIFY(report.contains(QStringLiteral("fill=\"#c62828\""))); // the jump's bar
}

QTEST_GUILESS_MAIN(ScriptsTest)
#include "tst_scripts.moc"
