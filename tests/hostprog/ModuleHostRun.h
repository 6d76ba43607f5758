#pragma once
// The built module-host program run as a process, as a user starts it. The
// target that includes this defines DM_MODULE_HOST.
#include <QDir>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QStringList>

#include "transfer/support/RealServers.h"

struct HostRun {
    int exitCode = -1;  // -1: it did not start, or it crashed
    QString out;
    QString err;

    QStringList boxes() const
    {
        return out.split(QLatin1Char('\n')).filter(QRegularExpression(QStringLiteral("^box: ")));
    }
};

inline bool startModuleHost(QProcess& process, const QStringList& arguments,
                            const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(DM_MODULE_HOST), arguments);
    return process.waitForStarted(-1);
}

// Runs the host to its end: it exits by itself in headless mode, and a
// script's time limit ends a run that hangs.
inline HostRun runModuleHost(const QStringList& arguments,
                             const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
                             const QByteArray& input = QByteArray())
{
    QProcess process;
    HostRun result;
    if (!startModuleHost(process, arguments, environment))
        return result;
    process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(-1);
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    if (finished && process.exitStatus() == QProcess::NormalExit)
        result.exitCode = process.exitCode();
    return result;
}

// The stored start options that make the module begin an automatic update
// right after it starts.
inline void writeAutomaticStart(const QString& downloadDir, bool showWindow)
{
    QDir().mkpath(downloadDir);
    writeText(downloadDir + QStringLiteral("/download.rdd"),
              QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                         "<parameters format=\"1\">\n"
                         "  <node name=\"ParametersDL\">\n"
                         "    <node name=\"ParamAutoDL\">\n"
                         "      <param name=\"AutoDownload\" value=\"1\"/>\n"
                         "      <param name=\"ShowWindow\" value=\"")
                  + (showWindow ? "1" : "0") + "\"/>\n"
                  "      <param name=\"DelayAutoStart\" value=\"0\"/>\n"
                  "    </node>\n"
                  "  </node>\n"
                  "</parameters>\n");
}
