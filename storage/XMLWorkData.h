#pragma once
// A working copy of one node of a parameter file that the host holds (codes
// 3165-3170). The node's parameters and the list of its children are fetched
// when the object is made, read and edited here, and sent back with
// writeParameters(). Every value is text: integers and booleans as decimal
// text ("0"/"1" for booleans), colours as the decimal 32-bit ARGB number.
//
// Without a host callback nothing is fetched or sent: readers return their
// defaults and createNode returns null. Called on the GUI thread.
#include <cstdint>
#include <set>
#include <vector>

#include <QColor>
#include <QFont>
#include <QString>

#include "protocol/HostRecords.h"
#include "protocol/StorageRecords.h"

// One parameter of a node: ordered and unique by key.
struct CCoreSzItem {
    QString key;
    QString value;
    int node = 0;

    bool operator<(const CCoreSzItem& other) const { return key < other.key; }
};

// One child of a node as the host listed it.
struct CXMLChildEntry {
    QString name;
    QString value;
    int handle = 0;
};

class CXMLWorkData {
public:
    // Opens (or creates) the node called name at the top of the loaded file
    // data, then reads it.
    CXMLWorkData(void* host, void* data, const char* name, HostCallback callback);
    // Wraps a node whose handle is already known, then reads it.
    CXMLWorkData(void* host, void* data, void* node, HostCallback callback);
    CXMLWorkData(const CXMLWorkData&) = delete;
    CXMLWorkData& operator=(const CXMLWorkData&) = delete;

    // Fetches the node's parameters and children from the host.
    void readParameters();
    // Sends the parameters (and the children as read) back; always 0.
    int writeParameters() const;

    // A child (mode 0: the first of that name, created when missing; mode 1:
    // always a new one); owned by the caller; null when the host has none.
    CXMLWorkData* createNode(const char* name, int mode);
    // Iterates over the children called name; each result is owned by the
    // caller; null at the end.
    CXMLWorkData* getFirstNode(const char* name) const;
    CXMLWorkData* getNextNode() const;
    CXMLWorkData* getNode() const;
    // Empties the node here and in the host.
    void clearNode();

    // The parameter with exactly that key, or null.
    const CCoreSzItem* FindAttr(const char* key) const;

    // A present value that is not a number reads as 0, not as the default.
    int readInteger(const char* key, int def) const;
    bool readBool(const char* key, bool def) const;
    void readString(const char* key, const QString& def, QString& out) const;
    // Copies the value (local 8-bit) into buf, cut to size bytes; buf[size - 1]
    // is always 0.
    void readString(const char* key, const char* def, char* buf, int size) const;
    // 16-bit text, bounded like the 8-bit form.
    void readString(const char* key, const char16_t* def, char16_t* buf, int size) const;
    qint64 readInt64(const char* key, qint64 def) const;
    float readFloat(const char* key, float def) const;
    double readDouble(const char* key, double def) const;
    QColor readColor(const char* key, const QColor& def) const;
    QFont readFont(const char* key, const QFont& def) const;

    void writeInteger(const char* key, int value);
    void writeBool(const char* key, bool value);
    // value is local 8-bit text; null writes the empty string.
    void writeString(const char* key, const char* value);
    void writeString(const char* key, const QString& value);
    void writeString(const char* key, const char16_t* value);
    void writeInt64(const char* key, qint64 value);
    void writeFloat(const char* key, float value, int precision);
    void writeDouble(const char* key, double value, int precision);
    void writeColor(const char* key, const QColor& value);
    // A child node called key (mode 0) with "Family", "Size", "Bold",
    // "Italic", "Strikeout" and "Underline", written at once.
    void writeFont(const char* key, const QFont& value);

    // The handle of the loaded file, which the host takes back to save it (3164).
    void* fillNodeData() const { return data; }
    // How many parameters and children the host holds for this node (3170).
    int getCountParamsInTag() const;

    int getNodeHandle() const { return node; }
    const std::vector<CXMLChildEntry>& getChildren() const { return children; }
    const std::set<CCoreSzItem>& getParams() const { return params; }

private:
    coreXmlNodeId identity() const;
    int send(unsigned int code, intptr_t param1, intptr_t param2) const;
    // The item records of writeParameters; release with freeOutPutData.
    coreSzNode createOutPutData() const;
    static void freeOutPutData(coreSzNode& items);
    void writeValue(const char* key, const QString& value);
    static QString keyText(const char* key);

    void* data = nullptr;
    int node = 0;
    void* host = nullptr;
    HostCallback callback = nullptr;
    std::vector<CXMLChildEntry> children;
    std::set<CCoreSzItem> params;
    mutable std::size_t cursor = 0;
    mutable QString filter;
    // Set when the named node could not be opened: the object then stands for
    // no node, and nothing is fetched or sent for it.
    bool detached = false;
};
