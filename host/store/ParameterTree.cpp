#include "host/store/ParameterTree.h"

#include <cstdint>

#include <QXmlStreamAttributes>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

const char* const ParameterTree::kRootElement = "parameters";
const char* const ParameterTree::kNodeElement = "node";
const char* const ParameterTree::kParamElement = "param";
const char* const ParameterTree::kFormatVersion = "1";

namespace {

// Suffix of the attribute that carries a text as base64 of its UTF-16LE code
// units when XML cannot hold it as it is ("nameUtf16", "valueUtf16").
const QString kEncodedSuffix = QStringLiteral("Utf16");

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Whether an XML 1.0 document can carry the text: characters below 0x20 other
// than tab, LF and CR, U+FFFE, U+FFFF and unpaired surrogates are not
// allowed in it, even as character references (XML 1.0, production [2]).
bool xmlCanCarry(const QString& text)
{
    const char16_t* units = reinterpret_cast<const char16_t*>(text.utf16());
    const int size = text.size();
    for (int i = 0; i < size; ++i) {
        const char16_t unit = units[i];
        if (unit < 0x20 && unit != '\t' && unit != '\n' && unit != '\r')
            return false;
        if (unit == 0xFFFE || unit == 0xFFFF || isLowSurrogate(unit))
            return false;
        if (isHighSurrogate(unit)) {
            if (i + 1 >= size || !isLowSurrogate(units[i + 1]))
                return false;
            ++i;
        }
    }
    return true;
}

QByteArray encodeUtf16(const QString& text)
{
    QByteArray bytes;
    bytes.reserve(text.size() * 2);
    for (const QChar c : text) {
        bytes.append(char(c.unicode() & 0xFF));
        bytes.append(char(c.unicode() >> 8));
    }
    return bytes.toBase64();
}

bool decodeUtf16(const QStringRef& base64, QString& text)
{
    const QByteArray bytes = QByteArray::fromBase64(base64.toLatin1());
    if (bytes.size() % 2 != 0)
        return false;
    text.resize(bytes.size() / 2);
    for (int i = 0; i < text.size(); ++i)
        text[i] = QChar(ushort(uchar(bytes[2 * i]) | (uchar(bytes[2 * i + 1]) << 8)));
    return true;
}

void writeText(QXmlStreamWriter& xml, const QString& attribute, const QString& text)
{
    if (xmlCanCarry(text))
        xml.writeAttribute(attribute, text);
    else
        xml.writeAttribute(attribute + kEncodedSuffix, QString::fromLatin1(encodeUtf16(text)));
}

// Reads an attribute written by writeText; absent reads as empty.
bool readText(const QXmlStreamAttributes& attributes, const QString& attribute, QString& text)
{
    text.clear();
    const QString encoded = attribute + kEncodedSuffix;
    if (attributes.hasAttribute(encoded))
        return decodeUtf16(attributes.value(encoded), text);
    text = attributes.value(attribute).toString();
    return true;
}

void writeNode(QXmlStreamWriter& xml, const ParameterNode& node)
{
    for (const auto& parameter : node.parameters) {
        xml.writeEmptyElement(QLatin1String(ParameterTree::kParamElement));
        writeText(xml, QStringLiteral("name"), parameter.first);
        writeText(xml, QStringLiteral("value"), parameter.second);
    }
    for (const auto& child : node.children) {
        xml.writeStartElement(QLatin1String(ParameterTree::kNodeElement));
        writeText(xml, QStringLiteral("name"), child->name);
        if (!child->value.isEmpty())
            writeText(xml, QStringLiteral("value"), child->value);
        writeNode(xml, *child);
        xml.writeEndElement();
    }
}

}  // namespace

ParameterTree::ParameterTree()
{
    reset();
}

ParameterTree::~ParameterTree() = default;

void ParameterTree::reset()
{
    top_ = std::make_unique<ParameterNode>();
    byHandle_.clear();
    byHandle_[0] = top_.get();
    nextHandle_ = 1;
}

ParameterNode* ParameterTree::node(int handle)
{
    const auto found = byHandle_.find(handle);
    return found == byHandle_.end() ? nullptr : found->second;
}

ParameterNode* ParameterTree::addChild(ParameterNode* parent, const QString& name)
{
    if (!parent || parent->depth >= kMaxDepth || nextHandle_ == INT32_MAX)
        return nullptr;
    auto child = std::make_unique<ParameterNode>();
    child->name = name;
    child->parent = parent;
    child->depth = parent->depth + 1;
    child->handle = nextHandle_++;
    byHandle_[child->handle] = child.get();
    parent->children.push_back(std::move(child));
    return parent->children.back().get();
}

void ParameterTree::forget(ParameterNode* node)
{
    for (const auto& child : node->children) {
        byHandle_.erase(child->handle);
        forget(child.get());
    }
}

void ParameterTree::clear(ParameterNode* node)
{
    forget(node);
    node->children.clear();
    node->parameters.clear();
    node->value.clear();
}

bool ParameterTree::read(const QByteArray& bytes)
{
    reset();
    error_.clear();
    QXmlStreamReader xml(bytes);
    ParameterNode* current = nullptr;  // the node whose content is being read
    bool sawRoot = false;
    auto fail = [&](const QString& why) {
        error_ = why;
        reset();
        return false;
    };
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            const QXmlStreamAttributes attributes = xml.attributes();
            if (!sawRoot) {
                if (xml.name() != QLatin1String(kRootElement))
                    return fail(QStringLiteral("the root element is <%1>, not <%2>")
                                    .arg(xml.name().toString(), QLatin1String(kRootElement)));
                sawRoot = true;
                current = top_.get();
            } else if (xml.name() == QLatin1String(kNodeElement)) {
                QString name;
                QString value;
                if (!readText(attributes, QStringLiteral("name"), name)
                    || !readText(attributes, QStringLiteral("value"), value))
                    return fail(QStringLiteral("line %1: bad base64 text").arg(xml.lineNumber()));
                current = addChild(current, name);
                if (!current)
                    return fail(QStringLiteral("line %1: nodes nested deeper than %2")
                                    .arg(xml.lineNumber())
                                    .arg(kMaxDepth));
                current->value = value;
            } else if (xml.name() == QLatin1String(kParamElement)) {
                QString name;
                QString value;
                if (!readText(attributes, QStringLiteral("name"), name)
                    || !readText(attributes, QStringLiteral("value"), value))
                    return fail(QStringLiteral("line %1: bad base64 text").arg(xml.lineNumber()));
                current->parameters.emplace_back(name, value);
                xml.skipCurrentElement();
            } else {
                // Elements a later format may add are passed over.
                xml.skipCurrentElement();
            }
        } else if (xml.isEndElement() && current) {
            if (xml.name() == QLatin1String(kNodeElement))
                current = current->parent;
        }
    }
    if (xml.hasError())
        return fail(QStringLiteral("line %1, column %2: %3")
                        .arg(xml.lineNumber())
                        .arg(xml.columnNumber())
                        .arg(xml.errorString()));
    if (!sawRoot)
        return fail(QStringLiteral("no root element"));
    return true;
}

QByteArray ParameterTree::write() const
{
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.setAutoFormattingIndent(2);
    xml.writeStartDocument();
    xml.writeStartElement(QLatin1String(kRootElement));
    xml.writeAttribute(QStringLiteral("format"), QLatin1String(kFormatVersion));
    writeNode(xml, *top_);
    xml.writeEndElement();
    xml.writeEndDocument();
    return bytes;
}
