#pragma once
// The host's parameter files (codes 3163-3170): loads a file into a tree and
// hands out a handle for it, answers the module's reads and edits of nodes,
// and writes the tree back to its file when the module hands the handle back.
//
// Every record pointer and count that comes with a message is checked before
// it is used; a message about an unknown file or node answers 1 and changes
// nothing. Called on the thread that delivers the module's messages.
#include <cstdint>
#include <map>
#include <memory>

#include <QString>

#include "host/store/ParameterTree.h"

struct coreSzItem;

class ParameterStore {
public:
    ParameterStore();
    ~ParameterStore();
    ParameterStore(const ParameterStore&) = delete;
    ParameterStore& operator=(const ParameterStore&) = delete;

    // Whether code is one of the parameter-file codes.
    static bool handles(unsigned int code);
    // Answers one of those codes: 0 done, 1 refused, -1 not such a code.
    int handleMessage(unsigned int code, intptr_t param1, intptr_t param2);

    // Loads path: a missing file gives an empty tree, a file that is not a
    // well-formed parameter file gives null. The handle stays valid until save.
    void* load(const QString& path);
    // Writes the tree to its file through a temporary file and a rename, then
    // releases the handle (also when writing fails). 0 when written.
    int save(void* file);

    // The tree behind a handle, for inspection; null when unknown.
    ParameterTree* tree(void* file);
    int openFileCount() const { return int(files_.size()); }
    // Why the last load or save failed.
    QString errorString() const { return error_; }

private:
    struct OpenFile {
        QString path;
        ParameterTree tree;
    };

    ParameterNode* findNode(void* file, int32_t node);
    int clearNode(intptr_t identity);
    int openNode(intptr_t record);
    int readItems(intptr_t identity, intptr_t node);
    int writeItems(intptr_t identity, intptr_t node);
    int itemLengths(intptr_t identity, intptr_t lengths);
    int itemCount(intptr_t identity, intptr_t count);

    static void fillItem(coreSzItem& item, const QString& name, const QString& value, int kind,
                         int handle);
    static QString itemValue(const coreSzItem& item);

    std::map<intptr_t, std::unique_ptr<OpenFile>> files_;
    intptr_t nextFile_ = 1;
    QString error_;
};
