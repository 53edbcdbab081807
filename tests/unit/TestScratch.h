// Support shared by the unit tests: a scratch directory in Windows form on
// both builds (on POSIX the drive letters C: and T: are mapped into a fresh
// temporary directory through QZ_DRIVES before anything else runs; on Windows
// it lies under %TEMP% and C: is the machine's own), a log to read back,
// pauses that are counted instead of waited, and a fresh machine per test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "QzFileLocations.h"
#include "QzLog.h"
#include "QzString.h"
#include "QzTime.h"

namespace QzTest {

// "T:\" on POSIX, "<TEMP>\qzunit-<pid>\" on Windows; always ends in "\".
const QzString& ScratchDir();
// A new empty directory below the scratch directory, ending in "\".
QzString NewScratchSubdir(const char* name);
// The host path for a Windows-form path (for std::filesystem in tests).
std::string HostPath(const QzString& winPath);
// Writes a file whole (creating parent directories); true on success.
bool WriteFile(const QzString& winPath, const std::string& content);
// Reads a file whole; empty when missing.
std::string ReadFile(const QzString& winPath);
// Opens the log in a new scratch folder; QzLog::Close() ends it.
void OpenScratchLog(const char* name);
// Every day file of the open log, in day order.
std::string LogText();
// The messages (text after " - ") of the log lines holding the text.
std::vector<std::string> LoggedLines(const std::string& text);
inline int LoggedCount(const std::string& text) {
    return static_cast<int>(LoggedLines(text).size());
}
inline bool Logged(const std::string& text) {
    return LogText().find(text) != std::string::npos;
}
inline std::string Str(const QzString& s) {
    return std::string(s.c_str(), static_cast<size_t>(s.Length()));
}

// Replaces the pauses between attempts for the life of the object and counts
// them; a test may act at a given pause through atPause.
struct CountedPauses {
    static inline int pauses = 0;
    static inline void (*atPause)(int) = nullptr;
    CountedPauses() {
        pauses = 0;
        atPause = nullptr;
        QzTime::SetSleepForTesting([](uint32_t) {
            if (atPause)
                atPause(++pauses);
            else
                ++pauses;
        });
    }
    ~CountedPauses() { QzTime::SetSleepForTesting(nullptr); }
};

// A fresh machine per test: no install descriptor (so the unknown host
// identifier), an empty data directory at its default place, a log in a
// scratch folder, counted pauses and a clock the test moves (it starts at the
// real time, so log lines land in today's file).
class MachineTest : public ::testing::Test {
protected:
    static inline int64_t now_ = 0;
    static int64_t Clock() { return now_; }

    void SetUp() override;
    void TearDown() override;
    static QzString Descriptor() { return QzCat(QzFile::GetInstallDir(), "qzinstall.xml"); }
    static QzString Data(const char* relative) { return QzCat(QzFile::GetDataDir(), relative); }
    static void Write(const char* relative, const std::string& text) {
        ASSERT_TRUE(WriteFile(Data(relative), text)) << relative;
    }
    // Writes the install descriptor naming this machine's host identifier.
    static void SetHostGuid(const char* hguid);
    static void WriteSettings(const std::string& body) {
        Write("qzinfo.xml",
              "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n" + body + "</contents>\n");
    }
    static bool Logged(const std::string& text) { return QzTest::Logged(text); }

    CountedPauses pauses_;

private:
    static void RemoveMachineState();
};

}  // namespace QzTest
