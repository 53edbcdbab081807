// Whole-file reading with its failure names, the attribute splicer, the
// atomic whole-file write and the patient read of a held file. The XML
// cutters are checked against their input by their fuzz target; the growing
// ".future" files by the whole-program crash-point tests.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "QzFile.h"
#include "QzFileRead.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzOs.h"
#include "QzTime.h"
#include "TestScratch.h"

using QzTest::NewScratchSubdir;

namespace {
std::string ReadError(const char* fileName, bool passCount = true) {
    char* buf = nullptr;
    int64_t n = 0;
    QzString err;
    EXPECT_FALSE(QzFile::ReadEntireFileIntoNewBuf(fileName, &buf, passCount ? &n : nullptr, &err));
    EXPECT_EQ(buf, nullptr);
    return err.c_str();
}

}  // namespace

TEST(QzFileRead, ReadsWholeFilesAndNamesEachFailure) {
    const QzString dir = NewScratchSubdir("read");
    const QzString file = QzCat(dir, "data.bin");
    ASSERT_TRUE(QzTest::WriteFile(file, std::string("ab\0cd", 5)));
    char* buf = nullptr;
    int64_t n = 0;
    QzString err;
    ASSERT_TRUE(QzFile::ReadEntireFileIntoNewBuf(file.c_str(), &buf, &n, &err));
    EXPECT_EQ(n, 5);
    EXPECT_EQ(std::string(buf, 5), std::string("ab\0cd", 5));
    EXPECT_EQ(buf[5], '\0');
    std::free(buf);

    EXPECT_EQ(ReadError(file.c_str(), false), "bad_argument: numBytesReturned was NULL");
    EXPECT_EQ(ReadError(nullptr), "bad_argument: fileName was NULL");
    EXPECT_EQ(ReadError(QzCat(dir, "missing.txt").c_str()), "file_does_not_exist");
    EXPECT_EQ(ReadError(QzCat(dir, "no\\such\\dir.txt").c_str()), "file_does_not_exist");
    // A directory cannot be opened as a file.
    EXPECT_EQ(ReadError(dir.c_str()), "error_win32_CreateF_failed_5_ERROR_ACCESS_DENIED");

    // Another process holding the file without sharing.
    QzOs::Handle h;
    ASSERT_EQ(QzOs::OpenFile(file.c_str(), QzOs::OpenMode::ReadExclusive, &h), QzOs::ErrSuccess);
    EXPECT_EQ(ReadError(file.c_str()), "Another_Process_Has_File_Open_");
    QzOs::CloseFile(h);

    // Over one gigabyte is refused before anything is allocated.
    const QzString big = QzCat(dir, "big.dat");
    ASSERT_TRUE(QzTest::WriteFile(big, ""));
    std::filesystem::resize_file(QzTest::HostPath(big), QzFile::kMaxWholeFileBytes + 1);
    EXPECT_EQ(ReadError(big.c_str()), "error_file_is_larger_than_one_gigabyte");
    std::filesystem::resize_file(QzTest::HostPath(big), 0);
}

TEST(QzFileXml, SplicerChangesExactlyWhatTheReaderReads) {
    QzString s("<qzvolume associated_hguid=\"a\" hguid=\"b\" x=\"&amp;\" />");
    ASSERT_TRUE(QzFile::SetUniqueStrAttrInXmlSnippet(&s, "hguid", QzString("C & <D>")));
    EXPECT_STREQ(s.c_str(), "<qzvolume associated_hguid=\"a\" hguid=\"C &amp; &lt;D&gt;\" x=\"&amp;\" />");
    EXPECT_FALSE(QzFile::SetUniqueStrAttrInXmlSnippet(&s, "guid", QzString("z")));
    // Limited to a range: the second element's value changes, the first stays.
    QzString two("<a v=\"1\" />\n<a v=\"2\" />\n");
    ASSERT_TRUE(QzFile::SetUniqueStrAttrInXmlText(&two, 12, -1, "v", QzString("22")));
    EXPECT_STREQ(two.c_str(), "<a v=\"1\" />\n<a v=\"22\" />\n");
    QzString out;  // an unterminated comment is logged by the rule parser's test
    EXPECT_TRUE(QzFile::RemoveXmlComments(QzString("a<!-- x -->b"), &out, nullptr));
    EXPECT_STREQ(out.c_str(), "ab");
}

TEST(QzFileWrite, WholeFileReplacesInOneStepOrLeavesTheTargetAsItWas) {
    QzTest::CountedPauses counted;
    const QzString dir = NewScratchSubdir("write");
    const QzString target = QzCat(dir, "list.dat");
    ASSERT_TRUE(QzTest::WriteFile(target, "old"));
    QzFile::ReplacePolicy keepTime;
    keepTime.lastWriteTime = 130000000000000000LL;  // 2012-12-15, as a copy keeps its original's
    ASSERT_TRUE(QzFile::WriteFileAtomically(target, QzString("new"), keepTime));
    EXPECT_EQ(QzTest::ReadFile(target), "new");
    EXPECT_EQ(QzFile::GetFileLastModMillis(target.c_str()),
              QzTime::FileTimeToGmtMillis(130000000000000000LL));
    EXPECT_FALSE(QzFile::PathExists(QzCat(target, ".tmp").c_str()));

    // The temporary name is taken by a folder: the write fails, nothing moves.
    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(QzCat(target, ".qztmp").c_str()));
    QzFile::ReplacePolicy policy;
    policy.tmpSuffix = ".qztmp";
    policy.writeAttempts = 3;
    QzFile::ReplaceResult r;
    EXPECT_FALSE(QzFile::WriteFileAtomically(target, QzString("newer"), policy, &r));
    EXPECT_FALSE(r.written);
    EXPECT_EQ(r.moveAttempts, 0);
    EXPECT_EQ(r.writeAttempts, 3);
    EXPECT_EQ(QzTest::CountedPauses::pauses, 2);
    EXPECT_EQ(QzTest::ReadFile(target), "new");

    // A source that does not exist: ten moves, nine pauses between them.
    QzTest::CountedPauses::pauses = 0;
    EXPECT_FALSE(QzFile::AtomicMoveFileWithRetry(QzCat(dir, "none").c_str(), target.c_str()));
    EXPECT_EQ(QzTest::CountedPauses::pauses, 9);
    EXPECT_EQ(QzTest::ReadFile(target), "new");
}

TEST(QzFileRead, PatientReadTellsMissingHeldAndRead) {
    QzTest::CountedPauses counted;
    const QzString path = QzCat(NewScratchSubdir("patient"), "qzvolumes.xml");
    QzString text, err;
    EXPECT_EQ(QzFile::ReadFilePatiently(path.c_str(), &text), QzFile::ReadStatus::Missing);
    EXPECT_EQ(QzFile::ReadFilePatiently(QzCat(path, "\\sub\\x").c_str(), &text), QzFile::ReadStatus::Missing);
    ASSERT_TRUE(QzTest::WriteFile(path, "<contents />"));
    static QzOs::Handle held;
    ASSERT_EQ(QzOs::OpenFile(path.c_str(), QzOs::OpenMode::ReadExclusive, &held), 0u);
    EXPECT_EQ(QzFile::ReadFilePatiently(path.c_str(), &text, {}, &err), QzFile::ReadStatus::Held);
    EXPECT_STREQ(err.c_str(), "Another_Process_Has_File_Open_");
    EXPECT_EQ(QzTest::CountedPauses::pauses, 4);
    // Released while the reader waits: a later try reads it.
    QzTest::CountedPauses::pauses = 0;
    QzTest::CountedPauses::atPause = [](int n) {
        if (n == 2) QzOs::CloseFile(held);
    };
    EXPECT_EQ(QzFile::ReadFilePatiently(path.c_str(), &text), QzFile::ReadStatus::Ok);
    EXPECT_STREQ(text.c_str(), "<contents />");
}
