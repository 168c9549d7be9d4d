#include "platforms/shared/SettingsCheck.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "http/Headers.h"
#include "platform/UserInfo.h"
#include "platforms/shared/PosixFiles.h"
#include "s3/StoreAddress.h"

namespace qx {
namespace {

/// The address between quotes, without its name and password. A malformed address may have a "/" or
/// "@" in its password, so that everything up to the last "@" is removed.
std::string quotedAddress(std::string_view address) {
  return '"' + withoutUserInfo(address, "...", false) + '"';
}

std::string systemMessage(int code) {
  return std::generic_category().message(code);
}

}  // namespace

std::optional<std::string> faultOfStoreEndpoint(const std::string& address) {
  if (StoreEndpoint::parse(address)) return std::nullopt;
  const bool hasMore = StoreEndpoint::parse(originOf(address)).has_value();
  return quotedAddress(address) +
         (hasMore ? " has a path or query; a store is named by scheme, host and port alone"
                  : " is no store's address; it must be like \"https://host\" or "
                    "\"http://host:port\"");
}

std::optional<std::string> faultOfCaFile(const std::string& path) {
  const std::string name = '"' + path + '"';
  if (path.find('\0') != std::string::npos) return "the file name holds a NUL character";
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "re"),
                                                                &std::fclose);
  if (!file) return name + " cannot be read: " + systemMessage(errno);
  struct stat status {};
  if (::fstat(::fileno(file.get()), &status) == 0 && S_ISDIR(status.st_mode)) {
    return name + " is a directory; it must be a PEM file with certificates";
  }
  const std::unique_ptr<X509, decltype(&X509_free)> first(
      PEM_read_X509_AUX(file.get(), nullptr, nullptr, nullptr), X509_free);
  if (!first) return name + " holds no certificate in PEM form";
  return std::nullopt;
}

// libcurl's own parser of addresses decides, as it does when a request is sent.
std::optional<std::string> faultOfProxy(const std::string& address) {
  if (address.empty()) return std::nullopt;  // Empty means no proxy.
  if (address.find('\0') != std::string::npos) return "the address holds a NUL character";
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), curl_url_cleanup);
  if (!url || curl_url_set(url.get(), CURLUPART_URL, address.c_str(),
                           CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME) != CURLUE_OK) {
    return quotedAddress(address) + " is no proxy's address; it must be like \"http://host:port\"";
  }
  char* scheme = nullptr;
  if (curl_url_get(url.get(), CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK) return std::nullopt;
  constexpr std::array<std::string_view, 6> kSchemes = {"http",    "https",  "socks4",
                                                        "socks4a", "socks5", "socks5h"};
  const bool known = std::find(kSchemes.begin(), kSchemes.end(), scheme) != kSchemes.end();
  curl_free(scheme);
  if (!known) return quotedAddress(address) + " names no kind of proxy that is supported";
  return std::nullopt;
}

std::optional<std::string> faultOfDocumentsDirectory(const std::optional<std::string>& directory) {
  if (!directory) {
    if (defaultDocumentsDirectory()) return std::nullopt;
    return "none is given, and the user has no home directory";
  }
  if (directory->empty()) return "the name is empty";
  if (directory->find('\0') != std::string::npos) return "the name holds a NUL character";
  struct stat status {};
  if (::stat(directory->c_str(), &status) != 0) {
    // A directory that does not exist yet is made when it is needed.
    if (errno == ENOENT) return std::nullopt;
    return '"' + *directory + "\" cannot be used: " + systemMessage(errno);
  }
  if (!S_ISDIR(status.st_mode)) return '"' + *directory + "\" is no directory";
  if (::access(directory->c_str(), W_OK | X_OK) != 0) {
    return '"' + *directory + "\" cannot be written: " + systemMessage(errno);
  }
  return std::nullopt;
}

std::optional<std::string> faultOfReachabilityHost(const std::string& host) {
  in6_addr address{};
  const bool isNumeric =
      ::inet_pton(AF_INET6, host.substr(0, host.find('%')).c_str(), &address) == 1;
  const bool isPlain = !host.empty() && std::none_of(host.begin(), host.end(), [](char c) {
    return static_cast<unsigned char>(c) <= ' ' ||
           std::string_view(":/?#@[]\x7f").find(c) != std::string_view::npos;
  });
  if (isNumeric || isPlain) return std::nullopt;
  return quotedAddress(host) +
         " is no host; it must be a name or an address, without scheme or port";
}

}  // namespace qx
