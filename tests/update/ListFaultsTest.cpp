// Lists as a user may meet them on a real server: missing, empty, an error
// page, random bytes, cut off, with a bad line, a NUL or a megabyte line, and
// their description texts missing. The window offers what can be read of
// them and says when there is nothing; the download folder keeps each list
// as it was served, and nothing for one that was not found.
#include <QFileInfo>

#include "update/WorkflowFixture.h"

namespace {

const QByteArray kCharts = "charts.so,1.5.0,3.3.8,1,/desc/charts.txt,/files/charts.so.gz,2026-10-01,20\n";
const QByteArray kOrders = "orders.so,4.0.0,3.3.8,1,/desc/orders.txt,/files/orders.so.gz,2026-11-10,12\n";
const QByteArray kJunk = QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\xfe", 18) + QByteArray(300, '\x7f');

struct ListFault {
    const char* name;
    QStringList files;  // served from these paths instead of the sample server's files
    QByteArray bytes;   // null: not there (404)
    QStringList rows;   // the rows offered, a configuration's modules in <>
};

void PrintTo(const ListFault& fault, std::ostream* out)
{
    *out << fault.name;
}

class ListFaults : public WorkflowFixture, public ::testing::WithParamInterface<ListFault> {};

}  // namespace

TEST_P(ListFaults, TheWindowOffersWhatCanBeReadAndTheFolderKeepsWhatWasServed)
{
    const ListFault& f = GetParam();
    for (const QString& file : f.files)
        if (f.bytes.isNull())
            QFile::remove(serverRoot + file);
        else
            writeText(serverRoot + file, f.bytes);
    startNginx();
    ASSERT_TRUE(openAndSearch());

    EXPECT_EQ(f.rows, view.rowNames());
    const bool none = f.rows.isEmpty();
    EXPECT_EQ(none ? QStringLiteral("MD0041Message") : QString(), view.status);
    EXPECT_EQ(QStringLiteral("MD%1Message\r\nMD%2Message").arg(none ? "0018" : "0016", none ? "0041" : "0017"),
              view.info);
    EXPECT_FALSE(view.busy);
    EXPECT_TRUE(prompts.boxes.isEmpty()) << prompts.boxes.join('\n').toStdString();
    for (const QString& file : f.files)
        EXPECT_EQ(f.bytes.isNull() ? QByteArray("<missing>") : f.bytes,
                  fileBytes(downloaded(QFileInfo(file).fileName()))) << file.toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ListFaults,
    ::testing::Values(
        ListFault{"ConfigListMissing", {"/configDesc.txt"}, QByteArray(), {"charts.so", "orders.so"}},
        ListFault{"ModuleListMissing", {"/moduleDesc.txt"}, QByteArray(), {"Standard <quotes.so>"}},
        ListFault{"BothListsMissing", {"/configDesc.txt", "/moduleDesc.txt"}, QByteArray(), {}},
        ListFault{"ConfigurationsModuleListMissing", {"/configs/standard-modules.txt"}, QByteArray(),
                  {"Standard", "charts.so", "orders.so"}},
        ListFault{"ModuleListEmpty", {"/moduleDesc.txt"}, "", {"Standard <quotes.so>"}},
        ListFault{"ModuleListIsAnErrorPage", {"/moduleDesc.txt"},
                  "<html><body><h1>500 Internal Server Error</h1></body></html>\n", {"Standard <quotes.so>"}},
        ListFault{"ModuleListOfBinaryBytes", {"/moduleDesc.txt"}, kJunk, {"Standard <quotes.so>"}},
        ListFault{"ConfigListOfBinaryBytes", {"/configDesc.txt"}, kJunk, {"charts.so", "orders.so"}},
        ListFault{"ModuleListCutMidLine", {"/moduleDesc.txt"}, kCharts + kOrders.left(kOrders.lastIndexOf(',')),
                  {"Standard <quotes.so>", "charts.so"}},
        ListFault{"ConfigListCutMidLine", {"/configDesc.txt"},
                  "Standard,3.4.0,/configs/standard-modules.txt,/desc/standard.txt",
                  {"charts.so", "orders.so"}},
        ListFault{"ABadLineEndsTheModuleList", {"/moduleDesc.txt"}, kCharts + "no commas here\n" + kOrders,
                  {"Standard <quotes.so>", "charts.so"}},
        ListFault{"ABadLineEndsTheConfigList", {"/configDesc.txt"},
                  "Old,1.0,/m\nStandard,3.4.0,/configs/standard-modules.txt,/desc/standard.txt,Standard\n",
                  {"charts.so", "orders.so"}},
        ListFault{"AMegabyteLineEndsTheModuleList", {"/moduleDesc.txt"},
                  kCharts + QByteArray(1 << 20, 'z') + "\n" + kOrders,
                  {"Standard <quotes.so>", "charts.so"}},
        // A NUL ends a field's stored text, not its line.
        ListFault{"NulInAModuleName", {"/moduleDesc.txt"},
                  QByteArray("charts.so\0hidden", 16) + kCharts.mid(9) + kOrders,
                  {"Standard <quotes.so>", "charts.so", "orders.so"}},
        ListFault{"WindowsLineEnds", {"/moduleDesc.txt"}, QByteArray(kCharts + kOrders).replace("\n", "\r\n"),
                  {"Standard <quotes.so>", "charts.so", "orders.so"}},
        ListFault{"DescriptionMissing", {"/desc/charts.txt"}, QByteArray(),
                  {"Standard <quotes.so>", "charts.so", "orders.so"}},
        ListFault{"ConfigurationDescriptionMissing", {"/desc/standard.txt"}, QByteArray(),
                  {"Standard <quotes.so>", "charts.so", "orders.so"}}),
    [](const ::testing::TestParamInfo<ListFault>& info) { return std::string(info.param.name); });
