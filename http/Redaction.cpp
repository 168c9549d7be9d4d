#include "http/Redaction.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <utility>

#include "platform/Hex.h"

namespace qx {
namespace {

constexpr std::string_view kMark = "...";

/// A text whose percent escapes are resolved.
struct Plain {
  std::string text;
  /// The position of each character of `text` in the original text, followed by the end of the
  /// original.
  std::vector<std::size_t> origins;
};

Plain plainOf(std::string_view text) {
  Plain plain;
  for (std::size_t i = 0; i < text.size();) {
    plain.origins.push_back(i);
    const bool isEscape = text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
                          hexValue(text[i + 2]) >= 0;
    plain.text +=
        isEscape ? static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])) : text[i];
    i += isEscape ? 3 : 1;
  }
  plain.origins.push_back(text.size());
  return plain;
}

/// The part of a base64 text that stands for `secret` when `before` bytes precede it, without the
/// characters that depend on the secret's neighbours.
std::string base64(std::string_view secret, std::size_t before, std::string_view digits) {
  std::string text;
  std::uint32_t bits = 0;
  // The first character that depends on the secret alone begins at the next multiple of six bits.
  const std::size_t skipped = (6 - before * 8 % 6) % 6;
  std::size_t count = 0;
  for (std::size_t i = 0; i < secret.size(); ++i) {
    bits = bits << 8 | static_cast<unsigned char>(secret[i]);
    count += 8;
    if (i == 0) count -= skipped;
    bits &= (1U << count) - 1;
    while (count >= 6) {
      count -= 6;
      text += digits[bits >> count & 0x3F];
    }
  }
  return text;
}

/// The forms of a secret: unchanged; with its percent escapes resolved, like those of the text; and
/// in base64 at each of three places, in either alphabet.
constexpr int kForms = 8;

std::string formOf(std::string_view secret, int form) {
  static const std::string letters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  static const std::string digits[] = {letters + "+/", letters + "-_"};
  if (form == 0) return std::string(secret);
  if (form == 1) return plainOf(secret).text;
  const auto place = static_cast<std::size_t>(form - 2);
  return base64(secret, place % 3, digits[place / 3]);
}

/// The forms of all secrets by their first bytes, so that the cost is not the length of the text
/// times the number of secrets.
class Index {
 public:
  explicit Index(const std::vector<std::string_view>& secrets) {
    // Each of the first bytes of a form comes from at most three bytes of the secret.
    constexpr std::size_t kDecisive = 3 * kShortestSecret;
    for (const std::string_view secret : secrets) {
      if (secret.size() < kShortestSecret) continue;
      for (int form = 0; form < kForms; ++form) {
        const std::string beginning = formOf(secret.substr(0, kDecisive), form);
        if (beginning.size() < kShortestSecret) continue;
        forms_[beginning.substr(0, kShortestSecret)].emplace_back(secret, form);
      }
    }
  }

  /// The number of bytes at the beginning of `text` that match a form of a secret; 0 when these are
  /// too few to recognise a secret.
  std::size_t matched(std::string_view text) const {
    if (text.size() < kShortestSecret) return 0;
    const auto found = forms_.find(std::string(text.substr(0, kShortestSecret)));
    if (found == forms_.end()) return 0;
    std::size_t longest = 0;
    for (const auto& [secret, number] : found->second) {
      const std::string form = formOf(secret, number);
      const auto differ = std::ranges::mismatch(form, text);
      longest = std::max(longest, static_cast<std::size_t>(differ.in1 - form.begin()));
    }
    return longest;
  }

 private:
  std::unordered_map<std::string, std::vector<std::pair<std::string_view, int>>> forms_;
};

}  // namespace

std::string withoutSecrets(std::string_view text, const std::vector<std::string_view>& secrets) {
  const Index index(secrets);
  const Plain plain = plainOf(text);
  std::string out;
  for (std::size_t at = 0; at < plain.text.size();) {
    std::size_t length = index.matched(std::string_view(plain.text).substr(at));
    if (length > 0) {
      out += kMark;
    } else {
      length = 1;
      out += text.substr(plain.origins[at], plain.origins[at + 1] - plain.origins[at]);
    }
    at += length;
  }
  return out;
}

SecretsInForce& SecretsInForce::ofProcess() {
  // The list is never destroyed, because a holder may outlive all other objects.
  static auto& instance = *new SecretsInForce;
  return instance;
}

SecretsInForce::Holder::Holder(std::vector<std::string> secrets) : secrets_(std::move(secrets)) {
  SecretsInForce& list = ofProcess();
  MutexLock lock(list.mutex_);
  for (const std::string& secret : secrets_) ++list.holders_[secret];
}

SecretsInForce::Holder::~Holder() {
  SecretsInForce& list = ofProcess();
  MutexLock lock(list.mutex_);
  for (const std::string& secret : secrets_) {
    const auto held = list.holders_.find(secret);
    if (--held->second == 0) list.holders_.erase(held);
  }
}

std::string SecretsInForce::leftOutOf(std::string_view text,
                                      const std::vector<std::string_view>& others) {
  SecretsInForce& list = ofProcess();
  std::vector<std::string> held;
  {
    MutexLock lock(list.mutex_);
    for (const auto& [secret, holders] : list.holders_) held.push_back(secret);
  }
  std::vector<std::string_view> secrets(held.begin(), held.end());
  secrets.insert(secrets.end(), others.begin(), others.end());
  return withoutSecrets(text, secrets);
}

}  // namespace qx
