#pragma once
// Runs a script of user actions against the module's "Updates" window on the
// host's event loop, for tests and demonstrations without a display:
//
//   module-host --headless --script FILE PROFILE.json [module arguments...]
//
// One command per line; blank lines and lines starting with '#' are skipped.
// The whole script is checked before the first command runs. Commands run
// one after another; a command that waits is polled from a timer, never by
// blocking, so the module's own timers, network replies and modal boxes go
// on while it waits. Actions on the module (menu picks, clicks, connection
// changes) run from the event loop and a command ends when its action has
// returned. Each command is echoed as "> command" before it runs.
//
// The language is described in docs/HOST-PROTOCOL.md.
#include <functional>
#include <vector>

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include "host/app/DialogDriver.h"

class HostBridge;
class HostLogPrinter;
class QWidget;

struct ScriptCommand {
    int line = 0;
    QString text;      // the line as written, trimmed
    QString name;      // the first word
    QString argument;  // the rest of the line, trimmed
};

class HostScript : public QObject {
public:
    enum ExitCode { ExitOk = 0, ExitTimeout = 5, ExitScript = 6 };

    struct Setup {
        HostBridge* bridge = nullptr;
        HostLogPrinter* log = nullptr;
        QString downloadFolder;  // where "print state" finds download.rdd
        QString baseFolder;      // relative paths of the script are resolved here
        int timeoutSeconds = 300;
        // Ends the run with an exit code; the host quits its event loop.
        std::function<void(int code)> finish;
    };

    HostScript(Setup setup, DialogDriver::TextLookup text);

    // Reads and checks the script; "-" reads standard input. false with
    // errorString() naming the line at fault.
    bool load(const QString& path);
    bool parse(const QByteArray& text);
    QString errorString() const { return error_; }
    const std::vector<ScriptCommand>& commands() const { return commands_; }

    // Starts running from the event loop.
    void start();

private:
    enum class Step { Done, Waiting, Failed };

    void tick();
    void answerOpenBox();
    Step run(const ScriptCommand& command);
    Step runAction(const std::function<void()>& action);
    Step runPrint(const QString& what);
    Step fail(const QString& message);
    Step failBehind(QWidget* above);
    void end(int code);
    QString resolve(const QString& path) const;

    static QString checkCommand(const ScriptCommand& command);

    Setup setup_;
    DialogDriver driver_;
    std::vector<ScriptCommand> commands_;
    QString error_;

    QTimer ticker_;
    QElapsedTimer clock_;
    std::size_t next_ = 0;
    bool started_ = false;      // the current command has begun
    bool actionQueued_ = false; // its action is queued or running
    bool actionReturned_ = false;
    qint64 sleepUntil_ = 0;
    QString failure_;
    int answer_ = -1;           // -1 boxes are left alone, 1 yes, 0 no
    int logCursor_ = 0;         // log lines before this one were searched already
    int boxesAnswered_ = 0;
    int boxCursor_ = 0;         // boxes a wait-box has already seen
    qint64 ticks_ = 0;
    qint64 lastAnswerTick_ = -1;
    bool ended_ = false;
};
