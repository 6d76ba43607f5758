#include "update/SaveParamDownload.h"

#include <cstring>
#include <memory>
#include <utility>

#include <QDir>
#include <QFile>

#include "platform/HostLink.h"
#include "protocol/HostMessages.h"
#include "protocol/StorageRecords.h"
#include "storage/UnicodeString.h"
#include "storage/XMLWorkData.h"

namespace {

const char* const kFileName = "download.rdd";
const char* const kRootNode = "ParametersDL";
const char* const kAutoNode = "ParamAutoDL";
const char* const kLastNode = "LastDownload";
const char* const kModuleNode = "Module";
const char* const kCountKey = "LastDownloadCount";
const char* const kSha256Key = "Sha256";
const char* const kSizeKbKey = "SizeKb";

// Asks the host to load the file; its handle, or null.
void* loadFile(HostCallback send, void* host, const QString& path)
{
    coreXmlLoad record;
    std::memset(&record, 0, sizeof record);
    char16_t units[255] = {};
    CUnicodeString(path).toUnicodeC(units, 254);
    std::memcpy(reinterpret_cast<char*>(&record) + offsetof(coreXmlLoad, path), units, sizeof units);
    send(host, HostMsg::LoadParameterFile, reinterpret_cast<intptr_t>(&record), 0);
    return record.data;
}

// The parameters of one "Module" node. Their names are the file format's and
// do not follow the record's field names: "Date" holds the title,
// "TypeDownload" the record's state and "NameConfig" the auxiliary path.
void writeModuleNode(CXMLWorkData& node, const dlModule& module, int state)
{
    node.writeString("Name", dlLocalText(module.name));
    node.writeString("Version", dlLocalText(module.version));
    node.writeString("VersionCore", dlLocalText(module.versionExtra));
    node.writeString("Type", dlLocalText(module.type));
    node.writeString("Path", dlLocalText(module.serverPath));
    node.writeString("PathDesc", dlLocalText(module.descPath));
    node.writeInteger("State", state);
    node.writeInteger("TypeDownload", module.state);
    node.writeString("NameConfig", dlLocalText(module.auxPath));
    node.writeString("LocalPath", dlLocalText(module.localPath));
    node.writeString("Date", dlLocalText(module.title));
    node.writeString("Size", dlLocalText(module.sizeText));
}

void readModuleNode(const CXMLWorkData& node, dlModule& module)
{
    const int size = int(kDlTextSize);
    node.readString("Name", "", module.name, size);
    node.readString("Version", "", module.version, size);
    node.readString("VersionCore", "", module.versionExtra, size);
    node.readString("Type", "", module.type, size);
    node.readString("Path", "", module.serverPath, size);
    node.readString("PathDesc", "", module.descPath, size);
    module.state = node.readInteger("TypeDownload", 0);
    node.readString("NameConfig", "", module.auxPath, size);
    node.readString("LocalPath", "", module.localPath, size);
    node.readString("Date", "", module.title, size);
    // Bounded like the others: a longer value in a file edited by hand must
    // not run past the field.
    node.readString("Size", "", module.sizeText, size);
}

void writeHash(CXMLWorkData& node, const ListedHash& hash)
{
    if (hash.isEmpty())
        return;
    node.writeString(kSha256Key, QString::fromLatin1(hash.sha256));
    node.writeInteger(kSizeKbKey, int(hash.sizeKb));
}

ListedHash readHash(const CXMLWorkData& node)
{
    QString text;
    node.readString(kSha256Key, QString(), text);
    ListedHash hash;
    if (isSha256Text(text.toLatin1())) {
        hash.sha256 = text.toLatin1();
        hash.sizeKb = node.readInteger(kSizeKbKey, 0);
    }
    return hash;
}

bool sameModule(const CXMLWorkData& node, const dlModule& module)
{
    char text[kDlTextSize];
    const std::pair<const char*, const char (*)[kDlTextSize]> keys[] = {
        {"Name", &module.name}, {"Version", &module.version}, {"VersionCore", &module.versionExtra}};
    for (const auto& key : keys) {
        node.readString(key.first, "", text, int(kDlTextSize));
        if (QByteArray(text) != dlText(*key.second))
            return false;
    }
    return true;
}

// Visits the "Module" children of lastDownload, at most "LastDownloadCount"
// of them, until visit returns false.
template <class Visit>
void forEachCountedModule(CXMLWorkData& lastDownload, Visit visit)
{
    const int count = lastDownload.readInteger(kCountKey, 0);
    std::unique_ptr<CXMLWorkData> module(lastDownload.getFirstNode(kModuleNode));
    for (int visited = 0; module && visited < count; ++visited) {
        if (!visit(*module))
            return;
        if (visited + 1 < count)
            module.reset(lastDownload.getNextNode());
    }
}

}  // namespace

CSaveParamDownload::CSaveParamDownload(QString folderPath)
    : folder(std::move(folderPath))
{
}

CSaveParamDownload::CSaveParamDownload(QString folderPath, const CHostLink& link)
    : folder(std::move(folderPath)), link_(link)
{
}

CHostLink CSaveParamDownload::link() const
{
    return link_ ? *link_ : CHostLink::moduleLink();
}

CXMLWorkData* CSaveParamDownload::getDefaultXml()
{
    QDir().mkpath(folder);
    const CHostLink host = link();
    const HostCallback send = host.sendCallback();
    if (!send)
        return nullptr;
    const QString path = folder + QLatin1Char('/') + QLatin1String(kFileName);
    void* data = loadFile(send, host.hostPointer(), path);
    if (!data) {
        // A file the host cannot load is taken to be damaged: it goes, and the
        // settings start again from the callers' values.
        QFile::remove(path);
        data = loadFile(send, host.hostPointer(), path);
        if (!data)
            return nullptr;
    }
    return new CXMLWorkData(host.hostPointer(), data, kRootNode, send);
}

void CSaveParamDownload::saveDefaultXml(CXMLWorkData* xml)
{
    if (!xml)
        return;
    link().send(HostMsg::SaveParameterFile, reinterpret_cast<intptr_t>(xml->fillNodeData()));
    delete xml;
}

void CSaveParamDownload::saveStartParam(bool autoDownload, bool showWindow)
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return;
    std::unique_ptr<CXMLWorkData> node(xml->createNode(kAutoNode, coreXmlOpenExisting));
    if (node) {
        node->clearNode();
        node->writeBool("AutoDownload", autoDownload);
        node->writeBool("ShowWindow", showWindow);
        node->writeParameters();
    }
    xml->writeParameters();
    saveDefaultXml(xml);
}

void CSaveParamDownload::getStartParam(bool& autoDownload, bool& showWindow)
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return;
    std::unique_ptr<CXMLWorkData> node(xml->getFirstNode(kAutoNode));
    if (node) {
        autoDownload = node->readBool("AutoDownload", autoDownload);
        showWindow = node->readBool("ShowWindow", showWindow);
    }
    saveDefaultXml(xml);
}

void CSaveParamDownload::getDelayAutoStart(int& delay)
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return;
    std::unique_ptr<CXMLWorkData> node(xml->getFirstNode(kAutoNode));
    if (node) {
        const int stored = node->readInteger("DelayAutoStart", -1);
        if (stored != -1)
            delay = stored;
    }
    saveDefaultXml(xml);
}

void CSaveParamDownload::createLastDownload(int count)
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return;
    std::unique_ptr<CXMLWorkData> node(xml->createNode(kLastNode, coreXmlOpenExisting));
    if (node) {
        node->clearNode();
        node->writeInteger(kCountKey, count);
        node->writeParameters();
    }
    saveDefaultXml(xml);
}

void CSaveParamDownload::saveLastDownloadModule(dlModule module, int state, const ListedHash& hash)
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return;
    std::unique_ptr<CXMLWorkData> node(xml->createNode(kLastNode, coreXmlOpenExisting));
    if (node) {
        std::unique_ptr<CXMLWorkData> child(node->createNode(kModuleNode, coreXmlOpenAppend));
        if (child) {
            writeModuleNode(*child, module, state);
            writeHash(*child, hash);
            child->writeParameters();
        }
    }
    xml->writeParameters();
    saveDefaultXml(xml);
}

void CSaveParamDownload::changeStateLastDownloadModule(dlModule module, int state,
                                                       const ListedHash& hash)
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return;
    std::unique_ptr<CXMLWorkData> node(xml->getFirstNode(kLastNode));
    if (node) {
        forEachCountedModule(*node, [&](CXMLWorkData& child) {
            if (!sameModule(child, module))
                return true;
            const ListedHash kept = hash.isEmpty() ? readHash(child) : hash;
            child.clearNode();
            writeModuleNode(child, module, state);
            writeHash(child, kept);
            child.writeParameters();
            return false;
        });
    }
    xml->writeParameters();
    saveDefaultXml(xml);
}

std::vector<dlModule> CSaveParamDownload::getLastDownloadModules(int state)
{
    const int count = getCountStateLastDownloadModule(state);
    std::vector<dlModule> records(size_t(qMax(count, 0)), emptyDlModule());
    if (count > 0)
        records.resize(size_t(getLastDownloadModule(state, count, records.data())));
    return records;
}

void CSaveParamDownload::readLastDownloadModules(const std::function<bool(CXMLWorkData&)>& visit)
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return;
    std::unique_ptr<CXMLWorkData> node(xml->getFirstNode(kLastNode));
    if (node)
        forEachCountedModule(*node, visit);
    saveDefaultXml(xml);
}

int CSaveParamDownload::getLastDownloadModule(int state, int max, dlModule* out)
{
    int filled = 0;
    readLastDownloadModules([&](CXMLWorkData& child) {
        if (filled < max && child.readInteger("State", -1) == state)
            readModuleNode(child, out[filled++]);
        return filled < max;
    });
    return filled;
}

int CSaveParamDownload::getLastDownloadHashes(CListedHashes& hashes)
{
    int found = 0;
    readLastDownloadModules([&](CXMLWorkData& child) {
        const ListedHash hash = readHash(child);
        if (!hash.isEmpty()) {
            dlModule module = emptyDlModule();
            readModuleNode(child, module);
            hashes.insert(module, hash);
            ++found;
        }
        return true;
    });
    return found;
}

int CSaveParamDownload::getCountStateLastDownloadModule(int state)
{
    int count = 0;
    readLastDownloadModules([&](CXMLWorkData& child) {
        count += child.readInteger("State", -1) == state;
        return true;
    });
    return count;
}

int CSaveParamDownload::getCountLastDownloadModule()
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return -1;
    std::unique_ptr<CXMLWorkData> node(xml->getFirstNode(kLastNode));
    const int count = node ? node->readInteger(kCountKey, 0) : -1;
    saveDefaultXml(xml);
    return count;
}

void CSaveParamDownload::clearLastDownload()
{
    CXMLWorkData* xml = getDefaultXml();
    if (!xml)
        return;
    std::unique_ptr<CXMLWorkData> node(xml->getFirstNode(kLastNode));
    if (node) {
        node->clearNode();
        node->writeInteger(kCountKey, 0);
        node->writeParameters();
    }
    saveDefaultXml(xml);
}
