#include "storage/XMLWorkData.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "protocol/HostMessages.h"
#include "storage/RecordText.h"

namespace {

// The value field of an item is at an odd offset in a packed record, so the
// pointer in it is stored and loaded byte-wise.
void setValuePointer(coreSzItem& item, char16_t* storage)
{
    std::memcpy(reinterpret_cast<char*>(&item) + offsetof(coreSzItem, value), &storage,
                sizeof storage);
}

}  // namespace

CXMLWorkData::CXMLWorkData(void* hostPointer, void* file, const char* name, HostCallback send)
    : data(file)
    , host(hostPointer)
    , callback(send)
{
    if (!callback)
        return;
    coreXmlOpenNode open;
    std::memset(&open, 0, sizeof open);
    open.data = data;
    open.node = 0;  // the file's top level
    copyToField(open.name, QByteArray(name ? name : ""));
    open.mode = coreXmlOpenExisting;
    this->send(HostMsg::OpenNode, reinterpret_cast<intptr_t>(&open), 0);
    node = open.child;
    detached = node == 0;
    readParameters();
}

CXMLWorkData::CXMLWorkData(void* hostPointer, void* file, void* nodeHandle, HostCallback send)
    : data(file)
    , node(int(reinterpret_cast<intptr_t>(nodeHandle)))
    , host(hostPointer)
    , callback(send)
{
    readParameters();
}

int CXMLWorkData::send(unsigned int code, intptr_t param1, intptr_t param2) const
{
    if (!callback || detached)
        return -1;
    return callback(host, code, param1, param2);
}

coreXmlNodeId CXMLWorkData::identity() const
{
    coreXmlNodeId id;
    std::memset(&id, 0, sizeof id);
    id.data = data;
    id.node = node;
    return id;
}

QString CXMLWorkData::keyText(const char* key)
{
    return QString::fromLocal8Bit(key ? key : "");
}

void CXMLWorkData::readParameters()
{
    children.clear();
    params.clear();
    if (!callback || detached)
        return;
    coreXmlNodeId id = identity();
    int32_t count = 0;
    send(HostMsg::NodeItemCount, reinterpret_cast<intptr_t>(&id), reinterpret_cast<intptr_t>(&count));
    // Beyond this count the records' byte size would not fit 32 bits.
    if (count <= 0 || count > kCoreSzMaxItems)
        return;

    const std::size_t n = std::size_t(count);
    std::unique_ptr<coreSzItem[]> items(new (std::nothrow) coreSzItem[n]());
    std::unique_ptr<int32_t[]> lengths(new (std::nothrow) int32_t[n]());
    if (!items || !lengths)
        return;
    coreSzLengths lengthRecord{count, lengths.get()};
    send(HostMsg::NodeItemLengths, reinterpret_cast<intptr_t>(&id),
         reinterpret_cast<intptr_t>(&lengthRecord));

    // The value arrays are kept here as well as in the records, so that they
    // are read and freed with the length given to the host whatever it wrote.
    std::vector<std::unique_ptr<char16_t[]>> values(n);
    std::vector<int32_t> units(n, 0);
    for (std::size_t i = 0; i < n; ++i) {
        const int32_t wanted = lengths[i] > 0 ? lengths[i] : 1;
        values[i].reset(new (std::nothrow) char16_t[std::size_t(wanted)]());
        units[i] = values[i] ? wanted : 0;
        items[i].length = units[i];
        setValuePointer(items[i], values[i].get());
    }
    coreSzNode itemRecord{count, items.get()};
    send(HostMsg::ReadNodeItems, reinterpret_cast<intptr_t>(&id),
         reinterpret_cast<intptr_t>(&itemRecord));

    for (std::size_t i = 0; i < n; ++i) {
        const coreSzItem& item = items[i];
        const QString name = QString::fromLocal8Bit(fieldBytes(item.name));
        const QString value =
            item.inlineValue
                ? utf16TextAt(reinterpret_cast<const char*>(&item) + offsetof(coreSzItem, value),
                              kCoreSzInlineUnits)
                : utf16TextAt(reinterpret_cast<const char*>(values[i].get()), units[i]);
        if (item.kind == coreSzParameter)
            params.insert(CCoreSzItem{name, value, item.node});
        else if (item.kind == coreSzChild)
            children.push_back(CXMLChildEntry{name, value, item.node});
    }
}

coreSzNode CXMLWorkData::createOutPutData() const
{
    coreSzNode out{0, nullptr};
    const std::size_t total = params.size() + children.size();
    if (total == 0 || total > std::size_t(kCoreSzMaxItems))
        return out;
    out.items = new (std::nothrow) coreSzItem[total]();
    if (!out.items)
        return out;
    out.count = int32_t(total);
    std::size_t index = 0;
    auto fill = [&](const QString& name, const QString& value, int kind) {
        coreSzItem& item = out.items[index++];
        copyToField(item.name, name.toLocal8Bit());
        // The module always sends values in separate arrays, never inline.
        char16_t* storage = new (std::nothrow) char16_t[std::size_t(value.size()) + 1]();
        if (storage)
            std::memcpy(storage, value.utf16(), sizeof(char16_t) * std::size_t(value.size()));
        setValuePointer(item, storage);
        item.length = storage ? int32_t(value.size()) + 1 : 0;
        item.inlineValue = 0;
        item.kind = kind;
        item.node = node;
    };
    for (const CCoreSzItem& parameter : params)
        fill(parameter.key, parameter.value, coreSzParameter);
    for (const CXMLChildEntry& child : children)
        fill(child.name, child.value, coreSzChild);
    return out;
}

void CXMLWorkData::freeOutPutData(coreSzNode& items)
{
    for (int32_t i = 0; i < items.count; ++i) {
        char16_t* storage;
        std::memcpy(&storage, reinterpret_cast<const char*>(&items.items[i]) + offsetof(coreSzItem, value),
                    sizeof storage);
        delete[] storage;
    }
    delete[] items.items;
    items.items = nullptr;
    items.count = 0;
}

int CXMLWorkData::writeParameters() const
{
    if (!callback || detached)
        return 0;
    coreXmlNodeId id = identity();
    coreSzNode items = createOutPutData();
    if (items.count == 0) {
        send(HostMsg::WriteNodeItems, reinterpret_cast<intptr_t>(&id), 0);
        return 0;
    }
    send(HostMsg::WriteNodeItems, reinterpret_cast<intptr_t>(&id), reinterpret_cast<intptr_t>(&items));
    freeOutPutData(items);
    return 0;
}

CXMLWorkData* CXMLWorkData::createNode(const char* name, int mode)
{
    if (!callback || detached)
        return nullptr;
    coreXmlOpenNode open;
    std::memset(&open, 0, sizeof open);
    open.data = data;
    open.node = node;
    copyToField(open.name, QByteArray(name ? name : ""));
    open.mode = mode;
    send(HostMsg::OpenNode, reinterpret_cast<intptr_t>(&open), 0);
    if (open.child == 0)
        return nullptr;
    return new CXMLWorkData(host, data, reinterpret_cast<void*>(intptr_t(open.child)), callback);
}

CXMLWorkData* CXMLWorkData::getFirstNode(const char* name) const
{
    filter = keyText(name);
    cursor = 0;
    return getNode();
}

CXMLWorkData* CXMLWorkData::getNextNode() const
{
    if (cursor >= children.size())
        return nullptr;
    ++cursor;
    return getNode();
}

CXMLWorkData* CXMLWorkData::getNode() const
{
    for (; cursor < children.size(); ++cursor) {
        if (children[cursor].name == filter)
            return new CXMLWorkData(host, data,
                                    reinterpret_cast<void*>(intptr_t(children[cursor].handle)),
                                    callback);
    }
    return nullptr;
}

void CXMLWorkData::clearNode()
{
    params.clear();
    children.clear();
    cursor = 0;
    filter.clear();
    coreXmlNodeId id = identity();
    send(HostMsg::ClearNode, reinterpret_cast<intptr_t>(&id), 0);
}

const CCoreSzItem* CXMLWorkData::FindAttr(const char* key) const
{
    const auto found = params.find(CCoreSzItem{keyText(key), QString(), 0});
    return found == params.end() ? nullptr : &*found;
}

int CXMLWorkData::getCountParamsInTag() const
{
    coreXmlNodeId id = identity();
    int32_t count = 0;
    send(HostMsg::NodeItemCount, reinterpret_cast<intptr_t>(&id), reinterpret_cast<intptr_t>(&count));
    return count;
}

void CXMLWorkData::writeValue(const char* key, const QString& value)
{
    CCoreSzItem item{keyText(key), value, node};
    params.erase(item);
    params.insert(item);
}

int CXMLWorkData::readInteger(const char* key, int def) const
{
    const CCoreSzItem* item = FindAttr(key);
    if (!item)
        return def;
    bool ok = false;
    const int value = item->value.toInt(&ok);
    return ok ? value : 0;
}

bool CXMLWorkData::readBool(const char* key, bool def) const
{
    return FindAttr(key) ? readInteger(key, 0) != 0 : def;
}

void CXMLWorkData::readString(const char* key, const QString& def, QString& out) const
{
    const CCoreSzItem* item = FindAttr(key);
    out = item ? item->value : def;
}

void CXMLWorkData::readString(const char* key, const char* def, char* buf, int size) const
{
    if (!buf || size <= 0)
        return;
    const CCoreSzItem* item = FindAttr(key);
    if (!item) {
        std::strncpy(buf, def ? def : "", std::size_t(size));
    } else {
        const QByteArray bytes = item->value.toLocal8Bit();
        if (bytes.size() < size)
            std::memcpy(buf, bytes.constData(), std::size_t(bytes.size()) + 1);
        else
            std::memcpy(buf, bytes.constData(), std::size_t(size));
    }
    buf[size - 1] = 0;
}

void CXMLWorkData::readString(const char* key, const char16_t* def, char16_t* buf, int size) const
{
    if (!buf || size <= 0)
        return;
    const CCoreSzItem* item = FindAttr(key);
    const QString text = item ? item->value : QString::fromUtf16(def ? def : u"");
    const int units = qMin(text.size(), size - 1);
    std::memcpy(buf, text.utf16(), sizeof(char16_t) * std::size_t(units));
    buf[units] = 0;
}

qint64 CXMLWorkData::readInt64(const char* key, qint64 def) const
{
    const CCoreSzItem* item = FindAttr(key);
    if (!item)
        return def;
    bool ok = false;
    const qint64 value = item->value.toLongLong(&ok);
    return ok ? value : 0;
}

float CXMLWorkData::readFloat(const char* key, float def) const
{
    const CCoreSzItem* item = FindAttr(key);
    if (!item)
        return def;
    bool ok = false;
    const float value = item->value.toFloat(&ok);
    return ok ? value : 0.0f;
}

double CXMLWorkData::readDouble(const char* key, double def) const
{
    const CCoreSzItem* item = FindAttr(key);
    if (!item)
        return def;
    bool ok = false;
    const double value = item->value.toDouble(&ok);
    return ok ? value : 0.0;
}

QColor CXMLWorkData::readColor(const char* key, const QColor& def) const
{
    return QColor::fromRgba(QRgb(readInteger(key, int(def.rgba()))));
}

QFont CXMLWorkData::readFont(const char* key, const QFont& def) const
{
    std::unique_ptr<CXMLWorkData> child(getFirstNode(key));
    if (!child)
        return def;
    QString family;
    child->readString("Family", def.family(), family);
    const int size = child->readInteger("Size", def.pointSize());
    const bool bold = child->readBool("Bold", def.weight() > QFont::Normal);
    const bool italic = child->readBool("Italic", def.style() != QFont::StyleNormal);
    QFont font(family, size, bold ? QFont::Bold : QFont::Normal, italic);
    font.setStrikeOut(child->readBool("Strikeout", def.strikeOut()));
    font.setUnderline(child->readBool("Underline", def.underline()));
    return font;
}

void CXMLWorkData::writeInteger(const char* key, int value)
{
    writeValue(key, QString::number(value));
}

void CXMLWorkData::writeBool(const char* key, bool value)
{
    writeInteger(key, value ? 1 : 0);
}

void CXMLWorkData::writeString(const char* key, const char* value)
{
    writeValue(key, QString::fromLocal8Bit(value ? value : ""));
}

void CXMLWorkData::writeString(const char* key, const QString& value)
{
    writeValue(key, value);
}

void CXMLWorkData::writeString(const char* key, const char16_t* value)
{
    writeValue(key, QString::fromUtf16(value ? value : u""));
}

void CXMLWorkData::writeInt64(const char* key, qint64 value)
{
    writeValue(key, QString::number(value));
}

void CXMLWorkData::writeFloat(const char* key, float value, int precision)
{
    writeValue(key, QString::number(double(value), 'f', precision));
}

void CXMLWorkData::writeDouble(const char* key, double value, int precision)
{
    writeValue(key, QString::number(value, 'f', precision));
}

void CXMLWorkData::writeColor(const char* key, const QColor& value)
{
    writeInteger(key, int(value.rgba()));
}

void CXMLWorkData::writeFont(const char* key, const QFont& value)
{
    std::unique_ptr<CXMLWorkData> child(createNode(key, coreXmlOpenExisting));
    if (!child)
        return;
    child->writeString("Family", value.family());
    child->writeInteger("Size", value.pointSize());
    child->writeBool("Bold", value.weight() > QFont::Normal);
    child->writeBool("Italic", value.style() != QFont::StyleNormal);
    child->writeBool("Strikeout", value.strikeOut());
    child->writeBool("Underline", value.underline());
    child->writeParameters();
}
