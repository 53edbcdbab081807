#include "QzFileRead.h"

#include "QzFile.h"
#include "QzOs.h"
#include "QzTime.h"

namespace QzFile {

const char* ReadStatusName(ReadStatus status) {
    switch (status) {
        case ReadStatus::Ok:
            return "ok";
        case ReadStatus::Missing:
            return "missing";
        case ReadStatus::Held:
            return "held";
        case ReadStatus::Malformed:
            return "malformed";
    }
    return "unknown";
}

namespace {
// Only "not found" answers mean the file is absent; any other failure to
// examine it (a held file, a denied folder, a drive that is not ready) means
// it may well be there.
bool IsAbsent(const char* path) {
    QzOs::FileAttrData d;
    const uint32_t err = QzOs::GetFileAttributesEx(path, &d);
    return err == QzOs::ErrFileNotFound || err == QzOs::ErrPathNotFound || err == QzOs::ErrInvalidName;
}
}  // namespace

ReadStatus ReadFilePatiently(const char* path, QzString* contentRet, const ReadPolicy& policy,
                             QzString* errStrRet) {
    QzString err;
    const int attempts = policy.attempts > 0 ? policy.attempts : 1;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (attempt > 0) QzTime::SleepMillis(policy.pauseMillis);
        if (path && IsAbsent(path)) {
            if (errStrRet) errStrRet->Set("file_does_not_exist");
            return ReadStatus::Missing;
        }
        if (ReadEntireFile(path, contentRet, &err)) {
            if (errStrRet) errStrRet->Clear();
            return ReadStatus::Ok;
        }
        if (policy.onFailedAttempt) policy.onFailedAttempt(attempt + 1, err);
    }
    if (contentRet) contentRet->Clear();
    if (errStrRet) *errStrRet = err;
    return ReadStatus::Held;
}

}  // namespace QzFile
