// Checks a host's settings before anything uses them.
//
// Each function yields a sentence with the reason why a setting cannot be used, without a password
// in it, or nothing. Files are examined; nothing is sent.
//
// Threads: every function may be called from any thread.
#pragma once

#include <optional>
#include <string>

namespace qx {

std::optional<std::string> faultOfStoreEndpoint(const std::string& address);
std::optional<std::string> faultOfCaFile(const std::string& path);
std::optional<std::string> faultOfProxy(const std::string& address);
std::optional<std::string> faultOfDocumentsDirectory(const std::optional<std::string>& directory);
std::optional<std::string> faultOfReachabilityHost(const std::string& host);

}  // namespace qx
