#include "host/app/HostOptions.h"

bool HostOptions::parse(int argc, const char* const* argv)
{
    *this = HostOptions();
    int index = 1;
    for (; index < argc; ++index) {
        const QByteArray argument(argv[index]);
        if (argument == "--") {
            ++index;
            break;
        }
        if (!argument.startsWith('-') || argument == "-")
            break;
        if (argument == "-h" || argument == "--help") {
            help_ = true;
            return true;
        }
        if (argument == "--headless") {
            headless_ = true;
        } else if (argument == "--library" || argument.startsWith("--library=")) {
            if (!takeValue("--library", argc, argv, index, libraryPath_))
                return false;
        } else if (argument == "--log" || argument.startsWith("--log=")) {
            if (!takeValue("--log", argc, argv, index, logPath_))
                return false;
        } else if (argument == "--script" || argument.startsWith("--script=")) {
            if (!takeValue("--script", argc, argv, index, scriptPath_))
                return false;
        } else if (argument == "--script-timeout" || argument.startsWith("--script-timeout=")) {
            if (!takeSeconds("--script-timeout", argc, argv, index, scriptTimeout_))
                return false;
        } else if (argument == "--proxy-test" || argument.startsWith("--proxy-test=")) {
            if (!takeSeconds("--proxy-test", argc, argv, index, proxyTestSeconds_))
                return false;
        } else {
            error_ = QStringLiteral("unknown option %1").arg(QString::fromLocal8Bit(argument));
            return false;
        }
    }
    if (index >= argc) {
        error_ = QStringLiteral("no profile given");
        return false;
    }
    profilePath_ = QString::fromLocal8Bit(argv[index]);
    for (++index; index < argc; ++index)
        moduleArguments_.emplace_back(argv[index]);
    return true;
}

// Accepts both "--option value" and "--option=value"; an empty value is an
// error because neither option has a meaningful empty form.
bool HostOptions::takeValue(const QByteArray& option, int argc, const char* const* argv,
                            int& index, QString& value)
{
    const QByteArray argument(argv[index]);
    QByteArray text;
    if (argument.size() > option.size()) {
        text = argument.mid(option.size() + 1);
    } else if (index + 1 < argc) {
        text = argv[++index];
    }
    if (text.isEmpty()) {
        error_ = QStringLiteral("%1 needs a value").arg(QString::fromLatin1(option));
        return false;
    }
    value = QString::fromLocal8Bit(text);
    return true;
}

bool HostOptions::takeSeconds(const QByteArray& option, int argc, const char* const* argv,
                              int& index, int& seconds)
{
    QString text;
    if (!takeValue(option, argc, argv, index, text))
        return false;
    bool ok = false;
    seconds = text.toInt(&ok, 10);
    if (!ok || seconds <= 0) {
        error_ = QStringLiteral("%1 needs a whole number of seconds").arg(QString::fromLatin1(option));
        return false;
    }
    return true;
}

QString HostOptions::usage()
{
    return QStringLiteral(
        "usage: module-host [--library PATH] [--log FILE] [--headless] [--script FILE]\n"
        "                   [--script-timeout SECONDS] [--proxy-test SECONDS]\n"
        "                   PROFILE.json [module arguments...]\n"
        "  --library PATH  load this copy of libDownloadModule.so.1\n"
        "                  (default: next to the program's folder, then in it)\n"
        "  --log FILE      append the module's log lines to FILE instead of standard error\n"
        "  --headless      no window: register the module, print a summary and exit\n"
        "                  (also the default when there is no display)\n"
        "  --script FILE   with --headless: run the user actions in FILE (\"-\": standard\n"
        "                  input) against the Updates window, then exit\n"
        "  --script-timeout SECONDS  give up on a script after this long (default 300)\n"
        "                  with exit code 5\n"
        "  --proxy-test SECONDS  have the module test the profile's proxy (code 3517)\n"
        "                  within SECONDS, print its result and exit: 0 when it passed,\n"
        "                  7 when it failed\n"
        "Arguments after the profile go to the module as the host's command line,\n"
        "e.g. /OFFLINE.");
}
