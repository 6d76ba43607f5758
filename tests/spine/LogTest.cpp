// The log stream as the module uses it: growth across its buffer and what
// reaches the host's sink.
#include <string>

#include <QStringList>
#include <gtest/gtest.h>

#include "module/Log.h"
#include "protocol/HostMessages.h"
#include "support/TestHost.h"

// ShowLogInfo takes only types 0 and 1, appended to what is pending.
TEST(LogSink, SendsOneRecordPerMessageWithTypeLevelAndSource)
{
    TestHost host;
    Log log;
    log.Create(QStringLiteral("Tester"), &TestHost::send, &host);
    ASSERT_EQ(1u, host.withCode(HostMsg::GetLogSink).size());
    // Past the first 32 characters, then past twice that.
    log << logTypeMessage << logLevel4 << std::string(31, 'a').c_str() << QString(200, QLatin1Char('y')) << lmSend;
    log << "second" << lmSend << "pending";
    log.ShowLogInfo(coreLogMsgType(2), logLevel5, QStringLiteral("ignored"));
    log.ShowLogInfo(logTypeError, logLevel1, QStringLiteral(" shown"));
    EXPECT_EQ(QStringList({"Tester 0 4 " + QString(31, 'a') + QString(200, 'y'), "Tester 0 4 second",
                           "Tester 1 1 pending shown"}),
              host.logLines);
}

TEST(LogSink, WithoutSinkNothingIsSentButTheTextIsCleared)
{
    Log log;
    log << "dropped";
    EXPECT_EQ(1, log.SendMessage());
    log << lmSend;
    EXPECT_EQ(QString(), log.text());

    TestHost host;
    host.provideLogSink = false;
    log.Create(QStringLiteral("Tester"), &TestHost::send, &host);
    EXPECT_EQ(nullptr, log.sink());
    log << "still dropped" << lmSend;  // with no sink to call
}
