#include "host/store/ParameterStore.h"

#include <cstddef>
#include <cstring>

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include "protocol/HostMessages.h"
#include "storage/RecordText.h"
#include "protocol/StorageRecords.h"

namespace {

// The module reads and writes records in place, and some of their fields are
// 16-bit text at odd offsets, so they are copied through byte pointers.
char* fieldAddress(void* record, std::size_t offset)
{
    return static_cast<char*>(record) + offset;
}

const char* fieldAddress(const void* record, std::size_t offset)
{
    return static_cast<const char*>(record) + offset;
}

// The text cut to room - 1 units and a NUL after it; nothing for room < 1.
void writeUnits(char* address, int room, const QString& text)
{
    if (room < 1)
        return;
    const int units = qMin(text.size(), room - 1);
    std::memcpy(address, text.utf16(), sizeof(char16_t) * std::size_t(units));
    const char16_t nul = 0;
    std::memcpy(address + 2 * units, &nul, sizeof nul);
}

QString nameText(const char (&field)[255])
{
    return QString::fromLocal8Bit(fieldBytes(field));
}

}  // namespace

ParameterStore::ParameterStore() = default;
ParameterStore::~ParameterStore() = default;

bool ParameterStore::handles(unsigned int code)
{
    return code >= HostMsg::LoadParameterFile && code <= HostMsg::NodeItemCount;
}

int ParameterStore::handleMessage(unsigned int code, intptr_t param1, intptr_t param2)
{
    switch (code) {
    case HostMsg::LoadParameterFile: {
        auto* record = reinterpret_cast<coreXmlLoad*>(param1);
        if (!record)
            return 1;
        const QString path = utf16TextAt(fieldAddress(record, offsetof(coreXmlLoad, path)), 255);
        record->data = load(path);
        return record->data ? 0 : 1;
    }
    case HostMsg::SaveParameterFile:
        return save(reinterpret_cast<void*>(param1));
    case HostMsg::ClearNode:
        return clearNode(param1);
    case HostMsg::OpenNode:
        return openNode(param1);
    case HostMsg::ReadNodeItems:
        return readItems(param1, param2);
    case HostMsg::WriteNodeItems:
        return writeItems(param1, param2);
    case HostMsg::NodeItemLengths:
        return itemLengths(param1, param2);
    case HostMsg::NodeItemCount:
        return itemCount(param1, param2);
    default:
        return -1;
    }
}

void* ParameterStore::load(const QString& path)
{
    error_.clear();
    if (path.isEmpty()) {
        error_ = QStringLiteral("no path to load");
        return nullptr;
    }
    auto file = std::make_unique<OpenFile>();
    file->path = path;
    if (QFileInfo::exists(path)) {
        QFile input(path);
        if (!input.open(QIODevice::ReadOnly)) {
            error_ = QStringLiteral("%1: %2").arg(path, input.errorString());
            return nullptr;
        }
        if (!file->tree.read(input.readAll())) {
            error_ = QStringLiteral("%1: %2").arg(path, file->tree.errorString());
            return nullptr;
        }
    }
    const intptr_t handle = nextFile_++;
    files_[handle] = std::move(file);
    return reinterpret_cast<void*>(handle);
}

int ParameterStore::save(void* file)
{
    error_.clear();
    const auto found = files_.find(reinterpret_cast<intptr_t>(file));
    if (found == files_.end()) {
        error_ = QStringLiteral("no such parameter file handle");
        return 1;
    }
    const std::unique_ptr<OpenFile> open = std::move(found->second);
    files_.erase(found);
    QSaveFile output(open->path);
    if (!output.open(QIODevice::WriteOnly)) {
        error_ = QStringLiteral("%1: %2").arg(open->path, output.errorString());
        return 1;
    }
    const QByteArray bytes = open->tree.write();
    if (output.write(bytes) != bytes.size() || !output.commit()) {
        error_ = QStringLiteral("%1: %2").arg(open->path, output.errorString());
        return 1;
    }
    return 0;
}

ParameterTree* ParameterStore::tree(void* file)
{
    const auto found = files_.find(reinterpret_cast<intptr_t>(file));
    return found == files_.end() ? nullptr : &found->second->tree;
}

ParameterNode* ParameterStore::findNode(void* file, int32_t node)
{
    ParameterTree* owner = tree(file);
    return owner ? owner->node(node) : nullptr;
}

int ParameterStore::clearNode(intptr_t identity)
{
    const auto* id = reinterpret_cast<const coreXmlNodeId*>(identity);
    ParameterNode* node = id ? findNode(id->data, id->node) : nullptr;
    if (!node)
        return 1;
    tree(id->data)->clear(node);
    return 0;
}

int ParameterStore::openNode(intptr_t recordAddress)
{
    auto* record = reinterpret_cast<coreXmlOpenNode*>(recordAddress);
    if (!record)
        return 1;
    record->child = 0;
    ParameterNode* parent = findNode(record->data, record->node);
    if (!parent)
        return 1;
    const QString name = nameText(record->name);
    ParameterNode* child = nullptr;
    if (record->mode == coreXmlOpenExisting) {
        for (const auto& existing : parent->children) {
            if (existing->name == name) {
                child = existing.get();
                break;
            }
        }
    } else if (record->mode != coreXmlOpenAppend) {
        return 1;
    }
    if (!child)
        child = tree(record->data)->addChild(parent, name);
    if (!child)
        return 1;
    record->child = child->handle;
    return 0;
}

void ParameterStore::fillItem(coreSzItem& item, const QString& name, const QString& value,
                              int kind, int handle)
{
    QByteArray nameBytes = name.toLocal8Bit();
    nameBytes.truncate(int(sizeof item.name) - 1);
    copyToField(item.name, nameBytes);
    char* valueField = fieldAddress(&item, offsetof(coreSzItem, value));
    if (item.inlineValue) {
        writeUnits(valueField, kCoreSzInlineUnits, value);
    } else {
        char16_t* storage;
        std::memcpy(&storage, valueField, sizeof storage);
        if (storage)
            writeUnits(reinterpret_cast<char*>(storage), item.length, value);
    }
    item.kind = kind;
    item.node = handle;
}

QString ParameterStore::itemValue(const coreSzItem& item)
{
    const char* valueField = fieldAddress(&item, offsetof(coreSzItem, value));
    const int32_t length = item.length;
    if (item.inlineValue)
        return utf16TextAt(valueField, length > 0 && length < kCoreSzInlineUnits ? length
                                                                                 : kCoreSzInlineUnits);
    const char16_t* storage;
    std::memcpy(&storage, valueField, sizeof storage);
    return storage ? utf16TextAt(reinterpret_cast<const char*>(storage), length) : QString();
}

int ParameterStore::readItems(intptr_t identity, intptr_t nodeAddress)
{
    const auto* id = reinterpret_cast<const coreXmlNodeId*>(identity);
    auto* items = reinterpret_cast<coreSzNode*>(nodeAddress);
    ParameterNode* node = id ? findNode(id->data, id->node) : nullptr;
    if (!node || !items || items->count < 0 || (items->count > 0 && !items->items))
        return 1;
    int index = 0;
    for (const auto& parameter : node->parameters) {
        if (index >= items->count)
            return 0;
        fillItem(items->items[index++], parameter.first, parameter.second, coreSzParameter,
                 node->handle);
    }
    for (const auto& child : node->children) {
        if (index >= items->count)
            return 0;
        fillItem(items->items[index++], child->name, child->value, coreSzChild, child->handle);
    }
    return 0;
}

int ParameterStore::writeItems(intptr_t identity, intptr_t nodeAddress)
{
    const auto* id = reinterpret_cast<const coreXmlNodeId*>(identity);
    const auto* items = reinterpret_cast<const coreSzNode*>(nodeAddress);
    ParameterNode* node = id ? findNode(id->data, id->node) : nullptr;
    if (!node)
        return 1;
    if (items && (items->count < 0 || items->count > kCoreSzMaxItems
                  || (items->count > 0 && !items->items)))
        return 1;
    // The parameter items replace the node's parameters. Children are created
    // and cleared through their own codes; the child items the module sends
    // back are its copy of the list it read, all marked with the parent's
    // handle, so they cannot name a child and change nothing.
    std::vector<std::pair<QString, QString>> parameters;
    const int count = items ? items->count : 0;
    for (int i = 0; i < count; ++i) {
        const coreSzItem& item = items->items[i];
        if (item.kind == coreSzParameter)
            parameters.emplace_back(nameText(item.name), itemValue(item));
    }
    node->parameters = std::move(parameters);
    return 0;
}

int ParameterStore::itemLengths(intptr_t identity, intptr_t lengthsAddress)
{
    const auto* id = reinterpret_cast<const coreXmlNodeId*>(identity);
    auto* lengths = reinterpret_cast<coreSzLengths*>(lengthsAddress);
    ParameterNode* node = id ? findNode(id->data, id->node) : nullptr;
    if (!node || !lengths || lengths->count < 0 || (lengths->count > 0 && !lengths->lengths))
        return 1;
    std::vector<int32_t> units;
    for (const auto& parameter : node->parameters)
        units.push_back(int32_t(parameter.second.size()) + 1);
    for (const auto& child : node->children)
        units.push_back(int32_t(child->value.size()) + 1);
    for (int i = 0; i < lengths->count; ++i)
        lengths->lengths[i] = i < int(units.size()) ? units[std::size_t(i)] : 0;
    return 0;
}

int ParameterStore::itemCount(intptr_t identity, intptr_t countAddress)
{
    const auto* id = reinterpret_cast<const coreXmlNodeId*>(identity);
    auto* count = reinterpret_cast<int32_t*>(countAddress);
    if (!count)
        return 1;
    *count = 0;
    ParameterNode* node = id ? findNode(id->data, id->node) : nullptr;
    if (!node)
        return 1;
    *count = int32_t(node->parameters.size() + node->children.size());
    return 0;
}
