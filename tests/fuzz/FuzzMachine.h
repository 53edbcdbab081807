// What the file-reader fuzz targets share: a failed check that stops the run
// with the input's gist, and a scratch machine. Drive C: holds the installer's
// descriptor, which names drive T: as the data directory; both drives live in
// one private temporary directory, in memory where possible (these targets are
// built only by the POSIX fuzz preset).
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "QzString.h"
#include "QzTime.h"

namespace FuzzMachine {

inline std::string& Root() {
    static std::string root;
    return root;
}

inline void RemoveScratch() {
    std::error_code ec;
    if (!Root().empty()) std::filesystem::remove_all(Root(), ec);
}

[[noreturn]] inline void Fail(const char* what, std::string_view detail = {}) {
    std::fprintf(stderr, "INVARIANT BROKEN: %s %.*s\n", what, static_cast<int>(detail.size()), detail.data());
    RemoveScratch();  // abort() skips the atexit handler
    std::abort();
}

inline void Check(bool ok, const char* what, std::string_view detail = {}) {
    if (!ok) Fail(what, detail);
}

inline std::string_view View(const QzString& s) {
    return {s.c_str(), static_cast<size_t>(s.Length())};
}

inline bool IsNameChar(unsigned char c) {
    return std::isalnum(c) || c == '_' || c == '-' || c == ':' || c == '.';
}

// The documented attribute reading: the value between the quotes after the
// first `name="` that is not the tail of a longer name; nothing when that
// value's closing quote is missing. Only the text up to the first NUL counts.
inline std::optional<std::string_view> Attr(std::string_view s, std::string_view name) {
    s = s.substr(0, s.find('\0'));
    const std::string key = std::string(name) + "=\"";
    for (size_t p = s.find(key); p != std::string_view::npos; p = s.find(key, p + 1)) {
        if (p > 0 && IsNameChar(static_cast<unsigned char>(s[p - 1]))) continue;
        const size_t v = p + key.size();
        const size_t q = s.find('"', v);
        if (q == std::string_view::npos) return std::nullopt;
        return s.substr(v, q - v);
    }
    return std::nullopt;
}

// The host path of a file on drive T: given relative to it with "/".
inline std::string OnT(const std::string& rel) {
    return Root() + "/t/" + rel;
}

inline void WriteT(const std::string& rel, std::string_view text) {
    const std::string path = OnT(rel);
    std::ofstream f(path, std::ios::binary);
    if (!f.is_open()) {  // the folder is made once, not checked for every input
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        f.open(path, std::ios::binary);
    }
    f.write(text.data(), static_cast<std::streamsize>(text.size()));
}

// Takes a fuzz input of at most 64 KiB as the file at `rel` on drive T:;
// false for a larger input, which the target skips.
inline bool PlaceInput(const uint8_t* data, size_t size, const std::string& rel, std::string_view* inRet) {
    if (size > (1u << 16)) return false;
    *inRet = std::string_view(reinterpret_cast<const char*>(data), size);
    WriteT(rel, *inRet);
    return true;
}

inline std::string ReadT(const std::string& rel) {
    std::ifstream f(OnT(rel), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// Builds the machine once, before the first input: C: with the descriptor,
// T: as the data directory, and pauses that return at once.
inline void SetUp() {
    char inMemory[] = "/dev/shm/qzfuzz.XXXXXX";
    char onDisk[] = "/tmp/qzfuzz.XXXXXX";
    const char* dir = ::mkdtemp(inMemory);
    if (!dir) dir = ::mkdtemp(onDisk);
    if (!dir) {
        std::perror("mkdtemp");
        std::abort();
    }
    Root() = dir;
    const std::string install = Root() + "/c/Program Files/Korvatine";
    std::filesystem::create_directories(install);
    std::filesystem::create_directories(Root() + "/t");
    std::ofstream(install + "/qzinstall.xml")
        << "<qzinstall datadir=\"T:\\\" hguid=\"0123456789abcdef01234567\" />\n";
    ::setenv("QZ_DRIVES", ("C=" + Root() + "/c;T=" + Root() + "/t").c_str(), 1);
    QzTime::SetSleepForTesting([](uint32_t) {});
    std::atexit(RemoveScratch);
}

}  // namespace FuzzMachine

// Every target of a file reader starts from the scratch machine (each target
// is one translation unit, so this header defines the hook once per target).
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzMachine::SetUp();
    return 0;
}
