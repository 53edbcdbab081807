// One directory entry, and the reusable list a directory listing fills.
#pragma once

#include <cstdint>

#include "QzString.h"

class QzFileInfo {
public:
    QzFileInfo() = default;
    QzFileInfo(const QzFileInfo&) = delete;
    QzFileInfo& operator=(const QzFileInfo&) = delete;
    virtual ~QzFileInfo() = default;

    int64_t size = 0;       // bytes; 0 for directories
    int64_t extraSize = 0;  // a second size component; sizes are always size + extraSize
    int64_t lastModifiedMillis = 0;
    int64_t createdMillis = 0;
    bool isDirectory = false;
    bool isReparsePoint = false;  // junctions, symbolic links, mounted folders
    QzString fullPath;            // listed directory + "\" + name, UTF-8
    // Free for the walkers' own use; the listing leaves them alone.
    int32_t walkTag = 0;       // a caller's mark, e.g. the pass that queued the entry
    int32_t anomalyFlags = 0;  // set by the path filters
    int32_t linkCount = 1;     // hard links to the file, when someone asks

    int64_t TotalSize() const { return size + extraSize; }
    // The entry's own name: what follows the last separator of fullPath.
    const char* Name() const;
};

// Owns its records. Every slot up to the capacity holds a record, reused by
// the next listing, so a list kept across a walk allocates only when it meets
// a directory larger than any before.
class QzFileInfoList {
public:
    static constexpr int32_t kInitialCapacity = 5;

    QzFileInfoList();
    QzFileInfoList(const QzFileInfoList&) = delete;
    QzFileInfoList& operator=(const QzFileInfoList&) = delete;
    ~QzFileInfoList();

    int32_t Count() const { return count_; }
    int32_t Capacity() const { return capacity_; }
    QzFileInfo* At(int32_t i) const { return items_[i]; }
    void Reset() { count_ = 0; }

    // The record for index Count(), growing the list when needed; null (with
    // the list emptied) when memory runs out.
    QzFileInfo* Next();
    // Removes entry i keeping the order of the others; its record moves to the end.
    void RemoveAt(int32_t i);

    // The capacity chosen to hold index i from the current capacity.
    static int64_t GrownCapacity(int64_t i, int64_t capacity);

private:
    bool Grow(int64_t index);

    QzFileInfo** items_ = nullptr;
    int32_t count_ = 0;
    int32_t capacity_ = 0;
};
