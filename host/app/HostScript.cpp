#include "host/app/HostScript.h"

#include <cstdio>

#include <QDialog>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QPushButton>
#include <QWidget>

#include "host/app/HostBridge.h"
#include "host/app/HostConsole.h"
#include "host/app/HostLogPrinter.h"

namespace {

// Polled this often: short against a person's reactions, long against the
// cost of walking the application's widgets.
constexpr int kTickMs = 20;

void say(const QString& text)
{
    const QByteArray line = text.toUtf8() + '\n';
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fflush(stdout);
}

bool isWholeNumber(const QString& text, int& value)
{
    bool ok = false;
    value = text.toInt(&ok, 10);
    return ok && value >= 0;
}

const QStringList kWithoutArgument = {QStringLiteral("open"), QStringLiteral("menu"),
                                      QStringLiteral("wait-lists"), QStringLiteral("wait-box")};
const QStringList kWithArgument = {QStringLiteral("tick"),     QStringLiteral("untick"),
                                   QStringLiteral("wait-log"), QStringLiteral("screenshot")};

}  // namespace

HostScript::HostScript(Setup setup, DialogDriver::TextLookup text)
    : setup_(std::move(setup))
    , driver_(std::move(text))
{
    ticker_.setInterval(kTickMs);
    connect(&ticker_, &QTimer::timeout, this, [this] { tick(); });
}

bool HostScript::load(const QString& path)
{
    QFile file;
    const bool opened = path == QLatin1String("-")
        ? file.open(stdin, QIODevice::ReadOnly)
        : (file.setFileName(path), file.open(QIODevice::ReadOnly));
    if (!opened) {
        error_ = QStringLiteral("cannot read script %1: %2").arg(path, file.errorString());
        return false;
    }
    return parse(file.readAll());
}

bool HostScript::parse(const QByteArray& text)
{
    commands_.clear();
    const QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'));
    for (int i = 0; i < lines.size(); ++i) {
        ScriptCommand command;
        command.line = i + 1;
        command.text = lines[i].trimmed();
        if (command.text.isEmpty() || command.text.startsWith(QLatin1Char('#')))
            continue;
        const int space = command.text.indexOf(QRegExp(QStringLiteral("\\s")));
        command.name = space < 0 ? command.text : command.text.left(space);
        command.argument = space < 0 ? QString() : command.text.mid(space + 1).trimmed();
        const QString problem = checkCommand(command);
        if (!problem.isEmpty()) {
            error_ = QStringLiteral("script line %1: %2: %3")
                         .arg(command.line)
                         .arg(problem, command.text);
            return false;
        }
        commands_.push_back(command);
    }
    return true;
}

// What is wrong with a command as written; empty when nothing is.
QString HostScript::checkCommand(const ScriptCommand& command)
{
    const QString& name = command.name;
    const QString& argument = command.argument;
    int number = 0;
    if (kWithoutArgument.contains(name))
        return argument.isEmpty() ? QString() : QStringLiteral("takes no argument");
    if (kWithArgument.contains(name))
        return argument.isEmpty() ? QStringLiteral("needs an argument") : QString();
    if (name == QLatin1String("press")) {
        DialogDriver::Button button;
        return DialogDriver::parseButton(argument, button)
            ? QString()
            : QStringLiteral("press start, stop, refresh or close");
    }
    if (name == QLatin1String("answer"))
        return argument == QLatin1String("yes") || argument == QLatin1String("no")
            ? QString()
            : QStringLiteral("answer yes or no");
    if (name == QLatin1String("online"))
        return argument == QLatin1String("0") || argument == QLatin1String("1")
            ? QString()
            : QStringLiteral("online 0 or 1");
    if (name == QLatin1String("print")) {
        static const QStringList simple = {QStringLiteral("tree"), QStringLiteral("status"),
                                           QStringLiteral("state"), QStringLiteral("window")};
        if (simple.contains(argument))
            return QString();
        if (argument.startsWith(QLatin1String("files ")))
            return QString();
        return QStringLiteral("print tree, status, state, window or files DIR");
    }
    if (name == QLatin1String("sleep"))
        return isWholeNumber(argument, number) ? QString()
                                               : QStringLiteral("sleep needs milliseconds");
    if (name == QLatin1String("quit"))
        return argument.isEmpty() || isWholeNumber(argument, number)
            ? QString()
            : QStringLiteral("quit takes an exit code");
    return QStringLiteral("unknown command");
}

void HostScript::start()
{
    clock_.start();
    ticker_.start();
}

void HostScript::tick()
{
    if (ended_)
        return;
    ++ticks_;
    if (clock_.elapsed() > qint64(setup_.timeoutSeconds) * 1000) {
        const QString where = next_ < commands_.size()
            ? QStringLiteral("line %1: %2").arg(commands_[next_].line).arg(commands_[next_].text)
            : QStringLiteral("the end of the script");
        printHostError(QStringLiteral("script timed out after %1 s, waiting at %2")
                           .arg(setup_.timeoutSeconds)
                           .arg(where));
        end(ExitTimeout);
        return;
    }
    answerOpenBox();
    while (!ended_ && next_ < commands_.size()) {
        const ScriptCommand& command = commands_[next_];
        if (!started_) {
            say(QStringLiteral("> ") + command.text);
            started_ = true;
        }
        const Step step = run(command);
        if (step == Step::Waiting)
            return;
        if (step == Step::Failed) {
            printHostError(QStringLiteral("script line %1: %2: %3")
                               .arg(command.line)
                               .arg(command.text, failure_));
            end(ExitScript);
            return;
        }
        ++next_;
        started_ = actionQueued_ = actionReturned_ = false;
        sleepUntil_ = 0;
    }
    if (!ended_)
        end(ExitOk);
}

void HostScript::answerOpenBox()
{
    if (answer_ < 0)
        return;
    QDialog* box = driver_.openBox();
    if (!box)
        return;
    say(QStringLiteral("box: %1 | %2")
            .arg(DialogDriver::oneLine(DialogDriver::boxTitle(box)),
                 DialogDriver::oneLine(DialogDriver::boxText(box))));
    if (!DialogDriver::answerBox(box, answer_ == 1))
        box->reject();
    ++boxesAnswered_;
    lastAnswerTick_ = ticks_;
}

HostScript::Step HostScript::run(const ScriptCommand& command)
{
    const QString& name = command.name;
    const QString& argument = command.argument;
    HostBridge* bridge = setup_.bridge;
    if (name == QLatin1String("open") || name == QLatin1String("menu")) {
        if (!actionQueued_ && bridge->menuId() == 0)
            return fail(QStringLiteral("the module has no menu entry"));
        const int32_t id = bridge->menuId();
        const Step step = runAction([bridge, id] { bridge->pickMenuEntry(id); });
        if (step != Step::Done || name == QLatin1String("menu"))
            return step;
        return driver_.window() ? Step::Done : Step::Waiting;
    }
    if (name == QLatin1String("wait-lists")) {
        if (!driver_.window())
            return fail(QStringLiteral("the Updates window is not open"));
        return driver_.listsShown() ? Step::Done : Step::Waiting;
    }
    if (name == QLatin1String("tick") || name == QLatin1String("untick")) {
        if (QWidget* above = driver_.windowAbove())
            return failBehind(above);
        QString error;
        return driver_.setTicked(argument, name == QLatin1String("tick"), error) ? Step::Done
                                                                               : fail(error);
    }
    if (name == QLatin1String("press")) {
        if (!actionQueued_) {
            DialogDriver::Button which;
            DialogDriver::parseButton(argument, which);
            QPushButton* button = driver_.button(which);
            if (!button)
                return fail(QStringLiteral("the Updates window has no such button open"));
            if (!button->isEnabled())
                return fail(QStringLiteral("the button \"%1\" is disabled").arg(button->text()));
            // Clicking through a box would do what no user can, and could
            // take the window away from under the box's own event loop.
            if (QWidget* above = driver_.windowAbove())
                return failBehind(above);
            QPointer<QPushButton> target(button);
            return runAction([target] {
                if (target)
                    target->click();
            });
        }
        return runAction({});
    }
    if (name == QLatin1String("answer")) {
        answer_ = argument == QLatin1String("yes") ? 1 : 0;
        return Step::Done;
    }
    if (name == QLatin1String("wait-log")) {
        const QStringList lines = setup_.log->linesFrom(logCursor_);
        for (int i = 0; i < lines.size(); ++i) {
            if (lines[i].contains(argument)) {
                logCursor_ += i + 1;
                return Step::Done;
            }
        }
        return Step::Waiting;
    }
    if (name == QLatin1String("wait-box")) {
        if (answer_ < 0)
            return fail(QStringLiteral("no answer given for boxes"));
        // Over from the next tick on: the module goes on after its box only
        // once this tick has returned to the box's event loop.
        if (boxesAnswered_ <= boxCursor_ || lastAnswerTick_ == ticks_)
            return Step::Waiting;
        ++boxCursor_;
        return Step::Done;
    }
    if (name == QLatin1String("online")) {
        const bool online = argument == QLatin1String("1");
        return runAction([bridge, online] { bridge->setOnline(online); });
    }
    if (name == QLatin1String("print"))
        return runPrint(argument);
    if (name == QLatin1String("screenshot")) {
        QString error;
        return driver_.screenshot(resolve(argument), error) ? Step::Done : fail(error);
    }
    if (name == QLatin1String("sleep")) {
        if (!sleepUntil_)
            sleepUntil_ = clock_.elapsed() + argument.toInt() + 1;
        return clock_.elapsed() >= sleepUntil_ ? Step::Done : Step::Waiting;
    }
    if (name == QLatin1String("quit")) {
        end(argument.isEmpty() ? ExitOk : argument.toInt());
        return Step::Done;
    }
    return fail(QStringLiteral("unknown command"));
}

HostScript::Step HostScript::failBehind(QWidget* above)
{
    return fail(QStringLiteral("the Updates window is behind \"%1\"; answer or close it first")
                    .arg(above->windowTitle()));
}

// Runs the action from the event loop rather than from this tick: it may
// open a modal box, whose own event loop must find the script free to answer
// it. The command is over when the action has returned.
HostScript::Step HostScript::runAction(const std::function<void()>& action)
{
    if (!actionQueued_) {
        actionQueued_ = true;
        QTimer::singleShot(0, this, [this, action] {
            action();
            actionReturned_ = true;
        });
        return Step::Waiting;
    }
    return actionReturned_ ? Step::Done : Step::Waiting;
}

HostScript::Step HostScript::runPrint(const QString& what)
{
    if (what == QLatin1String("window")) {
        say(QStringLiteral("window: %1").arg(driver_.window() ? "shown" : "hidden"));
        return Step::Done;
    }
    if (what == QLatin1String("tree")) {
        if (!driver_.window())
            return fail(QStringLiteral("the Updates window is not open"));
        for (const QString& line : driver_.treeLines())
            say(line);
        return Step::Done;
    }
    if (what == QLatin1String("status")) {
        if (!driver_.window())
            return fail(QStringLiteral("the Updates window is not open"));
        say(QStringLiteral("status: ") + DialogDriver::oneLine(driver_.statusText()));
        say(QStringLiteral("info: ") + DialogDriver::oneLine(driver_.infoText()));
        return Step::Done;
    }
    if (what == QLatin1String("state")) {
        QFile file(setup_.downloadFolder + QStringLiteral("/download.rdd"));
        if (!file.open(QIODevice::ReadOnly)) {
            say(QStringLiteral("state: none"));
            return Step::Done;
        }
        QByteArray content = file.readAll();
        if (!content.endsWith('\n'))
            content += '\n';
        std::fwrite(content.constData(), 1, size_t(content.size()), stdout);
        std::fflush(stdout);
        return Step::Done;
    }
    // print files DIR
    const QString folder = resolve(what.mid(6).trimmed());
    if (!QFileInfo(folder).isDir())
        return fail(QStringLiteral("no folder %1").arg(folder));
    QStringList lines;
    QDirIterator files(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    const QDir base(folder);
    while (files.hasNext()) {
        files.next();
        lines << QStringLiteral("%1 %2").arg(base.relativeFilePath(files.filePath()))
                     .arg(files.fileInfo().size());
    }
    lines.sort();
    for (const QString& line : lines)
        say(line);
    return Step::Done;
}

HostScript::Step HostScript::fail(const QString& message)
{
    failure_ = message;
    return Step::Failed;
}

void HostScript::end(int code)
{
    ended_ = true;
    ticker_.stop();
    if (setup_.finish)
        setup_.finish(code);
}

QString HostScript::resolve(const QString& path) const
{
    return QDir::cleanPath(QDir(setup_.baseFolder).absoluteFilePath(path));
}
