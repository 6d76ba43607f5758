// Both list parsers against a plain second reading of the same lines, over a
// hundred thousand random inputs each (fixed seed). The second reading splits
// with QString::split and decides with the rules written out once more, so a
// slip in either shows as a difference in some record.
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/ConfigListParser.h"
#include "update/ModuleListParser.h"

namespace {

constexpr int kInputs = 100000;

// Pieces that lines are made of: separators, version-like numbers, the
// configuration type, spaces, NUL, non-ASCII text, CR and an overlong field.
const std::vector<QString>& pieces()
{
    static const std::vector<QString> list{
        ",", ",", ",", ",", ",", ".", ".", "1", "2", "2", "0", "5", "9", "10", "99", "100",
        "1024", "1025", "2048", "-3", "a", "b", " ", QString(QChar(0)), QString::fromUtf8("é"),
        QString::fromUtf8("中"), "\r", QString(260, 'L'), "x.y", "a.so"};
    return list;
}

const char* const kNames[] = {"", "a", "b", "2", "a.so", "ab"};

int roll(std::mt19937& random, int below)
{
    return std::uniform_int_distribution<int>(0, below - 1)(random);
}

// Zero to three pieces; a piece may be a comma, which shifts later fields.
QString anyText(std::mt19937& random)
{
    QString text;
    for (int n = roll(random, 4); n > 0; --n)
        text += pieces()[std::size_t(roll(random, int(pieces().size())))];
    return text;
}

QString versionText(std::mt19937& random)
{
    if (roll(random, 5) == 0)
        return anyText(random);
    QString text = QString::number(roll(random, 13));
    for (int n = roll(random, 3); n > 0; --n)
        text += '.' + QString::number(roll(random, 13));
    return text;
}

// One to six lines of about the list's number of fields, shaped like the real
// lists: names from a small pool, versions, the configuration type, sizes.
QStringList randomLines(std::mt19937& random, bool moduleList)
{
    static const std::vector<int> moduleFields{8, 8, 8, 8, 9, 10, 7, 5, 1, 0};
    static const std::vector<int> configFields{5, 5, 5, 5, 6, 7, 4, 3, 1, 0};
    const std::vector<int>& fieldCounts = moduleList ? moduleFields : configFields;
    QStringList lines;
    for (int n = 1 + roll(random, 6); n > 0; --n) {
        const int fieldCount = fieldCounts[std::size_t(roll(random, int(fieldCounts.size())))];
        QStringList parts;
        for (int i = 0; i < fieldCount; ++i) {
            if (i == 0)
                parts << (roll(random, 10) < 7 ? QString::fromLatin1(kNames[roll(random, 6)])
                                               : anyText(random));
            else if (i == 1)
                parts << versionText(random);
            else if (moduleList && i == 3)
                parts << (roll(random, 5) < 2 ? QStringLiteral("2") : anyText(random));
            else if (moduleList && i == 7)
                parts << (roll(random, 2) ? QString::number(roll(random, 5000)) : anyText(random));
            else
                parts << anyText(random);
        }
        lines << (fieldCount == 0 ? anyText(random) : parts.join(','));
    }
    return lines;
}

// What a record field holds for a text: its local 8-bit bytes, at most 254,
// read back up to the first NUL.
QByteArray stored(const QString& text)
{
    QByteArray bytes = text.toLocal8Bit().left(254);
    const int nul = bytes.indexOf('\0');
    return nul < 0 ? bytes : bytes.left(nul);
}

int32_t number(int a, int b, int c)
{
    return int32_t(uint32_t(int64_t(a) * 10000 + int64_t(b) * 100 + c));
}

// A stored version's parts: a missing part repeats the last one, and a third
// part runs to the end of the text.
std::vector<int> partsOf(const QByteArray& storedVersion)
{
    const QStringList p = QString::fromLocal8Bit(storedVersion).split('.');
    if (p.size() < 3)
        return {p[0].toInt(), p.last().toInt(), p.last().toInt()};
    return {p[0].toInt(), p[1].toInt(), QStringList(p.mid(2)).join('.').toInt()};
}

// A module entry is offered when its number is greater than the installed
// module's of its name (the first such), or for type "2" than the named
// configuration's; without either it is always offered.
std::vector<QByteArray> expectedModules(const QStringList& lines, const coreNameConfig* named,
                                        const std::vector<coreModuleEntry>& installed)
{
    std::vector<QByteArray> result;
    for (const QString& line : lines) {
        const QStringList f = line.split(',');
        if (f.size() < 8)
            break;
        const int size = f[7].toInt();  // 0 when it is no number
        const QByteArray name = stored(f[0]), type = stored(f[3]);
        const std::vector<int> v = partsOf(stored(f[1]));
        const int32_t offered = number(v[0], v[1], v[2]);
        bool offer = true;
        if (type == "2") {
            offer = !named || offered > number(named->major, named->minor, named->build);
        } else {
            for (const coreModuleEntry& m : installed) {
                if (fieldBytes(m.name) == name) {
                    offer = offered > number(m.major, m.minor, m.build);
                    break;
                }
            }
        }
        const QByteArray sizeText = size <= 1024 ? QByteArray::number(size) + " kb"
                                                 : QByteArray::number(size / 1024) + ".0 Mb";
        // As fields() shows a record: local and aux paths empty, state -1.
        if (offer)
            result.push_back(name + '|' + stored(f[1]) + '|' + stored(f[2]) + '|' + type + '|' + stored(f[5])
                             + '|' + stored(f[4]) + "|||" + stored(f[6]) + '|' + sizeText + "|-1");
    }
    return result;
}

// A configuration is offered when none of its name is installed; against the
// first installed one of its name, in the automatic mode or when that one is
// current, when its number is the same or greater; otherwise by hand when any
// part on its own is greater.
std::vector<QByteArray> expectedConfigs(const QStringList& lines,
                                        const std::vector<coreNameConfig>& installed, bool autoMode)
{
    std::vector<QByteArray> result;
    for (const QString& line : lines) {
        const QStringList f = line.split(',');
        if (f.size() < 5)
            break;
        const QByteArray name = stored(f[0]);
        const std::vector<int> v = partsOf(stored(f[1]));
        bool offer = true;
        for (const coreNameConfig& c : installed) {
            if (fieldBytes(c.name) != name)
                continue;
            if (autoMode || c.current == 1)
                offer = number(v[0], v[1], v[2]) >= number(c.major, c.minor, c.build);
            else
                offer = v[0] > c.major || v[1] > c.minor || v[2] > c.build;
            break;
        }
        if (offer)
            result.push_back(name + '|' + stored(f[1]) + "|||" + stored(f[2]) + '|' + stored(f[3]) + "||"
                             + name + '|' + stored(QStringList(f.mid(4)).join(',')) + "||-1");
    }
    return result;
}

// Runs kInputs random lists through one parser: parse(random, lines) parses
// them against random installed products and returns what the second reading
// expects. Both decisions, offered and withheld, must occur often.
template <class Parse>
void expectAgreement(unsigned seed, bool moduleList, Parse parse)
{
    std::mt19937 random(seed);
    const int commas = moduleList ? 7 : 4;
    int offered = 0, withheld = 0;
    for (int input = 0; input < kInputs; ++input) {
        const QStringList lines = randomLines(random, moduleList);
        dlListModule list;
        const std::vector<QByteArray> want = parse(random, lines, list);
        std::vector<QByteArray> got;
        for (int i = 0; i < list.count; ++i)
            got.push_back(fields(list.modules[i]));
        ASSERT_EQ(got, want) << input << ": " << lines.join('|').toStdString();
        offered += list.count;
        int wellFormed = 0;
        while (wellFormed < lines.size() && lines[wellFormed].count(',') >= commas)
            ++wellFormed;
        withheld += wellFormed - list.count;
    }
    EXPECT_GT(offered, 10000);
    EXPECT_GT(withheld, 1000);
}

}  // namespace

TEST(ParserRandom, ModuleListsAgreeWithASecondReading)
{
    expectAgreement(7001, true, [](std::mt19937& random, const QStringList& lines, dlListModule& list) {
        std::vector<coreModuleEntry> installed;
        for (int n = roll(random, 5); n > 0; --n)
            installed.push_back(installedModule(kNames[roll(random, 6)], roll(random, 13),
                                                roll(random, 13), roll(random, 13), roll(random, 5)));
        const coreNameConfig config = installedConfig("cfg", roll(random, 13), roll(random, 13),
                                                      roll(random, 13));
        ModuleListBasis basis;
        basis.namedConfig = roll(random, 5) < 2 ? nullptr : &config;
        basis.fourth = roll(random, 5);
        basis.installed = installed.data();
        basis.installedCount = int(installed.size());
        parseModuleLines(lines, list, basis);
        return expectedModules(lines, basis.namedConfig, installed);
    });
}

TEST(ParserRandom, ConfigurationListsAgreeWithASecondReading)
{
    expectAgreement(7002, false, [](std::mt19937& random, const QStringList& lines, dlListModule& list) {
        std::vector<coreNameConfig> installed;
        for (int n = roll(random, 5); n > 0; --n)
            installed.push_back(installedConfig(kNames[roll(random, 6)], roll(random, 13),
                                                roll(random, 13), roll(random, 13),
                                                roll(random, 5) == 0));
        const bool autoMode = roll(random, 5) == 0;
        parseConfigLines(lines, list, installed.data(), int(installed.size()), autoMode);
        return expectedConfigs(lines, installed, autoMode);
    });
}
