// What is wrong with a host's settings, said before anything uses them.
//
// Each yields the reason, a sentence without any password in it, or nothing. Files are looked at;
// nothing is sent.
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
