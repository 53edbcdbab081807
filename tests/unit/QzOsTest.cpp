// The OS layer's Win32 error numbers and sharing, checked on real files in a
// scratch directory, so the same cases run natively on POSIX and as a Windows
// program under Wine. Reading, writing, appending from several processes,
// listing and long paths are exercised by the whole-program tests.
#include <gtest/gtest.h>

#include <string>

#include "QzOs.h"
#include "TestScratch.h"

using namespace QzOs;

namespace {

uint32_t WriteWhole(const std::string& path, OpenMode mode, const std::string& text) {
    Handle h = kInvalidHandle;
    uint32_t rc = OpenFile(path.c_str(), mode, &h);
    if (rc == 0) rc = QzOs::WriteFile(h, text.data(), static_cast<uint32_t>(text.size()));
    CloseFile(h);
    return rc;
}

std::string ReadWhole(const std::string& path) {
    Handle h = kInvalidHandle;
    if (OpenFile(path.c_str(), OpenMode::ReadShared, &h) != 0) return "<open failed>";
    std::string text;
    char buf[7];  // small on purpose: the loop must stitch several reads
    uint32_t got = 0;
    while (QzOs::ReadFile(h, buf, sizeof buf, &got) == 0 && got > 0) text.append(buf, got);
    CloseFile(h);
    return text;
}

class QzOsTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ =
            QzTest::NewScratchSubdir(::testing::UnitTest::GetInstance()->current_test_info()->name()).c_str();
        dir_.pop_back();  // the trailing backslash; P() adds it back
    }
    std::string P(const std::string& name) const { return dir_ + "\\" + name; }
    std::string dir_;
};

TEST_F(QzOsTest, ErrorNumbers) {
    Handle h = kInvalidHandle;
    EXPECT_EQ(OpenFile(P("missing.txt").c_str(), OpenMode::ReadShared, &h), ErrFileNotFound);
    EXPECT_EQ(h, kInvalidHandle);
    EXPECT_EQ(OpenFile(P("nodir\\file.txt").c_str(), OpenMode::ReadShared, &h), ErrPathNotFound);
    EXPECT_EQ(OpenFile(P("nodir\\file.txt").c_str(), OpenMode::CreateAlways, &h), ErrPathNotFound);
    FindHandle* fh = nullptr;
    FindData fd;
    EXPECT_EQ(FindFirstFile(P("nodir\\*").c_str(), &fh, &fd), ErrPathNotFound);

    ASSERT_EQ(QzOs::CreateDirectory(P("sub").c_str()), 0u);
    EXPECT_EQ(QzOs::CreateDirectory(P("sub").c_str()), ErrAlreadyExists);
    ASSERT_EQ(WriteWhole(P("sub\\f"), OpenMode::CreateNew, "f"), 0u);
    EXPECT_EQ(QzOs::RemoveDirectory(P("sub").c_str()), ErrDirNotEmpty);

    EXPECT_EQ(WriteWhole(P("sub\\f"), OpenMode::CreateNew, "again"), ErrFileExists);
    EXPECT_EQ(QzOs::DeleteFile(P("sub\\g").c_str()), ErrFileNotFound);

    // An exclusive reader keeps every other opener out until it closes.
    ASSERT_EQ(OpenFile(P("sub\\f").c_str(), OpenMode::ReadExclusive, &h), 0u);
    Handle other = kInvalidHandle;
    EXPECT_EQ(OpenFile(P("sub\\f").c_str(), OpenMode::ReadShared, &other), ErrSharingViolation);
    EXPECT_EQ(OpenFile(P("sub\\f").c_str(), OpenMode::Append, &other), ErrSharingViolation);
    CloseFile(h);
    EXPECT_EQ(ReadWhole(P("sub\\f")), "f");
}

#ifdef _WIN32
// Windows refuses CREATE_ALWAYS on a hidden file unless asked with the same
// attribute; the layer must replace it as the POSIX build does.
TEST_F(QzOsTest, CreateAlwaysReplacesHiddenFile) {
    const std::string f = P("hidden.dat");
    ASSERT_EQ(WriteWhole(f, OpenMode::CreateNew, "old"), 0u);
    ASSERT_EQ(SetFileHidden(f.c_str(), true), 0u);
    EXPECT_EQ(WriteWhole(f, OpenMode::CreateAlways, "new"), 0u);
    EXPECT_EQ(ReadWhole(f), "new");
}
#endif

}  // namespace
