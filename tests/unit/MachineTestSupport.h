// Support for the marker and settings tests: a fresh log and a fresh machine
// (no data directory, no install descriptor) per test, this machine's host
// identifier and the settings file.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "QzFileLocations.h"
#include "QzLog.h"
#include "TestScratch.h"

namespace QzTest {

class MachineTest : public ::testing::Test {
protected:
    void SetUp() override {
        RemoveMachineState();
        OpenScratchLog("machinelog");
    }
    void TearDown() override {
        QzLog::Close();
        RemoveMachineState();
    }

    // The data directory, the install descriptor and the old marker folder of the system volume.
    static void RemoveMachineState() {
        std::error_code ec;
        std::filesystem::remove(HostPath(Descriptor()), ec);
        QzFile::ResetLocationCachesForTesting();  // the data directory is now the default one on C:
        std::filesystem::remove_all(HostPath(QzFile::GetDataDir()), ec);
        std::filesystem::remove_all(HostPath("C:\\.qzvol"), ec);
    }

    static QzString Descriptor() { return QzCat(QzFile::GetInstallDir(), "qzinstall.xml"); }

    // Writes the install descriptor naming this machine's host identifier.
    static void SetHostGuid(const char* hguid) {
        ASSERT_TRUE(WriteFile(Descriptor(), std::string("<qzinstall hguid=\"") + hguid + "\" />\n"));
        QzFile::ResetLocationCachesForTesting();
    }

    static void WriteSettings(const std::string& body) {
        ASSERT_TRUE(
            WriteFile(QzCat(QzFile::GetDataDir(), "qzinfo.xml"),
                      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n" + body + "</contents>\n"));
    }
    static bool Logged(const std::string& text) { return QzTest::Logged(text); }
};

}  // namespace QzTest
