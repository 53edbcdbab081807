#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "QzOs.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

constexpr const char* kUninstall = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";

const QzOs::RegistryKeyStrings* FindKey(const std::vector<QzOs::RegistryKeyStrings>& keys,
                                        const std::string& name) {
    for (const auto& k : keys)
        if (name == k.keyName.c_str()) return &k;
    return nullptr;
}

}  // namespace

#ifdef _WIN32

namespace {

// Creates HKLM\<uninstall>\<name> in one view with the given string values.
bool CreateTestKey(const std::wstring& name, REGSAM view,
                   const std::vector<std::pair<std::wstring, std::wstring>>& values) {
    const std::wstring path = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" + name;
    HKEY key = nullptr;
    if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE | view, nullptr,
                          &key, nullptr) != ERROR_SUCCESS)
        return false;
    for (const auto& [n, v] : values)
        ::RegSetValueExW(key, n.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(v.c_str()),
                         static_cast<DWORD>((v.size() + 1) * sizeof(wchar_t)));
    const DWORD one = 1;
    ::RegSetValueExW(key, L"NoModify", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), sizeof one);
    ::RegCloseKey(key);
    return true;
}

void DeleteTestKey(const std::wstring& name, REGSAM view) {
    const std::wstring path = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" + name;
    ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), view, 0);
}

}  // namespace

TEST(QzRegistryEnum, ListsEachViewsUninstallEntriesWithTheirStrings) {
    const std::wstring suffix = std::to_wstring(::GetCurrentProcessId());
    const std::wstring native = L"QzTestNative" + suffix, wow = L"QzTestWow" + suffix;
    ASSERT_TRUE(CreateTestKey(
        native, KEY_WOW64_64KEY,
        {{L"DisplayName", L"Caf\u00e9 Tool"}, {L"DisplayVersion", L"1.2"}, {L"Publisher", L"Acme"}}));
    ASSERT_TRUE(CreateTestKey(wow, KEY_WOW64_32KEY, {{L"DisplayName", L"Old Tool"}}));

    std::vector<QzOs::RegistryKeyStrings> keys64, keys32;
    EXPECT_EQ(QzOs::ReadRegistrySubkeyStrings(kUninstall, QzOs::RegistryView::Native64, &keys64), 0u);
    EXPECT_EQ(QzOs::ReadRegistrySubkeyStrings(kUninstall, QzOs::RegistryView::Wow32, &keys32), 0u);
    const std::string nativeName = "QzTestNative" + std::to_string(::GetCurrentProcessId());
    const std::string wowName = "QzTestWow" + std::to_string(::GetCurrentProcessId());

    const QzOs::RegistryKeyStrings* k = FindKey(keys64, nativeName);
    ASSERT_NE(k, nullptr);
    ASSERT_EQ(k->strings.size(), 3u);  // the DWORD is left out
    std::vector<std::string> seen;
    for (const auto& [n, v] : k->strings) seen.push_back(std::string(n.c_str()) + "=" + v.c_str());
    EXPECT_NE(std::find(seen.begin(), seen.end(), "DisplayName=Caf\xc3\xa9 Tool"), seen.end());
    EXPECT_NE(std::find(seen.begin(), seen.end(), "Publisher=Acme"), seen.end());
    EXPECT_EQ(FindKey(keys32, nativeName), nullptr);
    EXPECT_NE(FindKey(keys32, wowName), nullptr);
    EXPECT_EQ(FindKey(keys64, wowName), nullptr);

    DeleteTestKey(native, KEY_WOW64_64KEY);
    DeleteTestKey(wow, KEY_WOW64_32KEY);
    std::vector<QzOs::RegistryKeyStrings> missing;
    EXPECT_EQ(QzOs::ReadRegistrySubkeyStrings("SOFTWARE\\QzNoSuchKeyAnywhere", QzOs::RegistryView::Native64,
                                              &missing),
              static_cast<uint32_t>(QzOs::ErrFileNotFound));
    EXPECT_TRUE(missing.empty());
}

#else

TEST(QzRegistryEnum, PosixHasNoRegistry) {
    std::vector<QzOs::RegistryKeyStrings> keys(1);
    EXPECT_EQ(QzOs::ReadRegistrySubkeyStrings(kUninstall, QzOs::RegistryView::Native64, &keys),
              static_cast<uint32_t>(QzOs::ErrNotSupported));
    EXPECT_TRUE(keys.empty());
    EXPECT_EQ(FindKey(keys, "x"), nullptr);
}

#endif
