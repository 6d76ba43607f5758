#pragma once
// The host's command line:
//
//   module-host [--library PATH] [--log FILE] [--headless] [--script FILE]
//               [--script-timeout SECONDS] [--proxy-test SECONDS]
//               PROFILE.json [module arguments...]
//
// Options are only recognised before the profile; everything after it is the
// module's, passed on untouched with code 3007 (so "/OFFLINE" or even
// "--headless" after the profile reach the module, not the host). Parsed
// before QApplication exists, so plain byte strings throughout.
#include <vector>

#include <QByteArray>
#include <QString>

class HostOptions {
public:
    // false with errorString() for an unknown option or a missing value/profile.
    bool parse(int argc, const char* const* argv);
    QString errorString() const { return error_; }
    static QString usage();

    bool help() const { return help_; }
    bool headless() const { return headless_; }
    QString libraryPath() const { return libraryPath_; }  // empty: the default beside the program
    QString logPath() const { return logPath_; }          // empty: standard error
    QString profilePath() const { return profilePath_; }
    QString scriptPath() const { return scriptPath_; }  // empty: no script; "-": standard input
    int scriptTimeout() const { return scriptTimeout_; }  // seconds
    int proxyTestSeconds() const { return proxyTestSeconds_; }  // 0: no proxy test
    const std::vector<QByteArray>& moduleArguments() const { return moduleArguments_; }

private:
    bool takeValue(const QByteArray& option, int argc, const char* const* argv, int& index,
                   QString& value);
    bool takeSeconds(const QByteArray& option, int argc, const char* const* argv, int& index,
                     int& seconds);

    bool help_ = false;
    bool headless_ = false;
    QString libraryPath_;
    QString logPath_;
    QString profilePath_;
    QString scriptPath_;
    int scriptTimeout_ = 300;
    int proxyTestSeconds_ = 0;
    std::vector<QByteArray> moduleArguments_;
    QString error_;
};
