#pragma once
// One parameter file as the host holds it: a tree of named nodes, each with
// an optional text value, named text parameters in order and child nodes in
// order, read from and written to XML. Every node has a handle; 0 is the
// file's top level, which the XML root element stands for.
//
// The XML keeps every value exactly: text that XML 1.0 cannot carry (control
// characters, unpaired surrogates) is written as base64 of its UTF-16 code
// units instead. docs/HOST-PROTOCOL.md describes the format.
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include <QByteArray>
#include <QString>

struct ParameterNode {
    QString name;
    QString value;
    std::vector<std::pair<QString, QString>> parameters;
    std::vector<std::unique_ptr<ParameterNode>> children;
    ParameterNode* parent = nullptr;
    int handle = 0;
    int depth = 0;
};

class ParameterTree {
public:
    ParameterTree();
    ~ParameterTree();
    ParameterTree(const ParameterTree&) = delete;
    ParameterTree& operator=(const ParameterTree&) = delete;

    // Replaces the tree by the file's contents. False, with the tree left
    // empty and errorString() set, when the text is not well-formed XML or not
    // a parameter file.
    bool read(const QByteArray& xml);
    QByteArray write() const;
    QString errorString() const { return error_; }

    ParameterNode* top() { return top_.get(); }
    // The node with that handle (0: the top level), or null.
    ParameterNode* node(int handle);
    // Appends a child; null when the tree is as deep as it may grow.
    ParameterNode* addChild(ParameterNode* parent, const QString& name);
    // Drops a node's parameters, value and children (their handles die).
    void clear(ParameterNode* node);

    // The element and attribute names of the file format.
    static const char* const kRootElement;
    static const char* const kNodeElement;
    static const char* const kParamElement;
    static const char* const kFormatVersion;
    // Nesting beyond this is refused, when read and when created, so that no
    // file can exhaust the stack of the code that walks or frees the tree.
    static constexpr int kMaxDepth = 200;

private:
    void reset();
    void forget(ParameterNode* node);

    std::unique_ptr<ParameterNode> top_;
    std::unordered_map<int, ParameterNode*> byHandle_;
    int nextHandle_ = 1;
    QString error_;
};
