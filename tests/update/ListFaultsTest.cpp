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
// The rows as the window lists them; the sample server's orders.so is 3000 kB.
const QString kStandard = "Standard <quotes.so (12 kb)>", kCharts20 = "charts.so (20 kb)",
              kOrders12 = "orders.so (12 kb)", kOrdersServed = "orders.so (2.0 Mb)";
const QByteArray kJunk = QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\xfe", 18) + QByteArray(300, '\x7f');

struct ListFault {
    const char* name;
    QStringList files;  // served from these paths instead of the sample server's files
    QByteArray bytes;   // null: not there (404)
    QStringList rows;   // the rows offered: "name (size)", a configuration's modules in <>
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
        ListFault{"ConfigListMissing", {"/configDesc.txt"}, QByteArray(), {kCharts20, kOrdersServed}},
        ListFault{"ModuleListMissing", {"/moduleDesc.txt"}, QByteArray(), {kStandard}},
        ListFault{"BothListsMissing", {"/configDesc.txt", "/moduleDesc.txt"}, QByteArray(), {}},
        ListFault{"ConfigurationsModuleListMissing", {"/configs/standard-modules.txt"}, QByteArray(),
                  {"Standard", kCharts20, kOrdersServed}},
        ListFault{"ModuleListEmpty", {"/moduleDesc.txt"}, "", {kStandard}},
        ListFault{"ModuleListIsAnErrorPage", {"/moduleDesc.txt"},
                  "<html><body><h1>500 Internal Server Error</h1></body></html>\n", {kStandard}},
        ListFault{"ModuleListOfBinaryBytes", {"/moduleDesc.txt"}, kJunk, {kStandard}},
        ListFault{"ConfigListOfBinaryBytes", {"/configDesc.txt"}, kJunk, {kCharts20, kOrdersServed}},
        ListFault{"ModuleListCutMidLine", {"/moduleDesc.txt"}, kCharts + kOrders.left(kOrders.lastIndexOf(',')),
                  {kStandard, kCharts20}},
        ListFault{"ConfigListCutMidLine", {"/configDesc.txt"},
                  "Standard,3.4.0,/configs/standard-modules.txt,/desc/standard.txt", {kCharts20, kOrdersServed}},
        ListFault{"ABadLineEndsTheModuleList", {"/moduleDesc.txt"}, kCharts + "no commas here\n" + kOrders,
                  {kStandard, kCharts20}},
        ListFault{"ABadLineEndsTheConfigList", {"/configDesc.txt"},
                  "Old,1.0,/m\nStandard,3.4.0,/configs/standard-modules.txt,/desc/standard.txt,Standard\n",
                  {kCharts20, kOrdersServed}},
        ListFault{"AMegabyteLineEndsTheModuleList", {"/moduleDesc.txt"},
                  kCharts + QByteArray(1 << 20, 'z') + "\n" + kOrders, {kStandard, kCharts20}},
        // A NUL ends a field's stored text, not its line.
        ListFault{"NulInAModuleName", {"/moduleDesc.txt"},
                  QByteArray("charts.so\0hidden", 16) + kCharts.mid(9) + kOrders, {kStandard, kCharts20, kOrders12}},
        ListFault{"WindowsLineEnds", {"/moduleDesc.txt"}, QByteArray(kCharts + kOrders).replace("\n", "\r\n"),
                  {kStandard, kCharts20, kOrders12}},
        ListFault{"DescriptionMissing", {"/desc/charts.txt"}, QByteArray(), {kStandard, kCharts20, kOrdersServed}},
        ListFault{"ConfigurationDescriptionMissing", {"/desc/standard.txt"}, QByteArray(),
                  {kStandard, kCharts20, kOrdersServed}}),
    [](const ::testing::TestParamInfo<ListFault>& info) { return std::string(info.param.name); });
