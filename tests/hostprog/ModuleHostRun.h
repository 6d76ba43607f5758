#pragma once
// module-host run as a process, as a user starts it; the including target defines DM_MODULE_HOST.
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

// Runs the host to its end: headless it exits by itself, and a script's time limit ends a hang.
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
    if (process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit)
        result.exitCode = process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

// The stored start options that make the module begin an automatic update right after it starts.
inline void writeAutomaticStart(const QString& downloadDir, bool showWindow)
{
    writeText(downloadDir + QStringLiteral("/download.rdd"),
              QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<parameters format=\"1\">"
                         "<node name=\"ParametersDL\"><node name=\"ParamAutoDL\">"
                         "<param name=\"AutoDownload\" value=\"1\"/><param name=\"ShowWindow\" value=\"")
                  + (showWindow ? "1" : "0")
                  + "\"/><param name=\"DelayAutoStart\" value=\"0\"/></node></node></parameters>\n");
}
