#include "update/FileToDl.h"

#include <cstdlib>
#include <cstring>

#include "update/RecordGrowth.h"

namespace {

bool sameText(const char (&a)[kDlTextSize], const char (&b)[kDlTextSize])
{
    return std::strncmp(a, b, kDlTextSize) == 0;
}

bool sameIdentity(const dlModule& a, const dlModule& b)
{
    return sameText(a.name, b.name) && sameText(a.version, b.version)
           && sameText(a.versionExtra, b.versionExtra);
}

}  // namespace

CFileToDl::~CFileToDl()
{
    std::free(modules_);
}

void CFileToDl::addToStuct(dlModule module)
{
    // A set whose count went below zero (a removal from an empty set) holds no
    // records; the next record becomes its first.
    const int32_t present = held();
    dlModule* block = withRoomForOneMore(modules_, present);
    if (!block) {
        std::free(modules_);
        modules_ = nullptr;
        return;
    }
    modules_ = block;
    modules_[present] = module;
    count_ = present + 1;
}

void CFileToDl::delToStuct(dlModule module)
{
    const int found = findModule(module);
    // With no match the search result -1 is the index all the same: every
    // record moves down one slot and the first one drops out of the array.
    for (int i = found + 1; i < held(); ++i) {
        if (i - 1 >= 0)
            modules_[i - 1] = modules_[i];
    }
    resize(count_ - 1);
}

void CFileToDl::getModuleInfo(int index, dlModule& out) const
{
    if (index >= 0 && index < held())
        out = modules_[index];
}

int CFileToDl::changeStruct(int, dlModule module)
{
    for (int i = 0; i < held(); ++i) {
        if (sameText(modules_[i].name, module.name)) {
            modules_[i] = module;
            return 0;
        }
    }
    return -1;
}

int CFileToDl::existModule(dlModule module)
{
    const int found = findModule(module);
    if (found >= 0 && modules_[found].state != module.state)
        modules_[found].state = dlStateFetched;
    return found;
}

void CFileToDl::clearStruct()
{
    resize(0);
}

int CFileToDl::findModule(const dlModule& module) const
{
    for (int i = 0; i < held(); ++i) {
        if (sameIdentity(modules_[i], module))
            return i;
    }
    return -1;
}

void CFileToDl::resize(int32_t count)
{
    const std::size_t capacity = recordCapacity(held());
    count_ = count;
    if (!modules_)
        return;
    if (count <= 0) {
        std::free(modules_);
        modules_ = nullptr;
        return;
    }
    // The block gives memory back only when the count drops to a smaller
    // capacity; below that it already has the room the count calls for.
    if (recordCapacity(count) < capacity)
        shrinkTo(recordCapacity(count));
}

void CFileToDl::shrinkTo(std::size_t capacity)
{
    void* block = std::realloc(modules_, capacity * sizeof(dlModule));
    // Shrinking cannot really fail; if it does the larger block still serves.
    if (block)
        modules_ = static_cast<dlModule*>(block);
}
