// Digest names as a person types them, and digest lines in the form of sha256sum.
#pragma once

#include "Progress.h"

#include <zq/crypto/MessageDigest.h>

#include <string>

namespace zqtool {

// The value of a digest name, number or "PBKDF2;NAME;COUNT" text, as algorithmFromName reads
// it; but a name that the library does not know is a UsageError rather than SHA-256, and an
// algorithm that this OpenSSL lacks is a Failure.
int digestAlgorithm(const std::string& name);

// The digest as lower-case hex (or Base64), two spaces and the file name: the line that
// sha256sum writes, escaped as it escapes names with a backslash or a line break.
std::string digestLine(zq::crypto::MessageDigest& digest, const std::string& fileName, bool base64);

// Feeds all of `file` ("-": standard input) to `digest`, with a progress bar as `progress`
// allows. Throws Failure for a file that can't be read.
void feedFile(zq::crypto::MessageDigest& digest, const std::string& file, ProgressMode progress);

}  // namespace zqtool
