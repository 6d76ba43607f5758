// Parses server lists of 25,000, 50,000 and 100,000 lines against a table of
// 1,000 installed modules (answered by a host callback like a real host's
// 3088) and prints the lines parsed per second. Equal rates for the three
// sizes show that the parse is linear in the list's length; the ratio of the
// rate at 100,000 lines to the rate at 25,000 lines sums that up (goal: at
// least 0.85, with at least 1,000,000 lines/s for the module list).
//
// Usage: bench_list_parse [repetitions]
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include "protocol/HostMessages.h"
#include "storage/RecordText.h"
#include "update/ConfigListParser.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"

namespace {

constexpr int kInstalledModules = 1000;
constexpr int32_t kTableId = 7;

std::vector<coreModuleEntry> installedTable()
{
    std::vector<coreModuleEntry> table(kInstalledModules);
    for (int i = 0; i < kInstalledModules; ++i) {
        std::memset(&table[std::size_t(i)], 0, sizeof(coreModuleEntry));
        copyToField(table[std::size_t(i)].name, "module" + QByteArray::number(i) + ".so");
        table[std::size_t(i)].major = 1;
        table[std::size_t(i)].minor = 2;
        table[std::size_t(i)].build = 3;
    }
    return table;
}

const std::vector<coreModuleEntry>& table()
{
    static const std::vector<coreModuleEntry> installed = installedTable();
    return installed;
}

int host(void*, unsigned int code, intptr_t param1, intptr_t)
{
    if (code != HostMsg::ModuleTable)
        return 0;
    auto* request = reinterpret_cast<coreModuleTableRequest*>(param1);
    const std::size_t n = std::min<std::size_t>(std::size_t(request->count), table().size());
    std::memcpy(request->entries, table().data(), n * sizeof(coreModuleEntry));
    return 0;
}

// A module list: installed names with a newer, the same or an older version,
// and every tenth line a module that is not installed.
QByteArray moduleList(int lines)
{
    static const char* const versions[] = {"1.2.4", "1.2.3", "1.1.9"};
    QByteArray bytes;
    for (int i = 0; i < lines; ++i) {
        const QByteArray name = i % 10 == 9 ? "extra" + QByteArray::number(i) + ".so"
                                            : "module" + QByteArray::number(i % kInstalledModules) + ".so";
        bytes += name + "," + versions[i % 3] + ",3.3.8,1,/desc/" + name + ".txt,/files/" + name
                 + ".gz,Module " + QByteArray::number(i) + "," + QByteArray::number(i % 5000) + "\n";
    }
    return bytes;
}

QByteArray configList(int lines)
{
    QByteArray bytes;
    for (int i = 0; i < lines; ++i)
        bytes += "Config" + QByteArray::number(i) + ",1.0." + QByteArray::number(i % 100)
                 + ",/cfg/moduleDesc.txt,/cfg/desc.txt,Configuration, number " + QByteArray::number(i)
                 + "\n";
    return bytes;
}

QString write(const QTemporaryDir& dir, const QByteArray& bytes)
{
    const QString path = dir.filePath(QStringLiteral("list.txt"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        return QString();
    return path;
}

constexpr int kListSizes[] = {25000, 50000, 100000};
constexpr int kShortestList = kListSizes[0];
constexpr int kLongestList = kListSizes[std::size(kListSizes) - 1];

// The best of several runs, in seconds; offered receives the list's count.
template <class Parse>
double bestSeconds(int repetitions, Parse parse, int& offered)
{
    double best = 1e30;
    for (int r = 0; r < repetitions; ++r) {
        dlListModule list;
        QElapsedTimer timer;
        timer.start();
        parse(list);
        best = std::min(best, double(timer.nsecsElapsed()) / 1e9);
        offered = list.count;
    }
    return best;
}

// Runs writeList(lines) through parse for every list size, prints one line
// per size and then the rate at the largest size against the rate at the
// smallest.
template <class WriteList, class Parse>
void measureSizes(int repetitions, WriteList writeList, Parse parse)
{
    double shortestRate = 0, longestRate = 0;
    for (int lines : kListSizes) {
        const QString path = writeList(lines);
        int offered = 0;
        const double seconds = bestSeconds(repetitions, [&](dlListModule& list) { parse(path, list); },
                                           offered);
        const double rate = lines / seconds;
        std::printf("  %6d lines: %7.1f ms, %5d offered, %10.0f lines/s\n", lines, seconds * 1e3,
                    offered, rate);
        if (lines == kShortestList)
            shortestRate = rate;
        if (lines == kLongestList)
            longestRate = rate;
    }
    std::printf("  lines/s at %d lines / at %d lines: %.2f (goal >= 0.85)\n", kLongestList,
                kShortestList, longestRate / shortestRate);
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int repetitions = argc > 1 ? std::max(1, atoi(argv[1])) : 5;
    QTemporaryDir dir;
    if (!dir.isValid()) {
        std::fprintf(stderr, "bench_list_parse: no temporary folder\n");
        return 1;
    }

    coreNameConfig current;
    std::memset(&current, 0, sizeof current);
    copyToField(current.name, "Stock");
    current.current = 1;
    current.moduleCount = kInstalledModules;
    current.moduleTableId = kTableId;
    ModuleListSources sources;
    sources.configs = &current;
    sources.configCount = 1;
    const CInstalledProducts products(&host, nullptr);

    std::printf("module list against %d installed modules, best of %d runs\n", kInstalledModules,
                repetitions);
    measureSizes(
        repetitions, [&](int lines) { return write(dir, moduleList(lines)); },
        [&](const QString& path, dlListModule& list) {
            parseFileList(path, list, QString(), sources, products);
        });

    std::printf("configuration list, nothing installed, best of %d runs\n", repetitions);
    measureSizes(
        repetitions, [&](int lines) { return write(dir, configList(lines)); },
        [](const QString& path, dlListModule& list) {
            parseConfigList(path, list, false, CInstalledProducts(nullptr, nullptr));
        });
    return 0;
}
