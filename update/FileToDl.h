#pragma once
// The set of records chosen for download, kept in a realloc'ed array whose
// room follows from the count (update/RecordGrowth.h): adds grow it to the
// next power of two when the count reaches one, deletes give the memory back
// when the count drops to the power of two below.
#include <cstddef>
#include <cstdint>

#include "update/DlModule.h"

class CFileToDl {
public:
    CFileToDl() = default;
    ~CFileToDl();
    CFileToDl(const CFileToDl&) = delete;
    CFileToDl& operator=(const CFileToDl&) = delete;

    // Appends a copy of module without looking for duplicates (callers ask
    // existModule first). If the array cannot grow, the records are lost and
    // the count stays as it was; nobody is told.
    void addToStuct(dlModule module);
    // Removes the first record with module's identity (name, version,
    // versionExtra). Callers delete only records they have just found; when
    // none matches, the first record of the set goes instead and the count
    // still drops, to -1 on an empty set.
    void delToStuct(dlModule module);
    // Copies the record at index into out; an index outside the set leaves out as it was.
    void getModuleInfo(int index, dlModule& out) const;
    // Overwrites the first record with module's name (the name alone) by
    // module; 0 when one was found, -1 otherwise. The index is not used.
    int changeStruct(int index, dlModule module);
    int getModuleCount() const { return count_; }
    // Index of the first record with module's identity, or -1. When that
    // record's state differs from module's, the stored state becomes 2, which
    // marks it as changed since it was selected.
    int existModule(dlModule module);
    // Empties the set.
    void clearStruct();

private:
    // Records actually present: none after a removal from an empty set or
    // after the array was lost to a failed reallocation.
    int held() const { return modules_ ? qMax(count_, 0) : 0; }
    int findModule(const dlModule& module) const;
    void resize(int32_t count);
    void shrinkTo(std::size_t capacity);

    dlModule* modules_ = nullptr;
    int32_t count_ = 0;
};
