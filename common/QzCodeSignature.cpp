#include "QzCodeSignature.h"

#include <cstddef>

#include "QzLog.h"
#include "QzOsInstall.h"

namespace QzCodeSignature {

namespace {
// Byte i is the name's byte i XOR (0x5a + 7 * i).
constexpr unsigned char kEncodedSigner[] = {0x11, 0x0e, 0x1a, 0x19, 0x17, 0x09, 0xed, 0xe5,
                                            0xf7, 0xb5, 0x80, 0xee, 0xc0, 0xd6, 0x92};
}  // namespace

QzString ExpectedSignerName() {
    QzString name;
    for (std::size_t i = 0; i < sizeof kEncodedSigner; ++i)
        name.AppendChar(static_cast<char>(kEncodedSigner[i] ^ static_cast<unsigned char>(0x5a + 7 * i)));
    return name;
}

bool HasValidCodeSignature(const QzString& path, QzString* detailRet) {
    QzOs::SignatureCheck check;
    const uint32_t err = QzOs::VerifyFileSignature(path.c_str(), &check);
    bool valid = false;
    if (err != 0) {
        *detailRet = QzCat("could not verify, error=", static_cast<long long>(err), ", ", check.detail);
    } else if (!check.verified) {
        *detailRet = QzCat("no valid trusted signature, ", check.detail);
    } else if (!check.signerName.Equals(ExpectedSignerName())) {
        *detailRet = QzCat("signed by someone else, signer=\"", check.signerName, "\", ", check.detail);
    } else {
        *detailRet = QzCat("valid signature of the publisher, ", check.detail);
        valid = true;
    }
    QzLog::WriteLine(QzCat("QzCodeSignature::HasValidCodeSignature ", valid ? "PASS" : "FAIL", " for ", path,
                           ": ", *detailRet));
    return valid;
}

}  // namespace QzCodeSignature
