// The body of a multipart/form-data request (RFC 7578), as pieces that refer to the bytes of the
// parts.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/Data.h"
#include "platform/Networking.h"

namespace qx {

struct MultipartBody {
  /// The value of the Content-Type header.
  std::string contentType;
  std::vector<Data> pieces;
};

/// `boundary` must not occur in the parts. A random boundary of 128 bits does not.
MultipartBody makeMultipartBody(const std::vector<MultipartFormData::Part>& parts,
                                const std::string& boundary);
/// Makes a random boundary.
std::string makeBoundary(Random& random);

}  // namespace qx
