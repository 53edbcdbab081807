#include "TestScratch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "QzFile.h"
#include "QzLog.h"
#include "QzOs.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace QzTest {

namespace {
std::string g_hostRoot;  // POSIX: the mkdtemp directory holding c/ and t/

// UTF-8 bytes as a path; mingw would read a plain std::string in the ANSI code page.
std::filesystem::path U8Path(const std::string& s) {
    return std::filesystem::path(std::u8string_view(reinterpret_cast<const char8_t*>(s.data()), s.size()));
}

struct ScratchEnvironment : ::testing::Environment {
    void SetUp() override {
#ifndef _WIN32
        char tmpl[] = "/tmp/qzunit-XXXXXX";
        const char* dir = ::mkdtemp(tmpl);
        ASSERT_NE(dir, nullptr);
        g_hostRoot = dir;
        std::filesystem::create_directories(g_hostRoot + "/c");
        std::filesystem::create_directories(g_hostRoot + "/t");
        ::setenv("QZ_DRIVES", ("C=" + g_hostRoot + "/c;T=" + g_hostRoot + "/t").c_str(), 1);
#endif
        ScratchDir();
    }
    void TearDown() override {
        std::error_code ec;
#ifndef _WIN32
        std::filesystem::remove_all(g_hostRoot, ec);
#else
        std::filesystem::remove_all(U8Path(HostPath(ScratchDir())), ec);
#endif
    }
};

const auto* const kEnv = ::testing::AddGlobalTestEnvironment(new ScratchEnvironment);
}  // namespace

const QzString& ScratchDir() {
    static const QzString dir = [] {
#ifdef _WIN32
        const char* temp = std::getenv("TEMP");
        // Wine reuses process ids between runs: the time keeps the name fresh.
        QzString d = QzCat(temp ? temp : "C:\\Windows\\Temp", "\\qzunit-", QzOs::GetCurrentProcessId(), "-",
                           static_cast<long long>(QzOs::GetSystemTimeAsFileTime() / 10000), "\\");
        QzFile::CreateDirectoryRecursive(d.c_str());
        return d;
#else
        return QzString("T:\\");
#endif
    }();
    return dir;
}

QzString NewScratchSubdir(const char* name) {
    static std::atomic<int> counter{0};
    QzString d = QzCat(ScratchDir(), name, "-", counter.fetch_add(1), "\\");
    EXPECT_TRUE(QzFile::CreateDirectoryRecursive(d.c_str())) << d.c_str();
    return d;
}

std::string HostPath(const QzString& winPath) {
#ifdef _WIN32
    return winPath.c_str();
#else
    std::string p = winPath.c_str();
    std::string rest = p.size() >= 2 && p[1] == ':' ? p.substr(2) : p;
    for (char& c : rest)
        if (c == '\\') c = '/';
    const char drive = p.size() >= 2 && p[1] == ':' ? static_cast<char>(p[0] | 0x20) : 0;
    if (drive == 'c') return g_hostRoot + "/c" + rest;
    if (drive == 't') return g_hostRoot + "/t" + rest;
    return rest;
#endif
}

bool WriteFile(const QzString& winPath, const std::string& content) {
    const std::filesystem::path p = U8Path(HostPath(winPath));
    std::error_code ec;
    std::filesystem::create_directories(p.parent_path(), ec);
    std::ofstream f(p, std::ios::binary | std::ios::trunc);
    f << content;
    return static_cast<bool>(f);
}

std::string ReadFile(const QzString& winPath) {
    std::ifstream f(U8Path(HostPath(winPath)), std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

void OpenScratchLog(const char* name) {
    QzLog::Open(QzCat(NewScratchSubdir(name), "qzfilelist").c_str(), nullptr);
}

std::string LogText() {
    std::string all;
    for (int d = 0; d <= 31; ++d) all += ReadFile(QzLog::DayFilePath(d));
    return all;
}

std::vector<std::string> LoggedLines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream log(LogText());
    for (std::string line; std::getline(log, line);) {
        const size_t sep = line.find(" - ");
        const std::string message = sep == std::string::npos ? line : line.substr(sep + 3);
        if (message.find(text) != std::string::npos) out.push_back(message);
    }
    return out;
}

void MachineTest::RemoveMachineState() {
    std::error_code ec;
    std::filesystem::remove(HostPath(Descriptor()), ec);
    QzFile::ResetLocationCachesForTesting();  // the data directory is now the default one on C:
    std::filesystem::remove_all(HostPath(QzFile::GetDataDir()), ec);
    std::filesystem::remove_all(HostPath("C:\\.qzvol"), ec);
}

void MachineTest::SetUp() {
    RemoveMachineState();
    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(QzFile::GetDataDir().c_str()));
    OpenScratchLog("machinelog");
    now_ = QzTime::GetCurrentGmtMillis();
    QzTime::SetClockForTesting(&Clock);
}

void MachineTest::TearDown() {
    QzTime::SetClockForTesting(nullptr);
    QzLog::Close();
    RemoveMachineState();
}

void MachineTest::SetHostGuid(const char* hguid) {
    ASSERT_TRUE(WriteFile(Descriptor(), std::string("<qzinstall hguid=\"") + hguid + "\" />\n"));
    QzFile::ResetLocationCachesForTesting();
}

}  // namespace QzTest
