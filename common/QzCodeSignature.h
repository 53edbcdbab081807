// Code-signature verification of the client's programs: a valid, trusted
// signature whose signer is the client's publisher.
#pragma once

#include "QzString.h"

namespace QzCodeSignature {

// True when the file carries a valid signature with a trusted chain and the
// signer's name equals the publisher's exactly. detailRet says why not.
bool HasValidCodeSignature(const QzString& path, QzString* detailRet);

// The publisher's name the signer must carry. It is kept encoded in the
// program so that it cannot be found or patched as plain text.
QzString ExpectedSignerName();

}  // namespace QzCodeSignature
