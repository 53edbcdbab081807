#include "QzFileInfo.h"

#include <cstdlib>
#include <new>

const char* QzFileInfo::Name() const {
    const char* p = fullPath.c_str();
    const char* name = p;
    for (; *p; ++p)
        if (*p == '\\' || *p == '/') name = p + 1;
    return name;
}

QzFileInfoList::QzFileInfoList() {
    Grow(0);
}

QzFileInfoList::~QzFileInfoList() {
    for (int32_t i = 0; i < capacity_; ++i) delete items_[i];
    std::free(items_);
}

int64_t QzFileInfoList::GrownCapacity(int64_t i, int64_t capacity) {
    if (i < kInitialCapacity) return kInitialCapacity;
    // Steps grow with the list: small directories stay small, huge ones
    // reallocate rarely.
    const int64_t step = capacity < 4000 ? 50 : capacity < 110000 ? 100000 : 5000000;
    return i + (step - ((i - kInitialCapacity) % step));
}

bool QzFileInfoList::Grow(int64_t index) {
    const int64_t want = GrownCapacity(index, capacity_);
    if (want > INT32_MAX / 2) {
        count_ = 0;
        return false;
    }
    auto** items =
        static_cast<QzFileInfo**>(std::realloc(items_, static_cast<size_t>(want) * sizeof(QzFileInfo*)));
    if (!items) {
        count_ = 0;
        return false;
    }
    items_ = items;
    for (int64_t k = capacity_; k < want; ++k) {
        items_[k] = new (std::nothrow) QzFileInfo;
        if (!items_[k]) {
            capacity_ = static_cast<int32_t>(k);
            count_ = 0;
            return false;
        }
    }
    capacity_ = static_cast<int32_t>(want);
    return true;
}

QzFileInfo* QzFileInfoList::Next() {
    if (count_ >= capacity_ && !Grow(count_)) return nullptr;
    return items_[count_++];
}

void QzFileInfoList::RemoveAt(int32_t i) {
    if (i < 0 || i >= count_) return;
    // Slots past the count are all spare, so the freed record only has to
    // move past the last entry.
    QzFileInfo* freed = items_[i];
    for (int32_t k = i; k + 1 < count_; ++k) items_[k] = items_[k + 1];
    items_[count_ - 1] = freed;
    --count_;
}
