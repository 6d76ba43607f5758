// The log stream as the module uses it (LogHelper::ShowLogInfo and the
// host-ready handler's marker): growth across its buffer and what reaches
// the host's sink.
#include <string>

#include <gtest/gtest.h>

#include "module/Log.h"
#include "protocol/HostMessages.h"
#include "support/TestHost.h"

TEST(LogSink, SendsOneRecordPerMessageWithTypeLevelAndSource)
{
    TestHost host;
    Log log;
    log.Create(QStringLiteral("Tester"), &TestHost::send, &host);
    ASSERT_EQ(1u, host.withCode(HostMsg::GetLogSink).size());
    // Past the first 32 characters, then past twice that.
    log << logTypeMessage << logLevel4 << std::string(31, 'a').c_str() << QString(200, QLatin1Char('y')) << lmSend;
    log << "second" << lmSend;
    ASSERT_EQ(2u, host.logLines.size());
    for (const LoggedLine& line : host.logLines) {
        EXPECT_EQ(QStringLiteral("Tester"), line.source);
        EXPECT_EQ(0, line.type);
        EXPECT_EQ(4, line.level);
    }
    EXPECT_EQ(QString(31, 'a') + QString(200, 'y'), host.logLines[0].text);
    EXPECT_EQ(QStringLiteral("second"), host.logLines[1].text);

    // ShowLogInfo takes only types 0 and 1, appended to what is pending.
    log << "pending";
    log.ShowLogInfo(coreLogMsgType(2), logLevel5, QStringLiteral("ignored"));
    EXPECT_EQ(2u, host.logLines.size());
    log.ShowLogInfo(logTypeError, logLevel1, QStringLiteral(" shown"));
    ASSERT_EQ(3u, host.logLines.size());
    EXPECT_EQ(QStringLiteral("pending shown"), host.logLines[2].text);
    EXPECT_EQ(1, host.logLines[2].type);
    EXPECT_EQ(1, host.logLines[2].level);
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
    log << "still dropped" << lmSend;
    EXPECT_TRUE(host.logLines.empty());
}
