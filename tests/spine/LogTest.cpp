// The log stream: buffer growth, manipulators, number formatting and what
// reaches the host's sink.
#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "module/Log.h"
#include "protocol/HostMessages.h"
#include "support/TestHost.h"

TEST(LogBuffer, GrowsToTheLargerOfNeedAndDouble)
{
    Log log;
    EXPECT_EQ(32u, log.capacity());
    log << std::string(31, 'a').c_str();  // 31 characters and the NUL fill 32 exactly
    EXPECT_EQ(32u, log.capacity());
    EXPECT_EQ(32u, log.length());
    log << 'b';  // one more: twice the capacity beats 32 + 2
    EXPECT_EQ(64u, log.capacity());
    EXPECT_EQ(33u, log.length());
    EXPECT_EQ(QString(31, 'a') + 'b', log.text());

    Log big;
    big << QString(40, QLatin1Char('x'));
    EXPECT_EQ(73u, big.capacity());  // max(32 + 41, 64)
    big << QString(200, QLatin1Char('y'));
    EXPECT_EQ(73u + 201u, big.capacity());
    EXPECT_EQ(241u, big.length());
    EXPECT_EQ(QString(40, 'x') + QString(200, 'y'), big.text());
}

TEST(LogStream, NumbersAndTexts)
{
    Log log;
    log << short(-5) << ',' << (unsigned short)65535 << ',' << INT_MIN << ',' << UINT_MAX << ','
        << LONG_MIN << ',' << ULONG_MAX << ',' << 0.1f << ',' << 1234567.0 << ',' << 100000.0
        << ',' << 1e-5 << ',' << "lat\xe9" << ',' << QStringLiteral("\u0436") << QChar(0x0416);
    EXPECT_EQ(QStringLiteral("-5,65535,-2147483648,4294967295,") + QString::number(LONG_MIN) + ","
                  + QString::number(ULONG_MAX) + ",0.1,1.23457e+06,100000,1e-05,lat\u00e9,\u0436\u0416",
              log.text());
}

// Messages are errors of level 3 until told otherwise; the manipulators
// number the levels backwards and unknown ones change nothing.
TEST(LogStream, ManipulatorsSetLevelsBackwards)
{
    Log log;
    EXPECT_EQ(1, log.type());
    EXPECT_EQ(3, log.level());
    const std::pair<int, int> mapping[] = {{1, 5}, {2, 4}, {3, 3}, {4, 2}, {7, 2}, {-1, 2}, {0, 0}};
    for (const auto& [manipulator, level] : mapping) {
        log << eLogMsgType(manipulator);
        EXPECT_EQ(level, log.level()) << "manipulator " << manipulator;
    }
    log << coreLogMsgLevel(4) << coreLogMsgType(0);
    EXPECT_EQ(4, log.level());
    EXPECT_EQ(0, log.type());
}

TEST(LogSink, SendsOneRecordPerMessageAndKeepsTypeAndLevel)
{
    TestHost host;
    Log log;
    char name[] = "Tester";  // the byte-string overload of Create
    log.Create(name, &TestHost::send, &host, lmLevel5);
    ASSERT_EQ(1u, host.withCode(HostMsg::GetLogSink).size());
    log << logTypeMessage << lmLevel4 << "file " << 3 << " of " << 7 << lmSend;
    log << "second" << lmSend;
    ASSERT_EQ(2u, host.logLines.size());
    for (const LoggedLine& line : host.logLines) {
        EXPECT_EQ(QStringLiteral("Tester"), line.source);
        EXPECT_EQ(0, line.type);
        EXPECT_EQ(4, line.level);
    }
    EXPECT_EQ(QStringLiteral("file 3 of 7"), host.logLines[0].text);
    EXPECT_EQ(QStringLiteral("second"), host.logLines[1].text);
    EXPECT_EQ(1u, log.length());
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

TEST(LogSink, ShowLogInfoTakesOnlyTypesZeroAndOne)
{
    TestHost host;
    Log log;
    log.Create(QStringLiteral("Tester"), &TestHost::send, &host);
    log << "pending";
    log.ShowLogInfo(coreLogMsgType(2), logLevel5, QStringLiteral("ignored"));
    EXPECT_TRUE(host.logLines.empty());
    EXPECT_EQ(QStringLiteral("pending"), log.text());
    EXPECT_EQ(1, log.type());
    EXPECT_EQ(3, log.level());

    log.ShowLogInfo(logTypeMessage, logLevel1, QStringLiteral(" shown"));
    ASSERT_EQ(1u, host.logLines.size());
    EXPECT_EQ(QStringLiteral("pending shown"), host.logLines[0].text);
    EXPECT_EQ(1, host.logLines[0].level);
}
