// A fixture for the registry, list-name and alert-level tests: an empty data
// directory at its default place, a log in a scratch folder, and a clock the
// test moves (it starts at the real time, so log lines land in today's file).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzLog.h"
#include "QzTime.h"
#include "TestScratch.h"

namespace QzRegistryTest {

constexpr int64_t kDay = QzTime::kMillisPerDay;

class Fixture : public ::testing::Test {
protected:
    static inline int64_t now_ = 0;
    static int64_t Clock() { return now_; }

    void SetUp() override {
        QzFile::ResetLocationCachesForTesting();
        data_ = QzFile::GetDataDir();
        RemoveData();
        ASSERT_TRUE(QzFile::CreateDirectoryRecursive(data_.c_str()));
        QzTest::OpenScratchLog("registrylog");
        now_ = QzTime::GetCurrentGmtMillis();
        QzTime::SetClockForTesting(&Clock);
    }
    void TearDown() override {
        QzTime::SetClockForTesting(nullptr);
        QzLog::Close();
        RemoveData();
    }
    void RemoveData() {
        std::error_code ec;
        std::filesystem::remove_all(QzTest::HostPath(data_), ec);
    }
    static bool Logged(const std::string& text) { return QzTest::Logged(text); }
    QzString Data(const char* relative) const { return QzCat(data_, relative); }
    void Write(const char* relative, const std::string& text) {
        ASSERT_TRUE(QzTest::WriteFile(Data(relative), text));
    }

    QzString data_;
};

}  // namespace QzRegistryTest
