// Registry enumeration on Windows: the subkeys of an HKLM key with their
// string values, in either registry view.
#include <windows.h>

#include <cstring>
#include <cwchar>
#include <vector>

#include "QzOs.h"
#include "QzUtf16String.h"

namespace QzOs {

namespace {

// UTF-16 from the registry to UTF-8; an unpaired surrogate becomes '?' so
// that one odd name never hides the rest of the entry.
void FromWide(const wchar_t* w, size_t units, QzString* out) {
    std::vector<char16_t> u(w, w + units);
    if (QzUtf16String::ConvertQzUtf16StringToUtf8(u.data(), static_cast<int32_t>(u.size()), out)) return;
    for (size_t i = 0; i < u.size(); ++i) {
        const bool high = u[i] >= 0xD800 && u[i] <= 0xDBFF;
        const bool low = u[i] >= 0xDC00 && u[i] <= 0xDFFF;
        if (high && i + 1 < u.size() && u[i + 1] >= 0xDC00 && u[i + 1] <= 0xDFFF) {
            ++i;
        } else if (high || low) {
            u[i] = u'?';
        }
    }
    QzUtf16String::ConvertQzUtf16StringToUtf8(u.data(), static_cast<int32_t>(u.size()), out);
}

// The string values of one open key.
void ReadStrings(HKEY key, std::vector<std::pair<QzString, QzString>>* stringsRet) {
    DWORD maxName = 0, maxData = 0;
    if (::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &maxName,
                           &maxData, nullptr, nullptr) != ERROR_SUCCESS)
        return;
    std::vector<wchar_t> name(maxName + 2);
    std::vector<BYTE> data(maxData + 2 * sizeof(wchar_t));
    int regrows = 0;
    for (DWORD i = 0;; ++i) {
        DWORD nameLen = static_cast<DWORD>(name.size());
        DWORD dataLen = static_cast<DWORD>(data.size() - 2 * sizeof(wchar_t));
        DWORD type = 0;
        const LONG rc = ::RegEnumValueW(key, i, name.data(), &nameLen, nullptr, &type, data.data(), &dataLen);
        if (rc == ERROR_NO_MORE_ITEMS) break;
        if (rc == ERROR_MORE_DATA && regrows < 4) {
            // The value grew since the size query: read this index again with room.
            ++regrows;
            name.resize(name.size() * 2 + 64);
            data.resize(data.size() * 2 + 256);
            --i;
            continue;
        }
        if (rc != ERROR_SUCCESS) break;
        if (type != REG_SZ && type != REG_EXPAND_SZ) continue;
        // A stored string may lack its terminator, or end in an odd byte.
        std::vector<wchar_t> text(dataLen / sizeof(wchar_t) + 1, 0);
        std::memcpy(text.data(), data.data(), (text.size() - 1) * sizeof(wchar_t));
        std::pair<QzString, QzString> entry;
        FromWide(name.data(), nameLen, &entry.first);
        FromWide(text.data(), std::wcslen(text.data()), &entry.second);
        stringsRet->push_back(std::move(entry));
    }
}

}  // namespace

uint32_t ReadRegistrySubkeyStrings(const char* keyPath, RegistryView view,
                                   std::vector<RegistryKeyStrings>* keysRet) {
    keysRet->clear();
    QzUtf16String wkey;
    if (!wkey.ConvertUtf8QzStringToUtf16(keyPath, static_cast<int32_t>(std::strlen(keyPath)), false))
        return ErrNoUnicodeTranslation;
    const REGSAM viewFlag = view == RegistryView::Native64 ? KEY_WOW64_64KEY : KEY_WOW64_32KEY;
    HKEY parent = nullptr;
    LONG rc = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, reinterpret_cast<const wchar_t*>(wkey.Data()), 0,
                              KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE | viewFlag, &parent);
    if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
    wchar_t sub[256];  // registry key names are at most 255 characters
    for (DWORD i = 0;; ++i) {
        DWORD subLen = static_cast<DWORD>(sizeof sub / sizeof sub[0]);
        rc = ::RegEnumKeyExW(parent, i, sub, &subLen, nullptr, nullptr, nullptr, nullptr);
        if (rc == ERROR_NO_MORE_ITEMS) {
            rc = ERROR_SUCCESS;
            break;
        }
        if (rc != ERROR_SUCCESS) break;
        RegistryKeyStrings entry;
        FromWide(sub, subLen, &entry.keyName);
        HKEY child = nullptr;
        if (::RegOpenKeyExW(parent, sub, 0, KEY_QUERY_VALUE | viewFlag, &child) == ERROR_SUCCESS) {
            ReadStrings(child, &entry.strings);
            ::RegCloseKey(child);
        }
        keysRet->push_back(std::move(entry));
    }
    ::RegCloseKey(parent);
    return static_cast<uint32_t>(rc);
}

}  // namespace QzOs
