// Runs the input as a program of QzString operations next to a std::string
// model and compares the two after every step; then round-trips slices of the
// input through UTF-16 and through hexadecimal.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QzString.h"
#include "QzUtf16String.h"
#include "QzUtil.h"

namespace {

void Check(bool ok, const char* what, long long a = 0, long long b = 0) {
    if (ok) return;
    std::fprintf(stderr, "INVARIANT BROKEN: %s (%lld, %lld)\n", what, a, b);
    std::abort();
}

std::string_view View(const QzString& s) {
    return {s.c_str(), static_cast<size_t>(s.Length())};
}

void CheckSame(const QzString& s, const std::string& model, const char* step) {
    Check(s.Length() == static_cast<int32_t>(model.size()), step, s.Length(),
          static_cast<long long>(model.size()));
    Check(View(s) == model, step);
    Check(s.c_str()[s.Length()] == '\0', "not zero-terminated after", s.Length());
    if (s.Capacity() > 0)
        Check(s.Capacity() > s.Length(), "capacity does not cover the terminator", s.Capacity());
}

std::string Lower(std::string s) {
    for (char& c : s)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return s;
}

int Sign(int v) {
    return (v > 0) - (v < 0);
}

int32_t ModelFind(const std::string& hay, const std::string& needle, int32_t from) {
    const size_t start = from < 0 ? 0 : static_cast<size_t>(from);
    const size_t p = hay.find(needle, start);
    return p == std::string::npos ? -1 : static_cast<int32_t>(p);
}

std::string CStrPrefix(const std::string& s) {
    return std::string(s.c_str());
}

// Strict UTF-8 by the table of well-formed byte sequences: no overlong
// forms, no surrogates, nothing above U+10FFFF. Per lead byte range: how many
// bytes follow, and the range of the first of them (the rest are 80..BF).
bool ModelValidUtf8(std::string_view s) {
    struct Lead {
        unsigned char from, to, follow, lo, hi;
    };
    static constexpr Lead kLeads[] = {
        {0x00, 0x7F, 0, 0, 0},       {0xC2, 0xDF, 1, 0x80, 0xBF}, {0xE0, 0xE0, 2, 0xA0, 0xBF},
        {0xE1, 0xEC, 2, 0x80, 0xBF}, {0xED, 0xED, 2, 0x80, 0x9F}, {0xEE, 0xEF, 2, 0x80, 0xBF},
        {0xF0, 0xF0, 3, 0x90, 0xBF}, {0xF1, 0xF3, 3, 0x80, 0xBF}, {0xF4, 0xF4, 3, 0x80, 0x8F}};
    const auto* u = reinterpret_cast<const unsigned char*>(s.data());
    for (size_t i = 0; i < s.size();) {
        const Lead* l = std::find_if(std::begin(kLeads), std::end(kLeads),
                                     [c = u[i]](const Lead& x) { return c >= x.from && c <= x.to; });
        if (l == std::end(kLeads) || (l->follow > 0 && i + l->follow >= s.size()))
            return false;  // or cut short
        for (size_t j = 1; j <= l->follow; ++j)
            if (u[i + j] < (j == 1 ? l->lo : 0x80) || u[i + j] > (j == 1 ? l->hi : 0xBF)) return false;
        i += l->follow + 1u;
    }
    return true;
}

// Every high surrogate followed by a low one, no low surrogate on its own.
bool ModelValidUtf16(const std::vector<char16_t>& w) {
    auto low = [&](size_t i) { return i < w.size() && w[i] >= 0xDC00 && w[i] <= 0xDFFF; };
    for (size_t i = 0; i < w.size(); ++i)
        if (low(i) || (w[i] >= 0xD800 && w[i] <= 0xDBFF && !low(++i))) return false;
    return true;
}

// Self-appends double the string; past this size they are skipped.
constexpr size_t kMaxModel = 1 << 12;

void StringProgram(FuzzedDataProvider& fdp) {
    QzString s;
    std::string model;
    const int steps = fdp.ConsumeIntegralInRange<int>(0, 64);
    for (int step = 0; step < steps && fdp.remaining_bytes() > 0; ++step) {
        const int op = fdp.ConsumeIntegralInRange<int>(0, 20);
        switch (op) {
            case 0:    // Append with a length: every byte, NULs included
            case 1: {  // Append a C string: up to the first NUL
                const std::string t = fdp.ConsumeRandomLengthString(80);
                Check(op == 0 ? s.Append(t.data(), static_cast<int32_t>(t.size())) : s.Append(t.c_str()),
                      "Append failed", op);
                model += op == 0 ? t : CStrPrefix(t);
                break;
            }
            case 2: {
                const char c = fdp.ConsumeIntegral<char>();
                Check(s.AppendChar(c), "AppendChar failed");
                model.push_back(c);
                break;
            }
            case 3:
            case 4:
            case 5: {  // decimal, padded decimal or hexadecimal; widths beyond 64 are cut to 64
                const int64_t v = fdp.ConsumeIntegral<int64_t>();
                const int w = op == 3 ? 0 : fdp.ConsumeIntegralInRange<int>(0, 80);
                char buf[128];
                Check(op == 3   ? s.AppendInt(v)
                      : op == 4 ? s.AppendPaddedInt(v, w)
                                : s.AppendPaddedHex(v, w),
                      "a number append failed", op);
                if (op != 5)
                    std::snprintf(buf, sizeof buf, "%0*lld", std::min(w, 64), static_cast<long long>(v));
                else
                    std::snprintf(buf, sizeof buf, "%0*llx", std::min(w, 64),
                                  static_cast<unsigned long long>(v));
                model += buf;
                break;
            }
            case 6: {  // Set with a length, or up to the first NUL
                const std::string t = fdp.ConsumeRandomLengthString(80);
                const bool withLength = fdp.ConsumeBool();
                Check(withLength ? s.Set(t.data(), static_cast<int32_t>(t.size())) : s.Set(t.c_str()),
                      "Set failed");
                model = withLength ? t : CStrPrefix(t);
                break;
            }
            case 7: {
                const int32_t n =
                    fdp.ConsumeIntegralInRange<int32_t>(0, static_cast<int32_t>(model.size()) + 3);
                s.Truncate(n);
                if (static_cast<size_t>(n) < model.size()) model.resize(static_cast<size_t>(n));
                break;
            }
            case 8:
            case 9: {
                const bool ignoreCase = op == 9;
                std::string needle = CStrPrefix(fdp.ConsumeRandomLengthString(6));
                if (fdp.ConsumeBool() && !model.empty()) {  // a needle that is there
                    const size_t at = fdp.ConsumeIntegralInRange<size_t>(0, model.size() - 1);
                    needle = CStrPrefix(model.substr(at, fdp.ConsumeIntegralInRange<size_t>(0, 5)));
                }
                const int32_t from =
                    fdp.ConsumeIntegralInRange<int32_t>(-3, static_cast<int32_t>(model.size()) + 3);
                const int32_t got =
                    ignoreCase ? s.FindIgnoreCase(needle.c_str(), from) : s.Find(needle.c_str(), from);
                const int32_t want =
                    ModelFind(ignoreCase ? Lower(model) : model, ignoreCase ? Lower(needle) : needle, from);
                Check(got == want, ignoreCase ? "FindIgnoreCase differs" : "Find differs", got, want);
                Check(s.Contains(needle.c_str()) == (ModelFind(model, needle, 0) >= 0), "Contains differs");
                break;
            }
            case 10: {
                std::string t = CStrPrefix(fdp.ConsumeRandomLengthString(10));
                if (fdp.ConsumeBool()) t = CStrPrefix(model.substr(0, std::min(model.size(), t.size())));
                const std::string tl = Lower(t), ml = Lower(model);
                Check(s.StartsWith(t.c_str()) == model.starts_with(t), "StartsWith differs");
                Check(s.EndsWith(t.c_str()) == model.ends_with(t), "EndsWith differs");
                Check(s.StartsWithIgnoreCase(t.c_str()) == ml.starts_with(tl),
                      "StartsWithIgnoreCase differs");
                Check(s.EndsWithIgnoreCase(t.c_str()) == ml.ends_with(tl), "EndsWithIgnoreCase differs");
                break;
            }
            case 11: {
                std::string t = fdp.ConsumeRandomLengthString(20);
                if (fdp.ConsumeBool()) t = model.substr(0, std::min(model.size(), t.size()));
                const QzString other(t.data(), static_cast<int32_t>(t.size()));
                Check(Sign(s.Compare(other)) == Sign(model.compare(t)), "Compare differs");
                Check(Sign(s.CompareIgnoreCase(other)) == Sign(Lower(model).compare(Lower(t))),
                      "CompareIgnoreCase differs");
                Check(s.Equals(other) == (model == t), "Equals differs");
                Check(s.Equals(t.c_str()) == (model == CStrPrefix(t)), "Equals(text) differs");
                Check(s.EqualsIgnoreCase(t.c_str()) == (Lower(model) == Lower(CStrPrefix(t))),
                      "EqualsIgnoreCase differs");
                break;
            }
            case 12: {  // small Reserve: room afterwards, content untouched
                const int32_t n = fdp.ConsumeIntegralInRange<int32_t>(0, 5000);
                Check(s.Reserve(n, fdp.ConsumeBool()), "a small Reserve failed", n);
                Check(s.Capacity() >= n, "Reserve left too little room", s.Capacity(), n);
                break;
            }
            case 13: {  // impossible Reserve: refused, nothing changes
                static const int32_t kHuge[] = {QzString::kMaxCapacity - 5, QzString::kMaxCapacity,
                                                INT32_MAX};
                const int32_t n = kHuge[fdp.ConsumeIntegralInRange<int>(0, 2)];
                const int32_t cap = s.Capacity();
                Check(!s.Reserve(n, fdp.ConsumeBool()), "a huge Reserve succeeded", n);
                Check(s.Capacity() == cap, "a refused Reserve changed the capacity", s.Capacity(), cap);
                break;
            }
            case 14:
                s.Clear();
                model.clear();
                break;
            case 15:
            case 16: {  // appending ourselves; appending or setting a slice of ourselves
                if (model.size() > kMaxModel) break;  // doubling would soon exhaust memory
                if (op == 15 && (model.empty() || fdp.ConsumeBool())) {
                    Check(s.Append(s), "Append(self) failed");
                    model += model;
                    break;
                }
                if (model.empty()) break;
                // Slices reaching past the text, into unwritten bytes or past
                // the buffer, are refused and change nothing.
                const size_t at = fdp.ConsumeIntegralInRange<size_t>(0, model.size() - 1);
                const size_t n = fdp.ConsumeIntegralInRange<size_t>(0, model.size() - at + 40);
                const bool fits = at + n <= model.size();
                const auto len = static_cast<int32_t>(n);
                Check((op == 15 ? s.Append(s.c_str() + at, len) : s.Set(s.c_str() + at, len)) == fits,
                      "own slice accepted/refused wrongly", static_cast<long long>(n), fits);
                if (fits) model = op == 15 ? model + model.substr(at, n) : model.substr(at, n);
                break;
            }
            case 17: {  // copies and moves keep the value and leave the source usable
                QzString copy(s);
                CheckSame(copy, model, "copy");
                QzString moved(std::move(copy));
                CheckSame(moved, model, "move");
                CheckSame(copy, "", "moved-from");  // the move constructor leaves the source empty
                copy = moved;
                s = std::move(moved);
                CheckSame(copy, model, "copy assignment");
                break;
            }
            case 18: {
                const std::string t = CStrPrefix(fdp.ConsumeRandomLengthString(20));
                const int64_t v = fdp.ConsumeIntegral<int32_t>();
                QzString cat = QzCat(s, t.c_str(), static_cast<long long>(v), '|');
                CheckSame(cat, model + t + std::to_string(v) + "|", "QzCat");
                break;
            }
            case 19: {
                const int32_t n = fdp.ConsumeIntegralInRange<int32_t>(-5, -1);
                Check(!s.Append("x", n), "Append with a negative length succeeded", n);
                Check(!s.Set("x", n), "Set with a negative length succeeded", n);
                break;
            }
            case 20: {  // text written through Data() after a Reserve, then SetLength
                const std::string t = fdp.ConsumeRandomLengthString(40);
                const int32_t len = s.Length();
                const auto n = static_cast<int32_t>(t.size());
                Check(s.Reserve(len + n + 1), "Reserve before writing through Data() failed");
                std::memcpy(s.Data() + len, t.data(), t.size());
                Check(s.SetLength(len + n), "SetLength within the capacity failed", len + n, s.Capacity());
                model += t;
                // Lengths without room for the terminator are refused.
                Check(!s.SetLength(s.Capacity()), "SetLength(capacity) succeeded", s.Capacity());
                Check(!s.SetLength(fdp.ConsumeIntegralInRange<int32_t>(INT32_MIN, -1)),
                      "negative SetLength succeeded");
                break;
            }
        }
        CheckSame(s, model, "after an operation");
    }
}

// The text a path converts to: an absolute path ("X:" and a separator, or a
// network path "\\server") longer than 250 bytes gets "\\?\" ("\\?\UNC\" in
// place of a network path's leading separators); a relative one never; and a
// prefixed path, given or made, has every "/" turned into "\".
std::string ModelPathForm(std::string_view bytes) {
    auto sep = [](char c) { return c == '\\' || c == '/'; };
    const bool given = bytes.substr(0, 4) == "\\\\?\\";
    const bool unc = bytes.size() >= 3 && sep(bytes[0]) && sep(bytes[1]) && bytes[2] != '?' &&
                     bytes[2] != '.' && !sep(bytes[2]);
    const bool drive = bytes.size() >= 3 && ((bytes[0] | 0x20) >= 'a' && (bytes[0] | 0x20) <= 'z') &&
                       bytes[1] == ':' && sep(bytes[2]);
    std::string out(bytes);
    if (!given && bytes.size() > 250 && (drive || unc))
        out = unc ? "\\\\?\\UNC\\" + out.substr(2) : "\\\\?\\" + out;
    else if (!given)
        return out;
    for (char& c : out)
        if (c == '/') c = '\\';
    return out;
}

void Utf16RoundTrips(std::string_view bytes) {
    const bool valid = ModelValidUtf8(bytes);
    Check(QzUtf8::IsValid(bytes.data(), static_cast<int32_t>(bytes.size())) == valid, "IsValid differs",
          valid);
    for (const bool asPath : {false, true}) {
        QzUtf16String w;
        const bool ok =
            w.ConvertUtf8QzStringToUtf16(bytes.data(), static_cast<int32_t>(bytes.size()), asPath, 4);
        Check(ok == valid, "UTF-8 accepted/refused differs from the model", ok, valid);
        if (!ok) {
            Check(w.Length() == 0, "a refused conversion left text", w.Length());
            continue;
        }
        QzString back;
        Check(QzUtf16String::ConvertQzUtf16StringToUtf8(w.Data(), w.Length(), &back),
              "UTF-16 back to UTF-8 failed");
        const std::string want = asPath ? ModelPathForm(bytes) : std::string(bytes);
        Check(View(back) == want, "UTF-8 -> UTF-16 -> UTF-8 changed the text", back.Length(),
              static_cast<long long>(want.size()));
    }
    // Arbitrary code units the other way round.
    std::vector<char16_t> units;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        units.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                              (static_cast<unsigned char>(bytes[i + 1]) << 8)));
    QzString utf8("stale");
    // An empty vector has no buffer; the converter refuses a null pointer.
    const char16_t* unitPtr = units.empty() ? u"" : units.data();
    const bool ok =
        QzUtf16String::ConvertQzUtf16StringToUtf8(unitPtr, static_cast<int32_t>(units.size()), &utf8);
    Check(ok == ModelValidUtf16(units), "UTF-16 accepted/refused differs from the model", ok);
    if (!ok) {
        Check(utf8.Length() == 0, "a refused conversion left text", utf8.Length());
        return;
    }
    Check(QzUtf8::IsValid(utf8.c_str(), utf8.Length()) && ModelValidUtf8(View(utf8)),
          "UTF-8 made is not valid");
    QzUtf16String again;
    Check(again.ConvertUtf8QzStringToUtf16(utf8, false), "UTF-8 made from UTF-16 was refused");
    Check(again.Length() == static_cast<int32_t>(units.size()) &&
              std::memcmp(again.Data(), unitPtr, units.size() * sizeof(char16_t)) == 0,
          "UTF-16 -> UTF-8 -> UTF-16 changed the units", again.Length(),
          static_cast<long long>(units.size()));
}

void HexRoundTrips(std::string_view bytes) {
    QzString hex("prefix:");
    QzUtil::AppendHexEncoded(hex, bytes.data(), static_cast<int32_t>(bytes.size()));
    Check(hex.Length() == static_cast<int32_t>(7 + 2 * bytes.size()), "hex length", hex.Length());
    const std::string_view digits = View(hex).substr(7);
    Check(digits.find_first_not_of("0123456789abcdef") == std::string_view::npos,
          "hex is not lower-case digits");
    QzString decoded("x");
    Check(QzUtil::AppendHexDecoded(decoded, digits.data(), static_cast<int32_t>(digits.size())),
          "own hex refused");
    Check(View(decoded) == "x" + std::string(bytes), "hex round trip changed the bytes");
    std::string upper(digits);
    for (char& c : upper)
        if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 32);
    QzString fromUpper;
    Check(QzUtil::AppendHexDecoded(fromUpper, upper.data(), static_cast<int32_t>(upper.size())),
          "upper hex refused");
    Check(View(fromUpper) == bytes, "upper-case hex decoded differently");

    // The input itself as hex: accepted exactly when it is pairs of hex digits.
    const bool wellFormed =
        bytes.size() % 2 == 0 && bytes.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
    QzString out("keep");
    const bool ok = QzUtil::AppendHexDecoded(out, bytes.data(), static_cast<int32_t>(bytes.size()));
    Check(ok == wellFormed, "hex accepted/refused wrongly", ok);
    if (!ok) Check(View(out) == "keep", "refused hex changed the output");
    if (ok) Check(out.Length() == static_cast<int32_t>(4 + bytes.size() / 2), "decoded length", out.Length());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024) return 0;
    const std::string_view all(reinterpret_cast<const char*>(data), size);
    Utf16RoundTrips(all);
    HexRoundTrips(all);
    FuzzedDataProvider fdp(data, size);
    StringProgram(fdp);
    return 0;
}
